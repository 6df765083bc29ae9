// FCGIVexa: the host of a request that a web server sends as records of FastCGI. The request is
// what stands in the records and nothing else: the worker's own environment and arguments are no
// part of it. The answer goes back as records of the same connection.

#ifndef VEXA_CGI_FCGI_VEXA_H_
#define VEXA_CGI_FCGI_VEXA_H_

#include <fcgiapp.h>

#include <csignal>
#include <cstddef>
#include <string_view>

#include "host/host.h"
#include "host/process.h"
#include "request/answer.h"
#include "request/request.h"
#include "tags/tag_table.h"

namespace vexa {

// Closes the connection of a request. When something of the request was not read, that would cost
// the server the answer, which it has a while to read first, unless `ending` is 1.
void CloseConnection(FCGX_Request& records, const volatile std::sig_atomic_t& ending);

class FCGIRequest final : public Request {
 public:
  // All are borrowed; the parameters have been read. When `hurried` is 1, a request whose sender
  // has stopped is given up.
  FCGIRequest(Process& process, FCGX_Request& records, const volatile std::sig_atomic_t& hurried,
              char** environment)
      : Request(environment, {}), process_(process), records_(records), hurried_(hurried) {}
  [[nodiscard]] int ReadBody(char* buffer, int count, int wait_ms) override;

 private:
  [[nodiscard]] int ReadByte();

  Process& process_;
  FCGX_Request& records_;
  const volatile std::sig_atomic_t& hurried_;
  bool reads_at_once_ = false;  // of its connection
};

// Writes records of output. The library's own writing would wait for ever for a reader who has
// stopped, so it is left unused.
class FCGIOutput final : public ResponseOutput {
 public:
  // Both are borrowed; `size` is the buffer's size in bytes. `hurried` is 1 when a page whose
  // reader takes nothing is to end.
  FCGIOutput(const FCGX_Request& records, const volatile std::sig_atomic_t& hurried, int size)
      : ResponseOutput(size), records_(records), hurried_(hurried) {}
  ~FCGIOutput() override { Finish(); }

  // What is written last leaves together with the record that ends the request.
  void Finish() override;
  void End(int status) override;
  // -1 when nothing may be sent any more.
  [[nodiscard]] int descriptor() const override { return broken_ ? -1 : records_.ipcFd; }
  [[nodiscard]] size_t Frame(size_t length, char* frame) override;

 protected:
  int Send(std::string_view bytes) override;
  [[nodiscard]] int SendSome(std::string_view bytes, int wait_ms) override;
  [[nodiscard]] bool hurried() const override { return hurried_ != 0; }

 private:
  static constexpr size_t kLongestLast = 9000;  // a full buffer of the usual size, and a head
  static constexpr size_t kHeader = 8;          // of a record

  char* PutHeader(char* place, int type, size_t length) const;
  char* PutEnd(char* place, int status) const;

  const FCGX_Request& records_;
  const volatile std::sig_atomic_t& hurried_;
  char header_[kHeader];     // of the record that is being sent
  size_t header_left_ = 0;   // bytes of it that were not sent yet
  size_t content_left_ = 0;  // of the record
  bool finishing_ = false;
  bool ended_ = false;
  size_t last_size_ = 0;
  char last_[kHeader + kLongestLast + kLongestFrame];  // what is written last, as a record
};

// The ends of the request, which outlive the host.
struct FCGIEnds {
  FCGIEnds(Process& process, FCGX_Request& records, const volatile std::sig_atomic_t& hurried,
           char** environment);
  FCGIRequest fcgi_request;
  FCGIOutput fcgi_output;
};

class FCGIVexa final : private FCGIEnds, public Host {
 public:
  // All are borrowed; `environment` is what the server sent of the request, `hurried` as above.
  FCGIVexa(Process& process, FCGX_Request& records, const volatile std::sig_atomic_t& hurried,
           char** environment)
      : FCGIEnds(process, records, hurried, environment),
        Host(process, kVexaTags, fcgi_request, fcgi_output) {}
};

}  // namespace vexa

#endif  // VEXA_CGI_FCGI_VEXA_H_
