// CGIVexa: the host of a request that arrives through CGI: the request is the process environment,
// the program's arguments and standard input, the answer goes to standard output.

#ifndef VEXA_CGI_CGI_VEXA_H_
#define VEXA_CGI_CGI_VEXA_H_

#include <cstdint>
#include <string_view>

#include "host/host.h"
#include "host/process.h"
#include "request/answer.h"
#include "request/request.h"
#include "tags/tag_table.h"

namespace vexa {

class CGIRequest final : public Request {
 public:
  explicit CGIRequest(const Process& process);
  // Gives up what was not read of the body, so that a server that sends it gets its answer.
  ~CGIRequest() override;
  [[nodiscard]] int ReadBody(char* buffer, int count, int wait_ms) override;

 private:
  int64_t taken_ = 0;  // bytes of the body that were read
};

// Writes to file descriptor 1, which may be the server's too, so that it stays as blocking as it
// is.
class StandardOutput final : public ResponseOutput {
 public:
  // `size` is the buffer's size in bytes.
  explicit StandardOutput(int size) : ResponseOutput(size) {}
  ~StandardOutput() override;

 protected:
  [[nodiscard]] int SendSome(std::string_view bytes, int wait_ms) override;

 private:
  // What descriptor 1 is, which tells how to write without waiting.
  enum class Kind { Unknown, Pipe, Socket, File };

  [[nodiscard]] static Kind KindOfOutput();

  Kind kind_ = Kind::Unknown;
};

// The ends of the request, which outlive the host.
struct CGIEnds {
  explicit CGIEnds(const Process& process);
  CGIRequest cgi_request;
  StandardOutput cgi_output;
};

class CGIVexa final : private CGIEnds, public Host {
 public:
  // `process` is borrowed.
  explicit CGIVexa(Process& process)
      : CGIEnds(process), Host(process, kVexaTags, cgi_request, cgi_output) {}
};

}  // namespace vexa

#endif  // VEXA_CGI_CGI_VEXA_H_
