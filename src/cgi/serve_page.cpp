// The process of a page, and the head of its answer.

#include "cgi/serve_page.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <new>

#include "cgi/cgi_vexa.h"
#include "cgi/run_request.h"
#include "cgi/serve_terminal.h"
#include "core/encoding.h"
#include "core/text.h"
#include "files/descriptor.h"

namespace vexa {

std::string PlainPage(int status, std::string_view sentence) {
  const std::string title = std::to_string(status) + " " + std::string(HTTPResultMessage(status));
  std::string page =
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head><meta charset=\"utf-8\">"
      "<meta name=\"viewport\" content=\"width=device-width\"><title>";
  page.append(title).append("</title></head>\n<body>\n<h1>").append(title).append("</h1>\n<p>");
  return page.append(EntityEncoded(sentence).view()).append("</p>\n</body>\n</html>\n");
}

namespace {

constexpr size_t kPiece = 65536;
constexpr size_t kLongestHead = 1 << 18;

// The host of a page that somebody is working on: what is wrong is told on the terminal too.
class ServedHost final : private CGIEnds, public Host {
 public:
  // Both are borrowed.
  ServedHost(Process& process, const std::string& name)
      : CGIEnds(process),
        Host(process, kVexaTags, cgi_request, cgi_output),
        process_(process),
        name_(name) {}

  void Error(const vexa::Error& error) override {
    Tell(error.message().view());
    Host::Error(error);
  }
  void Error(const String& text) override {
    Tell(text.view());
    Host::Error(text);
  }

 private:
  // That a page was interrupted is no error of it. Memory may have run out: then the page says it
  // alone.
  void Tell(std::string_view message) {
    if (process_.interrupted()) return;
    try {
      String text(message);
      DecodeEntities(text);
      TellError(name_, text.view());
    } catch (const std::bad_alloc&) {
    }
  }

  const Process& process_;
  const std::string& name_;
};

// From here on the process is one of the CGI program. What it has of the server's descriptors it
// must not keep open.
bool BecomeCGI(const ServeSite& site, int body, int answer) {
  (void)setpgid(0, 0);
  (void)::signal(SIGTTOU, SIG_IGN);  // It may write to the terminal whose foreground it has left.
  sigset_t none;
  sigemptyset(&none);
  (void)sigprocmask(SIG_SETMASK, &none, nullptr);
  if (body < 0) body = ::open("/dev/null", O_RDONLY);
  return body >= 0 && (::lseek(body, 0, SEEK_SET) == 0 || errno == ESPIPE) &&
         ::dup2(body, STDIN_FILENO) == STDIN_FILENO &&
         ::dup2(answer, STDOUT_FILENO) == STDOUT_FILENO && ::chdir(site.state.c_str()) == 0;
}

// The variables as a list of the C library, which borrows them.
std::vector<char*> ListOf(const std::vector<std::string>& variables) {
  std::vector<char*> list;
  for (const std::string& variable : variables) list.push_back(const_cast<char*>(variable.c_str()));
  list.push_back(nullptr);
  return list;
}

[[noreturn]] void RunPage(const ServeSite& site, const std::vector<std::string>& variables,
                          const std::string& name) {
  std::vector<char*> list = ListOf(variables);
  environ = list.data();
  const String program = String::Concat({site.state, "/vexa"});
  int status = 0;
  {
    Process process(program, program + ".conf");
    process.TakeOverSignals();
    ServedHost host(process, name);
    status = RunRequest(host);
  }
  std::exit(status);
}

}  // namespace

// The configuration may hang on the request, so it is read by a process as the page's.
bool AdmitsBody(const ServeSite& site, const std::vector<std::string>& variables, int64_t length) {
  const pid_t child = ::fork();
  if (child == 0) {
    const int nowhere = ::open("/dev/null", O_RDWR);
    if (nowhere < 0 || !BecomeCGI(site, nowhere, nowhere)) ::_exit(EXIT_SUCCESS);
    std::vector<char*> list = ListOf(variables);
    environ = list.data();
    const String program = String::Concat({site.state, "/vexa"});
    Process process(program, program + ".conf");
    CGIVexa host(process);
    const int64_t most = host.ReadLargestBody();
    ::_exit(most > 0 && length > most ? EXIT_FAILURE : EXIT_SUCCESS);
  }
  int status = 0;
  return child < 0 || RetryInterrupted([&] { return ::waitpid(child, &status, 0); }) != child ||
         !WIFEXITED(status) || WEXITSTATUS(status) == EXIT_SUCCESS;
}

bool PageRun::Start(const ServeSite& site, const std::vector<std::string>& variables, int body) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return false;
  pipe_ = OwnedDescriptor(ends[0]);
  OwnedDescriptor answer(ends[1]);
  if (::fcntl(ends[0], F_SETFL, O_NONBLOCK) != 0) return false;
  const pid_t server = ::getpid();
  process_ = ::fork();
  if (process_ < 0) return false;
  if (process_ == 0) {
    // No page outlives its server, however that ends.
    (void)::prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (::getppid() != server) ::_exit(EXIT_FAILURE);
    if (!BecomeCGI(site, body, answer.get())) {
      TellError(name_, ::strerror(errno));
      ::_exit(EXIT_FAILURE);
    }
    ::closefrom(STDERR_FILENO + 1);
    RunPage(site, variables, name_);
  }
  // The process does the same: who comes first matters to nobody, as long as it is done.
  (void)setpgid(process_, process_);
  return true;
}

