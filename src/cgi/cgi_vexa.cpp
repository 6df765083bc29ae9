// Standard input and output as the ends of a request.

#include "cgi/cgi_vexa.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "core/late_function.h"

namespace vexa {

namespace {

constexpr int kOutputBuffer = 8192;  // until the configuration says otherwise

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

StandardOutput::Kind StandardOutput::KindOfOutput() {
  struct stat status;
  if (fstat(STDOUT_FILENO, &status) != 0) return Kind::Pipe;
  if (S_ISSOCK(status.st_mode)) return Kind::Socket;
  return S_ISREG(status.st_mode) ? Kind::File : Kind::Pipe;
}

// A pipe that can be written to takes kPiece bytes and would keep who writes more, until somebody
// reads; a socket can be told not to; a file keeps nobody. Most pages are one small piece, for
// which what the descriptor is need not be known: a socket that can be written to takes that much
// too.
int StandardOutput::SendSome(std::string_view bytes, int wait_ms) {
  const bool first = written_bytes_ == 0;
  if (kind_ == Kind::Unknown && !(first && bytes.size() <= kPiece)) kind_ = KindOfOutput();
  const bool at_once = kind_ == Kind::File || (kind_ == Kind::Socket && wait_ms == 0);
  if (!at_once) {
    pollfd output{STDOUT_FILENO, POLLOUT, 0};
    const int ready = poll(&output, 1, wait_ms);
    if (ready == 0 || (ready < 0 && errno == EINTR)) return 0;
  }
  ssize_t taken;
  if (kind_ == Kind::Socket) {
    taken = LateFunction<"send", decltype(::send)>()(STDOUT_FILENO, bytes.data(), bytes.size(),
                                                     MSG_DONTWAIT);
  } else {
    const size_t most = kind_ == Kind::File ? bytes.size() : std::min(bytes.size(), kPiece);
    taken = write(STDOUT_FILENO, bytes.data(), most);
  }
  if (taken > 0) return static_cast<int>(taken);
  return taken < 0 && (errno == EAGAIN || errno == EINTR) ? 0 : -1;
}

CGIEnds::CGIEnds(const Process& process) : cgi_request(process), cgi_output(kOutputBuffer) {}

}  // namespace vexa
