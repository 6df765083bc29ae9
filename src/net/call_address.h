// The address of a call: http or https, a server, and what follows. It carries no user, and no
// fragment.

#ifndef VEXA_NET_CALL_ADDRESS_H_
#define VEXA_NET_CALL_ADDRESS_H_

#include <string_view>

#include "core/string.h"
#include "net/address_policy.h"

namespace vexa {

class CallAddress {
 public:
  // Reads an address. False with `reason` set when it cannot be called.
  [[nodiscard]] bool Read(std::string_view text, String& reason);
  // Adds `fields`, encoded as a form's, to the query.
  void AddToQuery(std::string_view fields);

  [[nodiscard]] bool encrypted() const { return encrypted_; }
  [[nodiscard]] std::string_view scheme() const { return encrypted_ ? "https" : "http"; }
  // With the port in use.
  [[nodiscard]] const ServerName& server() const { return server_; }
  // Path and query without the first "/".
  [[nodiscard]] const String& target() const { return target_; }
  // The whole address.
  [[nodiscard]] String Text() const;
  [[nodiscard]] bool HasOriginOf(const CallAddress& other) const;

 private:
  bool encrypted_ = false;
  String authority_;  // as written
  ServerName server_;
  String target_;
};

// An address as messages and the log show it: without user, query and fragment, whatever it is.
[[nodiscard]] String ShownAddress(std::string_view text);

}  // namespace vexa

#endif  // VEXA_NET_CALL_ADDRESS_H_
