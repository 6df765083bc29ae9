// Host names and patterns.

#include "config/virtual_host.h"

#include <algorithm>

#include "core/text.h"

namespace vexa {

namespace {

// What the parts of a name are made of.
constexpr ByteSet kNameBytes("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_");

// `host` without ":" and digits at its end, when what precedes them is a whole host: an address in
// brackets, or a name. An address without brackets has no port.
std::string_view WithoutPort(std::string_view host) {
  const size_t colon = host.rfind(':');
  if (colon == host.npos) return host;
  const std::string_view before = host.substr(0, colon);
  const std::string_view port = host.substr(colon + 1);
  if (!std::all_of(port.begin(), port.end(), IsDigit)) return host;
  return before.ends_with(']') || before.find(':') == before.npos ? before : host;
}

}  // namespace

std::string_view HostOfRequest(std::string_view value) {
  std::string_view host = WithoutPort(value);
  if (host.ends_with('.')) host.remove_suffix(1);
  return host;
}

bool IsHostName(std::string_view name) {
  if (name == "*") return true;
  const bool address = name.size() > 1 && name.front() == '[' && name.back() == ']';
  if (address) {
    name = name.substr(1, name.size() - 2);
  } else if (name.starts_with("*.")) {
    name.remove_prefix(2);
  }
  bool empty_part = true;
  for (const char c : name) {
    const bool point = c == '.';
    if (point ? empty_part : !kNameBytes.Has(c) && !(c == ':' && address)) return false;
    empty_part = point;
  }
  return !empty_part;
}

bool IsHostPattern(std::string_view name) { return name.starts_with('*'); }

bool HostFits(std::string_view name, std::string_view pattern) {
  if (!IsHostPattern(pattern)) return EqualsIgnoreCase(name, pattern);
  const std::string_view end = pattern.substr(1);
  if (end.empty()) return true;
  return name.size() > end.size() && EqualsIgnoreCase(name.substr(name.size() - end.size()), end);
}

}  // namespace vexa
