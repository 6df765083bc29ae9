// PageRun: one page request as a process of its own, a fork of the server: nothing of one request
// reaches another, and a page that crashes or hangs harms only itself.
//
//   Start --> Running --(the pipe's end)--> --Ended(status)--> over
//
// The process has the request in its environment, its body as descriptor 0 and a pipe as
// descriptor 1, as in the CGI program. It heads a process group. The server reads the head of the
// answer, then passes on the rest.

#ifndef VEXA_CGI_SERVE_PAGE_H_
#define VEXA_CGI_SERVE_PAGE_H_

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "cgi/serve_site.h"
#include "cgi/serve_target.h"

namespace vexa {

struct PageHead {
  int status = 200;
  int64_t length = -1;  // of the text in bytes; -1: not told
  std::vector<std::pair<std::string, std::string>> headers;
};

// Whether a page of the site takes a body of `length` bytes with these variables, as its
// configuration says; true when that cannot be found out.
[[nodiscard]] bool AdmitsBody(const ServeSite& site, const std::vector<std::string>& variables,
                              int64_t length);

class PageRun {
 public:
  // Results of Read besides a count of bytes.
  static constexpr ssize_t kNothingYet = 0;
  static constexpr ssize_t kEnd = -1;

  // `name` is what the terminal calls the page.
  explicit PageRun(std::string name) : name_(std::move(name)) {}
  // REQUIRES: the process has ended and was waited for.
  ~PageRun() = default;

  // Starts the process. `variables` are "NAME=value"; `body` is -1 when there is none, and is read
  // from its start. False, with the reason in errno, when the system refuses.
  [[nodiscard]] bool Start(const ServeSite& site, const std::vector<std::string>& variables,
                           int body);

  [[nodiscard]] pid_t process() const { return process_; }
  // The pipe, while there may be more in it, else -1.
  [[nodiscard]] int pipe() const { return pipe_.get(); }

  // Reads the head as far as it has come. True once it is there, or cannot come any more: then it
  // is that of an answer which says so.
  [[nodiscard]] bool ReadHead();
  [[nodiscard]] const PageHead& head() const { return head_; }
  // Reads of the text behind the head. A count, kNothingYet, or kEnd.
  [[nodiscard]] ssize_t Read(char* buffer, size_t size);
  // Whether kEnd came, or will come without waiting.
  [[nodiscard]] bool over() const { return ended_ && !pipe_.open(); }

  // The process was waited for and gave `status`.
  void Ended(int status);
  [[nodiscard]] bool ended() const { return ended_; }
  // Nobody reads any more: what the process writes from now on fails.
  void ClosePipe() { pipe_ = OwnedDescriptor(); }
  // The same for a page that writes nothing: it ends at its next tag. REQUIRES: !ended().
  void TellReaderGone() const;
  // Sends `signal` to the process and those it started. REQUIRES: !ended().
  void Signal(int signal) const;

 private:
  // Fills `answer_` with what the pipe holds, up to some limit. False when there is nothing now.
  [[nodiscard]] bool Fill();
  [[nodiscard]] bool TakeHead();
  void FailHead(std::string_view reason);

  std::string name_;
  pid_t process_ = -1;
  OwnedDescriptor pipe_;
  std::string answer_;  // read and not passed on
  bool has_head_ = false;
  PageHead head_;
  bool ended_ = false;
  std::string failure_;  // how the process ended, if that was no end of a page
};

// An answer of the server's own, for people: a heading and a sentence.
[[nodiscard]] std::string PlainPage(int status, std::string_view sentence);

}  // namespace vexa

#endif  // VEXA_CGI_SERVE_PAGE_H_
