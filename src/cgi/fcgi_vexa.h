// FCGIVexa: the host of a request that a web server sends as records of FastCGI. The request is
// what stands in the records and nothing else: the worker's own environment and arguments are no
// part of it. The answer goes back as records of the same connection.

#ifndef VEXA_CGI_FCGI_VEXA_H_
#define VEXA_CGI_FCGI_VEXA_H_

#include <fcgiapp.h>

#include <string_view>

#include "host/host.h"
#include "host/process.h"
#include "request/answer.h"
#include "request/request.h"
#include "tags/tag_table.h"

namespace vexa {

// Whether the server has sent the whole request and all of it was read, so that the connection can
// be closed without a word. It does not wait.
[[nodiscard]] bool WasReadWhole(FCGX_Request& records);

class FCGIRequest final : public Request {
 public:
  // `records` and `environment` are borrowed; the parameters have been read.
  FCGIRequest(FCGX_Request& records, char** environment)
      : Request(environment, {}), records_(records) {}
  [[nodiscard]] int ReadBody(char* buffer, int count, int wait_ms) override;

 private:
  [[nodiscard]] int ReadByte();

  FCGX_Request& records_;
  bool reads_at_once_ = false;  // of its connection
};

class FCGIOutput final : public ResponseOutput {
 public:
  // `records` is borrowed; `size` is the buffer's size in bytes.
  FCGIOutput(FCGX_Request& records, int size) : ResponseOutput(size), records_(records) {}
  ~FCGIOutput() override { Finish(); }

  // What is written last leaves together with the record that ends the request.
  void Finish() override;
  [[nodiscard]] bool AwaitReader(int wait_ms) override;
  [[nodiscard]] int descriptor() const override { return records_.ipcFd; }
  [[nodiscard]] size_t Frame(size_t length, char* frame) override;

 protected:
  int Send(const char* text, int length) override;

 private:
  FCGX_Request& records_;
  bool finishing_ = false;
};

// The ends of the request, which outlive the host.
struct FCGIEnds {
  FCGIEnds(FCGX_Request& records, char** environment);
  FCGIRequest fcgi_request;
  FCGIOutput fcgi_output;
};

class FCGIVexa final : private FCGIEnds, public Host {
 public:
  // All are borrowed; `environment` is what the server sent of the request.
  FCGIVexa(Process& process, FCGX_Request& records, char** environment)
      : FCGIEnds(records, environment), Host(process, kVexaTags, fcgi_request, fcgi_output) {}
};

}  // namespace vexa

#endif  // VEXA_CGI_FCGI_VEXA_H_
