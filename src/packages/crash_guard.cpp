// The crash guard; see crash_guard.h. Everything below CrashReport runs in signal handlers.

#include "packages/crash_guard.h"

#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <initializer_list>
#include <string_view>

#include "core/late_function.h"
#include "core/outside.h"

namespace vexa {

namespace {

constexpr int kCrashes[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT};
constexpr size_t kStackSize = 64 << 10;  // of the handlers: endless recursion has used up the other
constexpr int64_t kPatienceMilliseconds = 2000;  // with who reads the page slowly
constexpr int64_t kGraceSeconds = 2;             // that library code may go on after the deadline

Vexa* host = nullptr;
pid_t own_process = 0;
pid_t own_thread = 0;
bool installed = false;
// The innermost library code on Vexa's thread, null while its own code runs; and the last that ran,
// which is blamed when another thread crashes.
const LibraryRuns* volatile running = nullptr;
const GuardedLibrary* volatile last_library = nullptr;
const char* volatile last_function = nullptr;

alignas(16) char handler_stack[kStackSize];

// A process that a library started has the page in its memory, but it is not its own to send.
bool IsOurProcess() { return getpid() == own_process; }

int64_t Milliseconds() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

}  // namespace

// What is sent when everything else is over.
class CrashReport {
 public:
  // Ends in the death of the process by `signal`, in any case.
  static void Crash(int signal) {
    const bool own = syscall(SYS_gettid) == own_thread;
    if (IsOurProcess() && (own ? running != nullptr : last_library != nullptr)) {
      const GuardedLibrary& library = own ? running->library_ : *last_library;
      const char* function = own ? running->function_ : last_function;
      running = nullptr;
      CrashReport report;
      report.EndPage({"Fatal Error: ", library.who, " has crashed\r\n"});
      report.Tell(signal, library, function);
    }
    // The handler is gone already (SA_RESETHAND).
    syscall(SYS_tgkill, getpid(), syscall(SYS_gettid), signal);
  }

  static void LookAtTheClock() {
    if (running == nullptr || host == nullptr || host->timeremaining() > -kGraceSeconds) return;
    CrashReport report;
    report.EndPage({"Application timed out\r\n"});
    syscall(SYS_exit_group, 1);
  }

 private:
  CrashReport() : end_(Milliseconds() + kPatienceMilliseconds) {}

  // What is held, and the message where the answer has a text.
  void EndPage(std::initializer_list<std::string_view> message) {
    const auto send = [](void* report, std::string_view piece) {
      static_cast<CrashReport*>(report)->Answer(piece);
    };
    if (host == nullptr || host->answer().SendHeld(send, this)) {
      for (std::string_view piece : message) Answer(piece);
    }
    if (host != nullptr) SendFrame(0);
  }

  // Sends a part of the answer, in the pieces that its output wants.
  void Answer(std::string_view text) {
    if (host == nullptr) return Send(STDOUT_FILENO, text);
    while (!text.empty()) {
      const std::string_view piece = text.substr(0, Output::kPiece);
      SendFrame(piece.size());
      Send(host->output().descriptor(), piece);
      text.remove_prefix(piece.size());
    }
  }
  void SendFrame(size_t length) {
    char frame[Output::kLongestFrame];
    const size_t size = host->output().Frame(length, frame);
    Send(host->output().descriptor(), {frame, size});
  }

  void Send(int descriptor, std::string_view text) {
    while (!text.empty() && descriptor >= 0) {
      pollfd wanted{descriptor, POLLOUT, 0};
      const int64_t left = end_ - Milliseconds();
      if (left <= 0) return;
      const int ready = poll(&wanted, 1, static_cast<int>(left));
      if (ready < 0 && errno == EINTR) continue;
      if (ready <= 0 || (wanted.revents & POLLOUT) == 0) return;
      const ssize_t sent = write(descriptor, text.data(), std::min(text.size(), Output::kPiece));
      if (sent < 0 && errno != EINTR && errno != EAGAIN) return;
      if (sent > 0) text.remove_prefix(static_cast<size_t>(sent));
    }
  }

  void Tell(int signal, const GuardedLibrary& library, const char* function) {
    char number[4] = {};
    char* digit = number + 3;
    for (int rest = signal; rest != 0 && digit > number; rest /= 10) {
      *--digit = static_cast<char>('0' + rest % 10);
    }
    for (std::string_view part :
         {std::string_view("vexa: signal "), std::string_view(digit, number + 3),
          std::string_view(" in "), library.file.view(), std::string_view(", function "),
          std::string_view(function), std::string_view("\n")}) {
      Send(STDERR_FILENO, part);
    }
  }

  int64_t end_;
};

namespace {

void OnCrash(int signal) { CrashReport::Crash(signal); }

// What came first must not change under whoever is interrupted.
void OnTick(int) {
  const int error = errno;
  CrashReport::LookAtTheClock();
  errno = error;
}

// A library that calls exit() would end the page in the middle without a word.
void OnExit() {
  if (running != nullptr && IsOurProcess()) std::abort();
}

// SIGRTMIN, which is a call.
int TickSignal() {
  return LateFunction<"__libc_current_sigrtmin", decltype(::__libc_current_sigrtmin)>()();
}

void InstallHandlers() {
  stack_t stack{};
  stack.ss_sp = handler_stack;
  stack.ss_size = sizeof handler_stack;
  LateFunction<"sigaltstack", decltype(::sigaltstack)>()(&stack, nullptr);
  struct sigaction action {};
  sigemptyset(&action.sa_mask);
  action.sa_handler = OnCrash;
  action.sa_flags = SA_ONSTACK | SA_RESETHAND | SA_NODEFER;
  for (const int signal : kCrashes) sigaction(signal, &action, nullptr);
  action.sa_handler = OnTick;
  action.sa_flags = SA_ONSTACK | SA_RESTART;
  sigaction(TickSignal(), &action, nullptr);
  std::atexit(OnExit);
}

// Comes each second, since Vexa's own code, called back, may run when it first comes.
void StartTimer() {
  sigevent event{};
  event.sigev_notify = SIGEV_THREAD_ID;
  event.sigev_signo = TickSignal();
  event._sigev_un._tid = own_thread;
  timer_t timer;
  const auto create = LateFunction<"timer_create", decltype(::timer_create)>();
  if (create(CLOCK_MONOTONIC, &event, &timer) != 0) return;
  const itimerspec second{{1, 0}, {1, 0}};
  LateFunction<"timer_settime", decltype(::timer_settime)>()(timer, 0, &second, nullptr);
}

}  // namespace

void InstallCrashGuard(Vexa& new_host) {
  host = &new_host;
  if (installed) return;
  installed = true;
  own_process = getpid();
  own_thread = static_cast<pid_t>(syscall(SYS_gettid));
  InstallHandlers();
  StartTimer();
}

void RemoveCrashGuard() {
  host = nullptr;
  last_library = nullptr;
}

LibraryRuns::LibraryRuns(const GuardedLibrary& library, const char* function)
    : library_(library), function_(function), outer_(running) {
  last_library = &library;
  last_function = function;
  running = this;
  LookOutside();  // What it does nobody knows.
}

LibraryRuns::~LibraryRuns() { running = outer_; }

OwnCodeRuns::OwnCodeRuns() : outer_(running) { running = nullptr; }

OwnCodeRuns::~OwnCodeRuns() { running = outer_; }

}  // namespace vexa
