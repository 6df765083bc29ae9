// Taking addresses apart.

#include "net/call_address.h"

#include <algorithm>

#include "core/text.h"
#include "net/network_errors.h"

namespace vexa {

namespace {

bool TakePrefix(std::string_view& text, std::string_view prefix) {
  if (!EqualsIgnoreCase(text.substr(0, prefix.size()), prefix)) return false;
  text.remove_prefix(prefix.size());
  return true;
}

bool IsBlankOrControl(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte <= ' ' || byte == 0x7F;
}

}  // namespace

bool CallAddress::Read(std::string_view text, String& reason) {
  std::string_view rest = text;
  encrypted_ = TakePrefix(rest, "https://");
  if (!encrypted_ && !TakePrefix(rest, "http://")) {
    reason = "Only http and https addresses can be called";
    return false;
  }
  if (std::ranges::any_of(rest, IsBlankOrControl)) {
    reason = "ACTION must not contain white space";
    return false;
  }
  const size_t end = std::min(rest.find_first_of("/?#"), rest.size());
  authority_ = rest.substr(0, end);
  if (authority_.contains('@')) {
    reason = "ACTION must not contain a user name";
    return false;
  }
  const auto server = ReadServerName(authority_);
  if (!server) {
    reason = Quoted(authority_) + " is not a host";
    return false;
  }
  server_ = *server;
  if (server_.port == 0) server_.port = encrypted_ ? 443 : 80;
  rest = rest.substr(end, rest.find('#', end) - end);
  if (rest.starts_with('/')) rest.remove_prefix(1);
  target_.clear();
  for (const char c : rest) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x80) {
      target_.Accumulate(c);
    } else {
      target_.Append(
          String::Concat({"%", kDigits.substr(byte >> 4, 1), kDigits.substr(byte & 15, 1)}));
    }
  }
  return true;
}

void CallAddress::AddToQuery(std::string_view fields) {
  if (fields.empty()) return;
  const std::string_view target = target_;
  if (target.find('?') == std::string_view::npos) {
    target_.cat('?');
  } else if (!target.ends_with('?') && !target.ends_with('&')) {
    target_.cat('&');
  }
  target_.Append(fields);
}

String CallAddress::Text() const {
  return String::Concat({scheme(), "://", authority_, "/", target_});
}

bool CallAddress::HasOriginOf(const CallAddress& other) const {
  return encrypted_ == other.encrypted_ && server_.port == other.server_.port &&
         EqualsIgnoreCase(server_.host, other.server_.host);
}

String ShownAddress(std::string_view text) {
  CallAddress address;
  String ignored;
  // Where it cannot be told what is a user name, all is left out that may be one.
  const size_t sign = address.Read(text, ignored) ? std::string_view::npos : text.rfind('@');
  const size_t slashes = text.find("://");
  String shown;
  if (sign != std::string_view::npos) {
    if (slashes < sign) shown = text.substr(0, slashes + 3);
    text.remove_prefix(sign + 1);
  }
  shown.Append(text.substr(0, text.find_first_of("?#")));
  return Shown(shown);
}

}  // namespace vexa
