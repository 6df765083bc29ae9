// Standard input and output as the ends of a request.

#include "cgi/cgi_vexa.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "core/late_function.h"

namespace vexa {

namespace {

constexpr int kOutputBuffer = 8192;  // until the configuration says otherwise

// Some servers hand out a descriptor that does not block. A signal may cut the waiting short (the
// clock of packages ticks each second): the next write tells.
bool WaitUntilWritable() {
  pollfd output{STDOUT_FILENO, POLLOUT, 0};
  return poll(&output, 1, -1) >= 0 || errno == EINTR;
}

}  // namespace

CGIRequest::CGIRequest(const Process& process) : Request(environ, process.arguments()) {}

// A server may hand over one socket for body and page. When it is closed while something of the
// body is there unread, the system takes the page back from a server that has not read it yet. So
// nothing more is let in, and what is there is dropped. Pipes know no such thing.
CGIRequest::~CGIRequest() {
  if (AnnouncedLength() <= taken_) return;
  if (LateFunction<"shutdown", decltype(::shutdown)>()(STDIN_FILENO, SHUT_RD) != 0) return;
  char dropped[4096];
  constexpr int kMost = 256;  // more than a socket keeps; none but a stranger's goes on behind it
  for (int i = 0; i < kMost && read(STDIN_FILENO, dropped, sizeof dropped) > 0; ++i) {
  }
}

int CGIRequest::ReadBody(char* buffer, int count, int wait_ms) {
  pollfd input{STDIN_FILENO, POLLIN, 0};
  int ready = poll(&input, 1, wait_ms);
  if (ready == 0 || (ready < 0 && errno == EINTR)) return kNothingYet;
  ssize_t length = read(STDIN_FILENO, buffer, static_cast<size_t>(count));
  if (length > 0) taken_ += length;
  if (length >= 0) return static_cast<int>(length);
  return errno == EINTR || errno == EAGAIN ? kNothingYet : kBodyFailed;
}

StandardOutput::~StandardOutput() { Flush(); }

// Also true when waiting fails: the next write tells why.
bool StandardOutput::AwaitReader(int wait_ms) {
  pollfd output{STDOUT_FILENO, POLLOUT, 0};
  const int ready = poll(&output, 1, wait_ms);
  return ready > 0 || (ready < 0 && errno != EINTR);
}

// One write, as long as the system takes all of it. After an error the rest of the page is given up
// without a word: there is nobody left to tell, and a page with a hole in it must not follow.
int StandardOutput::Send(const char* text, int length) {
  int written = 0;
  while (written < length && !broken_) {
    ssize_t count = write(STDOUT_FILENO, text + written, static_cast<size_t>(length - written));
    if (count > 0) {
      written += static_cast<int>(count);
    } else {
      broken_ = count == 0 || errno != EAGAIN || !WaitUntilWritable();
    }
  }
  written_bytes_ += written;
  return broken_ ? -1 : written;
}

CGIEnds::CGIEnds(const Process& process) : cgi_request(process), cgi_output(kOutputBuffer) {}

}  // namespace vexa
