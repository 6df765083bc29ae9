// The identifying cookie: reading and writing it.

#include "request/cookie.h"

#include <algorithm>

#include "core/calendar.h"
#include "core/text.h"

namespace vexa {

namespace {

// Servers pass no line ends on. An id with control characters could only break the header lines.
bool IsUsable(std::string_view id) {
  return std::none_of(id.begin(), id.end(), [](char c) { return c >= '\0' && c < ' '; });
}

}  // namespace

std::string_view FindCallerID(std::string_view cookies) {
  while (!cookies.empty()) {
    std::string_view token = cookies.substr(0, cookies.find_first_of(" ;"));
    cookies.remove_prefix(std::min(token.size() + 1, cookies.size()));
    size_t equals = token.find('=');
    if (!EqualsIgnoreCase(token.substr(0, equals), kCookieName)) continue;
    std::string_view id = equals == token.npos ? "" : token.substr(equals + 1);
    return IsUsable(id) ? id : std::string_view();
  }
  return {};
}

String IdentifyingCookie(std::string_view caller_id, time_t now) {
  const tm fields = CalendarTime(now + kCookieLifetime);
  char date[256];
  size_t length = strftime(date, sizeof date, "%a, %d-%b-%Y %H:%M:%S GMT", &fields);
  String expires = String::Concat({"expires=", std::string_view(date, length)});
  expires.StripWhitespace();
  return String::Concat({kCookieName, "=", caller_id, "; ", expires, "; path=/"});
}

}  // namespace vexa
