// A request begins when its parameters have been read, and ends with the record that says so:
//
//   accept -> parameters -> RequestEnvironment -> Host, from its first phase to its destructor
//        ^                                          |
//        +---- not spent, and fewer than enough ----+----> the process ends; another takes its
//        place
//
// What a request leaves in a process is listed in process.h and remembered.h.

#include "cgi/fcgi_worker.h"

#include <fastcgi.h>
#include <fcgiapp.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>
#include <string_view>
#include <vector>

#include "cgi/fcgi_vexa.h"
#include "cgi/run_request.h"
#include "core/symbol.h"
#include "core/waiting.h"

namespace vexa {

namespace {

constexpr size_t kUsualEntries = 64;  // in the environment of a request
constexpr char kUnset[] = "\n";       // no zone's name

volatile std::sig_atomic_t ending = 0;
volatile std::sig_atomic_t hurried = 0;
const FCGX_Request* volatile awaited = nullptr;  // whose head is being read, or will be
int listening_socket = -1;
int no_socket = -1;

// What stands in the place of the socket makes accept fail, also when it is called only after this:
// a signal that comes right before the call is not lost.
// Only who is to begin anew (SIGHUP) leaves a page the time to wait for its reader.
void EndAfterThis(int signal) {
  const int error = errno;
  ending = 1;
  if (signal != SIGHUP) hurried = 1;
  dup2(no_socket, listening_socket);
  // The head of a request that goes on coming is read; from here on none that has stopped.
  if (const FCGX_Request* const records = awaited; records != nullptr && records->ipcFd >= 0) {
    const timeval wait{0, kLongestWait * 1000};
    setsockopt(records->ipcFd, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
  }
  errno = error;
}

// Calls go on after these signals, so that the page that runs does not notice.
bool TakeOverEndSignals(int listening) {
  listening_socket = listening;
  no_socket = open("/dev/null", O_RDONLY | O_CLOEXEC);
  if (no_socket < 0) return false;
  struct sigaction action = {};
  action.sa_handler = EndAfterThis;
  action.sa_flags = SA_RESTART;
  sigemptyset(&action.sa_mask);
  for (int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) sigaction(signal, &action, nullptr);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  return true;
}

// The environment of the process while a request runs: that of the request, as by CGI. A time zone
// that the worker was started with holds for requests that name none.
class RequestEnvironment {
 public:
  explicit RequestEnvironment(char** sent) : own_(environ) {
    entries_.reserve(kUsualEntries);
    // Here the host puts the search path, without making room for it.
    static char search_path[] = "PATH=";
    entries_.push_back(search_path);
    if (char* zone = FindZone(own_); zone != nullptr && FindZone(sent) == nullptr) {
      entries_.push_back(zone);
    }
    added_ = entries_.size();
    for (char** entry = sent; *entry != nullptr; ++entry) {
      // Which the library adds to what was sent.
      if (std::strncmp(*entry, "FCGI_ROLE=", 10) != 0) entries_.push_back(*entry);
    }
    entries_.push_back(nullptr);
    environ = entries_.data();
    NoticeZone();
  }
  ~RequestEnvironment() { environ = own_; }
  RequestEnvironment(const RequestEnvironment&) = delete;
  RequestEnvironment& operator=(const RequestEnvironment&) = delete;

  // What the server sent.
  [[nodiscard]] char** sent() { return entries_.data() + added_; }

 private:
  static char* FindZone(char** entries) {
    char* found = nullptr;
    for (; *entries != nullptr; ++entries) {
      if ((*entries)[0] == 'T' && std::strncmp(*entries, "TZ=", 3) == 0) found = *entries;
    }
    return found;
  }

  // The library looks at the zone when it is first asked for; a request after that may have
  // another.
  static void NoticeZone() {
    static String known = kUnset;
    const char* zone = std::getenv("TZ");
    const std::string_view now = zone == nullptr ? kUnset : zone;
    if (known.view() == now) return;
    known = now;
    tzset();
  }

  char** own_;
  std::vector<char*> entries_;
  size_t added_ = 0;  // of them, before what was sent
};

// Names that strangers made are kept for ever, and storage that was taken once is seldom given
// back: a child that has grown so far makes room for a fresh one.
bool HasGrown(const char* first_end) {
  constexpr size_t kMostNames = 4u << 20;
  constexpr ptrdiff_t kMostStorage = 64 << 20;
  return Symbol::TakenBytes() > kMostNames ||
         static_cast<const char*>(sbrk(0)) - first_end > kMostStorage;
}

// Runs a request to its end.
void Serve(Process& process, FCGX_Request& records) {
  if (records.role != FCGI_RESPONDER) return FCGX_Finish_r(&records);
  try {
    RequestEnvironment environment(records.envp);
    FCGIVexa host(process, records, hurried, environment.sent());
    (void)RunRequest(host);
  } catch (const std::bad_alloc&) {
    // There was none to begin with.
    process.Spend();
    FCGX_PutS("Content-type: text/html\r\n\r\nFatal Error: Out of memory\r\n", records.out);
    return FCGX_Finish_r(&records);
  }
  CloseConnection(records, ending);
}

}  // namespace

int ServeRequests(const WorkerSettings& settings, int listening) {
  FCGX_Request records;
  if (FCGX_Init() != 0 || FCGX_InitRequest(&records, listening, FCGI_FAIL_ACCEPT_ON_INTR) != 0) {
    return EXIT_FAILURE;
  }
  Process process(settings.program, settings.configuration);
  process.TakeOverSignals();
  if (!TakeOverEndSignals(listening)) return EXIT_FAILURE;
  const char* const first_end = static_cast<const char*>(sbrk(0));
  for (int served = 0;
       served < settings.requests && ending == 0 && !process.spent() && !process.is_to_end();) {
    awaited = &records;
    const int failed = FCGX_Accept_r(&records);
    awaited = nullptr;
    if (failed != 0) {
      // Nobody came for a while, or who came has gone.
      if (failed == -EAGAIN || failed == -EINTR || failed == -ECONNABORTED) continue;
      return ending != 0 ? EXIT_SUCCESS : EXIT_FAILURE;
    }
    ++served;
    // A connection that waits for its next request would keep this child from all others.
    records.keepConnection = 0;
    Serve(process, records);
    if (HasGrown(first_end)) break;
  }
  return EXIT_SUCCESS;
}

}  // namespace vexa
