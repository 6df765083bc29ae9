// Standard input and output as the ends of a request.

#include "cgi/cgi_vexa.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>

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

int CGIRequest::ReadBody(char* buffer, int count, int wait_ms) {
  pollfd input{STDIN_FILENO, POLLIN, 0};
  int ready = poll(&input, 1, wait_ms);
  if (ready == 0 || (ready < 0 && errno == EINTR)) return kNothingYet;
  ssize_t length = read(STDIN_FILENO, buffer, static_cast<size_t>(count));
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
