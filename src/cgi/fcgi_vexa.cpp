// The records of FastCGI as the ends of a request.

#include "cgi/fcgi_vexa.h"

#include <fastcgi.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <utility>

#include "core/outside.h"
#include "core/waiting.h"

namespace vexa {

namespace {

constexpr int kOutputBuffer = 8192;  // until the configuration says otherwise

constexpr int kNoByteYet = EOF - 1;

constexpr int64_t kLongestParting = 10'000'000'000;  // nanoseconds
constexpr size_t kLongestContent = 65535;            // of a record

// From here on a read of the connection gives up when nothing is there.
void ReadAtOnce(const FCGX_Request& records) {
  const timeval moment{0, 1};
  setsockopt(records.ipcFd, SOL_SOCKET, SO_RCVTIMEO, &moment, sizeof moment);
}

// Whether the server has sent the whole request and all of it was read. It does not wait.
bool WasReadWhole(FCGX_Request& records) {
  ReadAtOnce(records);
  return FCGX_GetChar(records.in) == EOF && FCGX_GetError(records.in) == 0;
}

}  // namespace

void CloseConnection(FCGX_Request& records, const volatile std::sig_atomic_t& ending) {
  const int connection = records.ipcFd;
  if (records.in != nullptr && !WasReadWhole(records) && shutdown(connection, SHUT_WR) == 0) {
    // Who goes on sending has no eyes for the answer.
    const int64_t end = SteadyTime() + kLongestParting;
    char dropped[4096];
    pollfd input{connection, POLLIN, 0};
    int ready = 0;
    do {
      ready = poll(&input, 1, kLongestWait);
    } while (ending == 0 && SteadyTime() < end &&
             (ready == 0 || (ready < 0 && errno == EINTR) ||
              (ready > 0 && recv(connection, dropped, sizeof dropped, MSG_DONTWAIT) > 0)));
  }
  FCGX_Detach(&records);
  FCGX_Free(&records, 1);
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
    const bool in_a_hurry = hurried_ != 0;
    if (poll(&input, 1, wait_ms) <= 0) {
      if (in_a_hurry) process_.GiveUpRequest();
      return kNothingYet;
    }
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

// --- The answer ------------------------------------------------------------------------------

void FCGIOutput::Finish() {
  finishing_ = true;
  Flush();
}

// In the end a text is kept back that fits, to leave with what ends the request.
int FCGIOutput::Send(std::string_view bytes) {
  if (!finishing_ || broken_) return ResponseOutput::Send(bytes);
  if (bytes.size() <= kLongestLast - last_size_) {
    bytes.copy(last_ + kHeader + last_size_, bytes.size());
    last_size_ += bytes.size();
    written_bytes_ += static_cast<int64_t>(bytes.size());
    return static_cast<int>(bytes.size());
  }
  const size_t kept = std::exchange(last_size_, 0);
  written_bytes_ -= static_cast<int64_t>(kept);
  (void)ResponseOutput::Send({last_ + kHeader, kept});
  return ResponseOutput::Send(bytes);
}

void FCGIOutput::End(int status) {
  if (broken_ || ended_) return;
  ended_ = true;
  char* begin = last_ + kHeader;
  char* const end = PutEnd(begin + last_size_, status);
  if (last_size_ > 0) begin = PutHeader(last_, FCGI_STDOUT, last_size_) - kHeader;
  const int64_t counted = written_bytes_;
  (void)ResponseOutput::Send({begin, static_cast<size_t>(end - begin)});
  written_bytes_ = counted;
}

// A record has as much content as is there to be sent, so that only one that nobody takes to its
// end is left by halves. At the end, what is sent are records already.
int FCGIOutput::SendSome(std::string_view bytes, int wait_ms) {
  if (wait_ms > 0) {
    pollfd output{records_.ipcFd, POLLOUT, 0};
    const int ready = poll(&output, 1, wait_ms);
    if (ready == 0 || (ready < 0 && errno == EINTR)) return 0;
  }
  if (ended_) content_left_ = bytes.size();
  if (content_left_ == 0) {
    content_left_ = std::min(bytes.size(), kLongestContent);
    header_left_ = kHeader;
    PutHeader(header_, FCGI_STDOUT, content_left_);
  }
  iovec parts[] = {{header_ + kHeader - header_left_, header_left_},
                   {const_cast<char*>(bytes.data()), std::min(bytes.size(), content_left_)}};
  msghdr message = {};
  message.msg_iov = parts;
  message.msg_iovlen = std::size(parts);
  const ssize_t sent = sendmsg(records_.ipcFd, &message, MSG_DONTWAIT | MSG_NOSIGNAL);
  if (sent < 0) return errno == EAGAIN || errno == EINTR ? 0 : -1;
  const size_t of_header = std::min(static_cast<size_t>(sent), header_left_);
  const size_t of_content = static_cast<size_t>(sent) - of_header;
  header_left_ -= of_header;
  content_left_ -= of_content;
  return static_cast<int>(of_content);
}

// Returns the place behind it.
char* FCGIOutput::PutHeader(char* place, int type, size_t length) const {
  const auto id = static_cast<unsigned>(records_.requestId);
  const unsigned bytes[kHeader] = {FCGI_VERSION_1,
                                   static_cast<unsigned>(type),
                                   id >> 8,
                                   id & 0xFF,
                                   static_cast<unsigned>(length >> 8),
                                   static_cast<unsigned>(length & 0xFF),
                                   0,
                                   0};
  for (const unsigned byte : bytes) *place++ = static_cast<char>(byte);
  return place;
}

// The end of the output, and of the request. Returns the place behind it.
char* FCGIOutput::PutEnd(char* place, int status) const {
  place = PutHeader(place, FCGI_STDOUT, 0);
  place = PutHeader(place, FCGI_END_REQUEST, sizeof(FCGI_EndRequestBody));
  std::memset(place, 0, sizeof(FCGI_EndRequestBody));
  place[3] = static_cast<char>(status);
  return place + sizeof(FCGI_EndRequestBody);
}

// The head of a record of output; at the end, what ends the request.
size_t FCGIOutput::Frame(size_t length, char* frame) {
  char* const end = length > 0 ? PutHeader(frame, FCGI_STDOUT, length) : PutEnd(frame, 0);
  return static_cast<size_t>(end - frame);
}

FCGIEnds::FCGIEnds(Process& process, FCGX_Request& records,
                   const volatile std::sig_atomic_t& hurried, char** environment)
    : fcgi_request(process, records, hurried, environment),
      fcgi_output(records, hurried, kOutputBuffer) {}

}  // namespace vexa
