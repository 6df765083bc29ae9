// fork, exec and one poll loop over the three pipes. The loop ends when both output pipes are at
// their end or the time is up; only then is the process waited for, so a program that closes its
// output and runs on is caught by the same limit.

#include "program_run.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace {

constexpr int kExecFailed = 127;

double Now() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

void CloseEnd(int* descriptor) {
  if (*descriptor >= 0) close(*descriptor);
  *descriptor = -1;
}

// In the child: becomes the program. `input`, `output` and `errors` become descriptors 0 to 2; all
// other descriptors close by themselves.
[[noreturn]] void Become(const ProgramStart& start, int input, int output, int errors) {
  setpgid(0, 0);
  signal(SIGPIPE, SIG_DFL);
  dup2(input, 0);
  dup2(output, 1);
  dup2(errors, 2);
  std::vector<std::string> settings;
  for (const auto& [name, value] : start.environment) settings.push_back(name + "=" + value);
  std::vector<char*> environment;
  for (std::string& setting : settings) environment.push_back(setting.data());
  environment.push_back(nullptr);
  std::vector<char*> arguments = {const_cast<char*>(start.path.c_str())};
  for (const std::string& text : start.arguments)
    arguments.push_back(const_cast<char*>(text.c_str()));
  arguments.push_back(nullptr);
  if (chdir(start.directory.c_str()) == 0)
    execve(start.path.c_str(), arguments.data(), environment.data());
  const std::string message = start.path + ": " + std::strerror(errno) + "\n";
  (void)!write(2, message.data(), message.size());
  _exit(kExecFailed);
}

// Appends what `descriptor` has to `text`; closes it at its end.
void Collect(int* descriptor, std::string* text) {
  std::array<char, 65536> buffer;
  const ssize_t count = read(*descriptor, buffer.data(), buffer.size());
  if (count > 0) {
    text->append(buffer.data(), static_cast<size_t>(count));
  } else if (count == 0 || errno != EINTR) {
    CloseEnd(descriptor);
  }
}

// Writes what is left of `input` from `*sent` on; closes the pipe behind the last byte, or when the
// program stopped reading.
void Feed(int* descriptor, const std::string& input, size_t* sent) {
  const ssize_t count = write(*descriptor, input.data() + *sent, input.size() - *sent);
  if (count > 0) *sent += static_cast<size_t>(count);
  const bool broken = count < 0 && errno != EINTR && errno != EAGAIN;
  if (broken || *sent == input.size()) CloseEnd(descriptor);
}

// The pipes' ends on this side; -1 once closed.
struct Pipes {
  int input;
  int output;
  int errors;
};

// Moves bytes until both outputs have ended. Returns false when `deadline` came first.
bool Exchange(Pipes* pipes, const std::string& input, double deadline, ProgramEnd* end) {
  size_t sent = 0;
  if (input.empty()) CloseEnd(&pipes->input);
  while (pipes->output >= 0 || pipes->errors >= 0) {
    const double left = deadline - Now();
    if (left <= 0) return false;
    pollfd waiting[] = {
        {pipes->input, POLLOUT, 0}, {pipes->output, POLLIN, 0}, {pipes->errors, POLLIN, 0}};
    if (poll(waiting, 3, static_cast<int>(left * 1000) + 1) <= 0) continue;
    if (waiting[0].revents != 0) Feed(&pipes->input, input, &sent);
    if (waiting[1].revents != 0) Collect(&pipes->output, &end->output);
    if (waiting[2].revents != 0) Collect(&pipes->errors, &end->errors);
  }
  return true;
}

// Waits for the process, at most until `deadline`. Returns false when it still runs.
bool WaitFor(pid_t process, double deadline, int* wait_status) {
  while (waitpid(process, wait_status, WNOHANG) == 0) {
    if (Now() >= deadline) return false;
    usleep(200);
  }
  return true;
}

}  // namespace

ProgramEnd RunProgram(const ProgramStart& start, int limit_seconds) {
  ProgramEnd end;
  int input[2] = {-1, -1};
  int output[2] = {-1, -1};
  int errors[2] = {-1, -1};
  if (pipe2(input, O_CLOEXEC) != 0 || pipe2(output, O_CLOEXEC) != 0 ||
      pipe2(errors, O_CLOEXEC) != 0) {
    end.trouble = std::string("cannot make a pipe: ") + std::strerror(errno);
    return end;
  }
  signal(SIGPIPE, SIG_IGN);
  const double deadline = Now() + limit_seconds;
  const pid_t process = fork();
  if (process == 0) Become(start, input[0], output[1], errors[1]);
  CloseEnd(&input[0]);
  CloseEnd(&output[1]);
  CloseEnd(&errors[1]);
  fcntl(input[1], F_SETFL, O_NONBLOCK);

  Pipes pipes{input[1], output[0], errors[0]};
  int wait_status = 0;
  if (process < 0) {
    end.trouble = std::string("cannot fork: ") + std::strerror(errno);
  } else if (!Exchange(&pipes, start.input, deadline, &end) ||
             !WaitFor(process, deadline, &wait_status)) {
    kill(-process, SIGKILL);
    waitpid(process, &wait_status, 0);
    end.trouble = "ran longer than " + std::to_string(limit_seconds) + " seconds and was killed";
  } else if (WIFSIGNALED(wait_status)) {
    end.trouble = std::string("was killed by a signal: ") + strsignal(WTERMSIG(wait_status));
  } else {
    end.status = WEXITSTATUS(wait_status);
  }
  CloseEnd(&pipes.input);
  CloseEnd(&pipes.output);
  CloseEnd(&pipes.errors);
  return end;
}
