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

class FCGIRequest final : public Request {
 public:
  // `records` is borrowed; its parameters have been read.
  explicit FCGIRequest(FCGX_Request& records) : Request(records.envp, {}), records_(records) {}
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

 protected:
  int Send(const char* text, int length) override;

 private:
  FCGX_Request& records_;
  bool finishing_ = false;
};

// The ends of the request, which outlive the host.
struct FCGIEnds {
  explicit FCGIEnds(FCGX_Request& records);
  FCGIRequest fcgi_request;
  FCGIOutput fcgi_output;
};

class FCGIVexa final : private FCGIEnds, public Host {
 public:
  // Both are borrowed.
  FCGIVexa(Process& process, FCGX_Request& records)
      : FCGIEnds(records), Host(process, kVexaTags, fcgi_request, fcgi_output) {}
};

}  // namespace vexa

#endif  // VEXA_CGI_FCGI_VEXA_H_
