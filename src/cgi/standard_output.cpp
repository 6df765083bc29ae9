// StandardOutput: writing to the web server.

#include "cgi/standard_output.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>

namespace vexa {

namespace {

// Some servers hand out a descriptor that does not block. False when waiting was interrupted.
bool WaitUntilWritable() {
  pollfd output{STDOUT_FILENO, POLLOUT, 0};
  return poll(&output, 1, -1) >= 0;
}

}  // namespace

StandardOutput::~StandardOutput() { Flush(); }

// One write, as long as the system takes all of it. After an error the rest of the page is given up
// without a word: there is nobody left to tell, and a page with a hole in it must not follow.
int StandardOutput::DoWrite(const char* text, int length) {
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

}  // namespace vexa
