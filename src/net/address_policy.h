// Where other machines are: the server that a page names, numeric addresses, and the rule which of
// these a call may reach. The rule is about the address that is really connected to, so that
// neither a name nor a redirect nor an odd spelling of an address leads into the local network.

#ifndef VEXA_NET_ADDRESS_POLICY_H_
#define VEXA_NET_ADDRESS_POLICY_H_

#include <sys/socket.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

#include "core/string.h"

namespace vexa {

// A server as a page names it.
struct ServerName {
  String host;   // a name, or a numeric address without brackets
  int port = 0;  // 1 to 65535; 0: none was named
  bool numeric = false;
  [[nodiscard]] bool ipv6() const { return numeric && host.contains(':'); }
};

// Reads `host` or `host:port`; an IPv6 address stands in brackets. Nothing when it is neither.
[[nodiscard]] std::optional<ServerName> ReadServerName(std::string_view text);

// An IPv4 address in the first four bytes, or an IPv6 address; an IPv4 address written as an IPv6
// one (::ffff:a.b.c.d) is the former.
struct NumericAddress {
  std::array<uint8_t, 16> bytes{};
  int length = 4;  // 4 or 16
  [[nodiscard]] String Text() const;
};

// Without brackets.
[[nodiscard]] std::optional<NumericAddress> ReadNumericAddress(std::string_view text);
[[nodiscard]] std::optional<NumericAddress> NumericAddressOf(const sockaddr& address);

// Whether the address belongs to this machine, a local network, or nobody.
[[nodiscard]] bool IsLocalAddress(const NumericAddress& address);
// Whether a list of exceptions between commas (host names, addresses, networks such as 10.1.0.0/16,
// or "all") holds the host as a page wrote it, or the address.
[[nodiscard]] bool IsListed(std::string_view list, std::string_view host,
                            const NumericAddress& address);

}  // namespace vexa

#endif  // VEXA_NET_ADDRESS_POLICY_H_