void PageRun::TellReaderGone() const { (void)::kill(process_, SIGPIPE); }

void PageRun::Signal(int signal) const { (void)::kill(-process_, signal); }

void PageRun::Ended(int status) {
  ended_ = true;
  if (WIFSIGNALED(status)) {
    failure_ = "The page was ended by signal " + std::to_string(WTERMSIG(status)) + " (" +
               ::strsignal(WTERMSIG(status)) + ")";
  } else if (const int code = WEXITSTATUS(status); code > 1) {
    failure_ = "The page ended with the status " + std::to_string(code);
  }
  if (!failure_.empty()) TellError(name_, failure_);
}

bool PageRun::Fill() {
  if (!pipe_.open()) return false;
  const size_t before = answer_.size();
  answer_.resize(before + kPiece);
  const ssize_t count =
      RetryInterrupted([&] { return ::read(pipe_.get(), answer_.data() + before, kPiece); });
  answer_.resize(before + static_cast<size_t>(std::max<ssize_t>(count, 0)));
  if (count > 0) return true;
  // A process that the page left behind may hold the other end: it is not waited for.
  if (count == 0 || errno != EAGAIN || ended_) ClosePipe();
  return false;
}

// --- The head --------------------------------------------------------------------------------

bool PageRun::ReadHead() {
  while (!has_head_ && Fill()) {
    if (!TakeHead() && answer_.size() > kLongestHead) FailHead("The answer's head is too long");
  }
  if (!has_head_ && over()) {
    FailHead(failure_.empty() ? std::string_view("The page ended without an answer") : failure_);
  }
  return has_head_;
}

bool PageRun::TakeHead() {
  PageHead head;
  bool has_status = false, redirects = false;
  size_t begin = 0;
  for (;;) {
    const size_t feed = answer_.find('\n', begin);
    if (feed == answer_.npos) return false;
    const std::string_view line = Stripped(std::string_view(answer_).substr(begin, feed - begin));
    begin = feed + 1;
    if (line.empty()) break;
    const size_t colon = std::min(line.find(':'), line.size());
    const std::string_view name = line.substr(0, colon);
    const std::string_view value = Stripped(line.substr(std::min(colon + 1, line.size())));
    const auto read_number = [value](auto& number) {
      (void)std::from_chars(value.data(), value.data() + value.size(), number);
    };
    if (EqualsIgnoreCase(name, "Status")) {
      read_number(head.status);
      has_status = true;
    } else if (EqualsIgnoreCase(name, "Content-Length")) {
      read_number(head.length);
    } else {
      redirects = redirects || EqualsIgnoreCase(name, "Location");
      head.headers.emplace_back(name, value);
    }
  }
  if (redirects && !has_status) head.status = 302;
  head_ = std::move(head);
  has_head_ = true;
  answer_.erase(0, begin);
  if (head_.status < 200 || head_.status > 599) FailHead("The page gave a status that is none");
  return true;
}

void PageRun::FailHead(std::string_view reason) {
  head_ = {500, -1, {{"Content-Type", "text/html; charset=utf-8"}}};
  answer_ = PlainPage(500, reason);
  has_head_ = true;
  failure_.clear();
  ClosePipe();
}

ssize_t PageRun::Read(char* buffer, size_t size) {
  if (answer_.empty() && !Fill() && !over()) return kNothingYet;
  if (answer_.empty() && head_.length < 0) answer_ = std::exchange(failure_, {});
  if (answer_.empty()) return kEnd;
  const size_t count = std::min(size, answer_.size());
  std::memcpy(buffer, answer_.data(), count);
  answer_.erase(0, count);
  return static_cast<ssize_t>(count);
}

}  // namespace vexa
