// HttpCall: one call of an HTTP server with all its redirects, and the answer that came of it.
//
// Redirects are followed here, step by step, so that every rule holds at each of them. From the
// first step to another scheme, host or port on, the login and the headers of the page stay behind.
// The answer is fetched whole; nothing of one that is too large, broken or late is handed out.

#ifndef VEXA_NET_HTTP_CALL_H_
#define VEXA_NET_HTTP_CALL_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "core/string.h"
#include "net/call_address.h"
#include "net/named_value.h"
#include "net/network_manager.h"
#include "net/request_body.h"
#include "net/transfer.h"
#include "vexa.h"

namespace vexa {

struct CallRequest {
  CallAddress address;
  String method;  // upper case
  bool has_body = false;
  String content_type;  // of the body; empty: none
  RequestBody body;
  std::vector<NamedValue> headers;
  int limit_seconds = 0;  // for all of it; 0: none
  int redirects = 0;      // followed at most
};

struct CallAnswer {
  long status = 0;  // 0: there is none
  String address;   // where it came from in the end
  std::vector<NamedValue> headers;
  String body;
  // The content type in lower case without parameters, and the charset that it names.
  [[nodiscard]] String Type() const;
  [[nodiscard]] String Charset() const;

 private:
  [[nodiscard]] std::string_view ContentType() const;
};

class HttpCall final : public NetworkTask, private TransferContent {
 public:
  explicit HttpCall(Vexa& host) : host_(host) {}

  // Makes the call, once. False with reason() set; the answer is then empty.
  [[nodiscard]] bool Fetch(CallRequest& request);
  [[nodiscard]] const String& reason() const { return reason_; }
  // Whether the request's own time was up.
  [[nodiscard]] bool interrupted() const { return interrupted_; }
  [[nodiscard]] const CallAnswer& answer() const { return answer_; }

 private:
  [[nodiscard]] bool FetchAll(CallRequest& request);
  [[nodiscard]] bool Step(CallRequest& request);
  void SetMethod(CallRequest& request);
  // Whether the answer is a redirect to be followed.
  [[nodiscard]] bool IsRedirect(const CallRequest& request, String& location) const;
  [[nodiscard]] bool Follow(CallRequest& request, const String& location);
  void TakeHeader(std::string_view line);

  [[nodiscard]] bool TakeLine(std::string_view line) override;
  [[nodiscard]] bool TakeBody(std::string_view bytes) override;
  [[nodiscard]] bool TakeCount(int64_t bytes) override;
  [[nodiscard]] int64_t GiveBody(char* buffer, size_t size) override;
  [[nodiscard]] bool GiveAgain() override;
  [[nodiscard]] bool FitsLimit(int64_t bytes);

  Vexa& host_;
  std::unique_ptr<Transfer> transfer_;
  RequestBody* body_ = nullptr;  // of the request that is under way
  CallAnswer answer_;
  size_t header_bytes_ = 0;
  bool header_ended_ = false;  // what follows is a trailer
  bool interim_ = false;       // the header being read is that of an interim answer
  bool interrupted_ = false;
  String reason_;
};

}  // namespace vexa

#endif  // VEXA_NET_HTTP_CALL_H_
