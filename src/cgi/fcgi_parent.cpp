// Keeping children: the parent waits for signals and answers each.

#include "cgi/fcgi_parent.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace vexa {

namespace {

// A child that fails sooner than so many seconds after its start is replaced only after a second.
constexpr time_t kSoon = 2;

// False when the parent is gone already.
bool BecomeChild(pid_t parent) {
  // Without its parent nobody would replace it.
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  // What code of others prints is for the log, never for a page.
  dup2(STDERR_FILENO, STDOUT_FILENO);
  return getppid() == parent;
}

}  // namespace

int FCGIParent::Run() {
  sigemptyset(&waited_for_);
  for (int signal : {SIGCHLD, SIGHUP, SIGINT, SIGQUIT, SIGTERM}) sigaddset(&waited_for_, signal);
  sigprocmask(SIG_BLOCK, &waited_for_, nullptr);
  for (;;) {
    int status = 0;
    if (StartMissing(status)) return status;
    const timespec second{1, 0};
    const int signal = sigtimedwait(&waited_for_, nullptr, hurried_ ? &second : nullptr);
    hurried_ = false;
    if (signal == SIGHUP) {
      EndChildren(signal);
      for (Child& child : children_) child = {};
    } else if (signal == SIGTERM || signal == SIGINT || signal == SIGQUIT) {
      EndChildren(SIGTERM);
      while (waitpid(-1, nullptr, 0) > 0 || errno == EINTR) {
      }
      return EXIT_SUCCESS;
    }
    Collect();
  }
}

bool FCGIParent::StartMissing(int& status) {
  for (Child& child : children_) {
    if (child.id != 0 || hurried_) continue;
    const pid_t parent = getpid();
    const pid_t id = fork();
    if (id == 0) {
      status = BecomeChild(parent) ? ServeRequests(settings_, listening_) : EXIT_SUCCESS;
      return true;
    }
    if (id < 0) {
      std::fprintf(stderr, "vexa-fcgi: no child can be started: %s\n", std::strerror(errno));
      hurried_ = true;
      return false;
    }
    child = {id, std::time(nullptr)};
  }
  return false;
}

// Children that a restart has sent away are waited for too, but nobody misses them.
void FCGIParent::Collect() {
  int status = 0;
  for (pid_t id = 0; (id = waitpid(-1, &status, WNOHANG)) > 0;) {
    const auto found = std::find_if(children_.begin(), children_.end(),
                                    [id](const Child& child) { return child.id == id; });
    const Child child = found == children_.end() ? Child{id} : *found;
    if (!WIFEXITED(status) || WEXITSTATUS(status) != EXIT_SUCCESS) Lost(child, status);
    if (found != children_.end()) *found = {};
  }
}

void FCGIParent::Lost(const Child& child, int status) {
  const bool killed = WIFSIGNALED(status);
  std::fprintf(stderr, "vexa-fcgi: child %d ended by %s %d\n", static_cast<int>(child.id),
               killed ? "signal" : "itself with status",
               killed ? WTERMSIG(status) : WEXITSTATUS(status));
  if (std::time(nullptr) - child.began < kSoon) hurried_ = true;
}

void FCGIParent::EndChildren(int signal) {
  for (const Child& child : children_) {
    if (child.id != 0) kill(child.id, signal);
  }
}

}  // namespace vexa
