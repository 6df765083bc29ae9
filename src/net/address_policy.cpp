// Reading addresses, and the tables of networks that are nobody else's.

#include "net/address_policy.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <cstring>
#include <span>

#include "core/late_function.h"
#include "core/number.h"
#include "core/text.h"
#include "net/network_errors.h"

namespace vexa {

namespace {

struct Network {
  std::array<uint8_t, 16> bytes;
  int bits;
};

constexpr Network kLocal4[] = {
    {{0}, 8},        {{10}, 8},         {{100, 64}, 10},  {{127}, 8},      {{169, 254}, 16},
    {{172, 16}, 12}, {{192, 0, 0}, 24}, {{192, 168}, 16}, {{198, 18}, 15}, {{224}, 3},
};
constexpr Network kLocal6[] = {
    {{}, 128},                                                // ::
    {{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}, 128},  // ::1
    {{0, 0x64, 0xFF, 0x9B, 0, 1}, 48},                        // 64:ff9b:1::
    {{0xFC}, 7},
    {{0xFE, 0x80}, 9},
    {{0xFF}, 8},
};

// Networks whose addresses hold an IPv4 address, and the byte where it begins.
struct Embedding {
  Network network;
  size_t place;
};
constexpr Network kMapped = {{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF}, 96};
constexpr Embedding kEmbeddings[] = {
    {{{}, 96}, 12},
    {kMapped, 12},
    {{{0, 0x64, 0xFF, 0x9B}, 96}, 12},
    {{{0x20, 0x02}, 16}, 2},
};

// As inet_pton.
int ReadAddress(int family, const char* text, void* address) {
  return LateFunction<"inet_pton", decltype(::inet_pton)>()(family, text, address);
}

bool IsIn(const std::array<uint8_t, 16>& address, const Network& network) {
  int bits = network.bits;
  for (size_t i = 0; bits > 0; ++i, bits -= 8) {
    const int mask = bits >= 8 ? 0xFF : 0xFF << (8 - bits) & 0xFF;
    if (((address[i] ^ network.bytes[i]) & mask) != 0) return false;
  }
  return true;
}

bool IsInAny(const std::array<uint8_t, 16>& address, std::span<const Network> networks) {
  return std::ranges::any_of(networks, [&](const Network& n) { return IsIn(address, n); });
}

NumericAddress FromBytes(const void* bytes, int length) {
  NumericAddress address;
  address.length = length;
  std::memcpy(address.bytes.data(), bytes, static_cast<size_t>(length));
  if (length == 16 && IsIn(address.bytes, kMapped)) {
    return FromBytes(address.bytes.data() + 12, 4);
  }
  return address;
}

std::optional<int> ReadUpTo(std::string_view digits, int most) {
  const bool number = !digits.empty() && digits.size() <= 5 && std::ranges::all_of(digits, IsDigit);
  const int value = number ? ReadInteger(digits) : -1;
  return value < 0 || value > most ? std::nullopt : std::optional(value);
}

bool IsHostName(std::string_view text) {
  const auto is_plain = [](char c) {
    return IsAlpha(c) || IsDigit(c) || c == '.' || c == '-' || c == '_';
  };
  return !text.empty() && (IsAlpha(text[0]) || IsDigit(text[0])) &&
         std::ranges::all_of(text, is_plain);
}

// Whether a line of the list such as "10.1.0.0/16", or without "/", holds the address.
bool HoldsAddress(std::string_view entry, const NumericAddress& address) {
  const size_t slash = std::min(entry.find('/'), entry.size());
  std::string_view base = entry.substr(0, slash);
  if (base.starts_with('[') && base.ends_with(']')) base = base.substr(1, base.size() - 2);
  const auto network = ReadNumericAddress(base);
  if (!network || network->length != address.length) return false;
  const int most = address.length * 8;
  const auto bits = slash == entry.size() ? most : ReadUpTo(entry.substr(slash + 1), most);
  return bits && IsIn(address.bytes, {network->bytes, *bits});
}

}  // namespace

std::optional<ServerName> ReadServerName(std::string_view text) {
  text = Trimmed(text);
  ServerName server;
  std::string_view rest;
  if (text.starts_with('[')) {
    const size_t end = text.find(']');
    if (end == std::string_view::npos) return {};
    server.host = text.substr(1, end - 1);
    server.numeric = true;
    in6_addr address;
    if (server.host.contains('\0') || ReadAddress(AF_INET6, server.host.c_str(), &address) != 1) {
      return {};
    }
    rest = text.substr(end + 1);
  } else {
    const size_t colon = std::min(text.find(':'), text.size());
    server.host = text.substr(0, colon);
    if (!IsHostName(server.host)) return {};
    server.numeric = ReadNumericAddress(server.host).has_value();
    rest = text.substr(colon);
  }
  if (rest.empty()) return server;
  const auto port = rest[0] == ':' ? ReadUpTo(rest.substr(1), 65535) : std::nullopt;
  if (!port || *port == 0) return {};
  server.port = *port;
  return server;
}

String NumericAddress::Text() const {
  char text[INET6_ADDRSTRLEN];
  LateFunction<"inet_ntop", decltype(::inet_ntop)>()(length == 4 ? AF_INET : AF_INET6, bytes.data(),
                                                     text, sizeof text);
  return text;
}

std::optional<NumericAddress> ReadNumericAddress(std::string_view text) {
  const String address(text);
  std::array<uint8_t, 16> bytes;
  if (address.contains('\0')) return {};
  if (ReadAddress(AF_INET, address.c_str(), bytes.data()) == 1) return FromBytes(bytes.data(), 4);
  if (ReadAddress(AF_INET6, address.c_str(), bytes.data()) == 1) return FromBytes(bytes.data(), 16);
  return {};
}

std::optional<NumericAddress> NumericAddressOf(const sockaddr& address) {
  if (address.sa_family == AF_INET) {
    return FromBytes(&reinterpret_cast<const sockaddr_in&>(address).sin_addr, 4);
  }
  if (address.sa_family == AF_INET6) {
    return FromBytes(&reinterpret_cast<const sockaddr_in6&>(address).sin6_addr, 16);
  }
  return {};
}

bool IsLocalAddress(const NumericAddress& address) {
  if (address.length == 4) return IsInAny(address.bytes, kLocal4);
  if (IsInAny(address.bytes, kLocal6)) return true;
  return std::ranges::any_of(kEmbeddings, [&](const Embedding& embedding) {
    return IsIn(address.bytes, embedding.network) &&
           IsLocalAddress(FromBytes(address.bytes.data() + embedding.place, 4));
  });
}

bool IsListed(std::string_view list, std::string_view host, const NumericAddress& address) {
  for (PieceReader pieces(list, ","); pieces.Next();) {
    const std::string_view entry = Stripped(pieces.piece());
    if (entry.empty()) continue;
    if (EqualsIgnoreCase(entry, "all") || EqualsIgnoreCase(entry, host) ||
        HoldsAddress(entry, address)) {
      return true;
    }
  }
  return false;
}

}  // namespace vexa
