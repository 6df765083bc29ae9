// The records of FastCGI as the ends of a request.

#include "cgi/fcgi_vexa.h"

#include <fastcgi.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace vexa {

namespace {

constexpr int kOutputBuffer = 8192;  // until the configuration says otherwise
// A shorter write is one that somebody waits for; longer ones push each other on.
constexpr int kPushing = 4096;

constexpr int kNoByteYet = EOF - 1;

// From here on a read of the connection gives up when nothing is there.
void ReadAtOnce(const FCGX_Request& records) {
  const timeval moment{0, 1};
  setsockopt(records.ipcFd, SOL_SOCKET, SO_RCVTIMEO, &moment, sizeof moment);
}

}  // namespace

bool WasReadWhole(FCGX_Request& records) {
  ReadAtOnce(records);
  return FCGX_GetChar(records.in) == EOF && FCGX_GetError(records.in) == 0;
}

// The stream of the library holds bytes that nobody can see, and waits for ever where it holds
// none. So reads of the connection give up at once here, and the waiting is done with poll.
int FCGIRequest::ReadBody(char* buffer, int count, int wait_ms) {
  if (!reads_at_once_) {
    ReadAtOnce(records_);
    reads_at_once_ = true;
  }
  int first = ReadByte();
  if (first == kNoByteYet) {
    pollfd input{records_.ipcFd, POLLIN, 0};
    if (poll(&input, 1, wait_ms) <= 0) return kNothingYet;
    first = ReadByte();
  }
  if (first == kNoByteYet) return kNothingYet;
  if (first == EOF) return FCGX_GetError(records_.in) == 0 ? kBodyEnd : kBodyFailed;
  buffer[0] = static_cast<char>(first);
  const auto held = static_cast<int>(records_.in->stop - records_.in->rdNext);
  return 1 + FCGX_GetStr(buffer + 1, std::min(held, count - 1), records_.in);
}

// The next byte, EOF, or kNoByteYet.
int FCGIRequest::ReadByte() {
  FCGX_Stream* const body = records_.in;
  const int byte = FCGX_GetChar(body);
  const int error = FCGX_GetError(body);
  if (byte != EOF || (error != EAGAIN && error != EINTR)) return byte;
  FCGX_ClearError(body);
  body->isClosed = 0;  // Which the library leaves to its callers.
  return kNoByteYet;
}

// After an error the rest of the page is given up without a word, as by CGI.
int FCGIOutput::Send(const char* text, int length) {
  if (broken_) return -1;
  broken_ = FCGX_PutStr(text, length, records_.out) != length ||
            (!finishing_ && length < kPushing && FCGX_FFlush(records_.out) != 0);
  if (broken_) return -1;
  written_bytes_ += length;
  return length;
}

// Also true when waiting fails: the next write tells why.
bool FCGIOutput::AwaitReader(int wait_ms) {
  pollfd output{records_.ipcFd, POLLOUT, 0};
  const int ready = poll(&output, 1, wait_ms);
  return ready > 0 || (ready < 0 && errno != EINTR);
}

void FCGIOutput::Finish() {
  finishing_ = true;
  Flush();
}

// The head of a record of output; at the end, such a record without content and the one that ends
// the request. What the library holds goes before them, where that needs no waiting.
size_t FCGIOutput::Frame(size_t length, char* frame) {
  pollfd reader{records_.ipcFd, POLLOUT, 0};
  if (poll(&reader, 1, 0) > 0) FCGX_FFlush(records_.out);
  const auto put = [&](int type, size_t content) {
    const auto id = static_cast<unsigned>(records_.requestId);
    const unsigned bytes[] = {FCGI_VERSION_1,
                              static_cast<unsigned>(type),
                              id >> 8,
                              id & 0xFF,
                              static_cast<unsigned>(content >> 8),
                              static_cast<unsigned>(content & 0xFF),
                              0,
                              0};
    for (const unsigned byte : bytes) *frame++ = static_cast<char>(byte);
  };
  put(FCGI_STDOUT, length);
  if (length > 0) return FCGI_HEADER_LEN;
  put(FCGI_END_REQUEST, sizeof(FCGI_EndRequestBody));
  std::memset(frame, 0, sizeof(FCGI_EndRequestBody));
  return 2 * FCGI_HEADER_LEN + sizeof(FCGI_EndRequestBody);
}

FCGIEnds::FCGIEnds(FCGX_Request& records, char** environment)
    : fcgi_request(records, environment), fcgi_output(records, kOutputBuffer) {}

}  // namespace vexa
