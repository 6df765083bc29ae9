// Cookies, as browsers send them and as they are told to keep them.

#include "request/cookie.h"

#include <algorithm>

#include "core/calendar.h"
#include "core/encoding.h"
#include "core/text.h"
#include "request/header_text.h"

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
  const String expires = HTTPDate(now + kCookieLifetime, '-');
  return String::Concat({kCookieName, "=", caller_id, "; expires=", expires, "; path=/"});
}

std::string_view FindCookie(std::string_view cookies, std::string_view name) {
  while (!cookies.empty()) {
    const std::string_view pair = Stripped(cookies.substr(0, cookies.find(';')));
    const size_t equals = pair.find('=');
    if (equals != pair.npos && pair.substr(0, equals) == name) return pair.substr(equals + 1);
    cookies.remove_prefix(std::min(cookies.find(';'), cookies.size() - 1) + 1);
  }
  return {};
}

namespace {

constexpr size_t kLargestCookie = 4096;  // name and value as sent: what browsers keep

bool IsCookieName(std::string_view name) {
  return !name.empty() && std::all_of(name.begin(), name.end(), [](char c) {
    return IsAlpha(c) || IsDigit(c) || c == '-' || c == '_' || c == '.';
  });
}

// Up to ten digits: any time that a browser takes.
bool IsSeconds(std::string_view text) {
  return !text.empty() && text.size() <= 10 && std::all_of(text.begin(), text.end(), IsDigit);
}

bool IsCookiePath(std::string_view text) {
  return text.starts_with('/') &&
         std::none_of(text.begin(), text.end(), [](char c) { return IsControl(c) || c == ';'; });
}

bool IsDomain(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
    return IsAlpha(c) || IsDigit(c) || c == '-' || c == '.';
  });
}

// What the options of a cookie say.
struct CookieOptions {
  std::string_view path = "/";
  std::string_view domain;
  std::string_view seconds;
  std::string_view same_site = "Lax";
  bool secure = false;
  bool for_scripts = false;

  // False when there is no such option.
  [[nodiscard]] bool Take(std::string_view option) {
    const size_t equals = option.find('=');
    const std::string_view word = Stripped(option.substr(0, equals));
    if (equals != option.npos) return TakeValue(word, Stripped(option.substr(equals + 1)));
    if (EqualsIgnoreCase(word, "secure")) {
      secure = true;
    } else if (EqualsIgnoreCase(word, "script")) {
      for_scripts = true;
    } else if (EqualsIgnoreCase(word, "strict")) {
      same_site = "Strict";
    } else if (EqualsIgnoreCase(word, "crosssite")) {
      same_site = "None";
      secure = true;
    } else {
      return false;
    }
    return true;
  }

 private:
  bool TakeValue(std::string_view word, std::string_view value) {
    if (EqualsIgnoreCase(word, "seconds") && IsSeconds(value)) {
      seconds = value;
    } else if (EqualsIgnoreCase(word, "path") && IsCookiePath(value)) {
      path = value;
    } else if (EqualsIgnoreCase(word, "domain") && IsDomain(value)) {
      domain = value;
    } else {
      return false;
    }
    return true;
  }
};

}  // namespace

String MakePageCookie(std::string_view name, std::string_view value, std::string_view options,
                      bool secure, PageCookie& cookie) {
  if (!IsCookieName(name)) return QuotedProblem(name, " is not a cookie name");
  CookieOptions chosen;
  chosen.secure = secure;
  for (PieceReader pieces(options, ","); pieces.Next();) {
    const std::string_view option = Stripped(pieces.piece());
    if (!option.empty() && !chosen.Take(option)) {
      return QuotedProblem(option, " is not an option of a cookie");
    }
  }
  const String sent = URLPart(value);
  if (name.size() + sent.size() > kLargestCookie) {
    return "The cookie is larger than 4096 bytes";
  }
  cookie.place = String::Concat({name, ";", chosen.path, ";", chosen.domain});
  cookie.header = String::Concat({name, "=", sent, "; Path=", chosen.path,
                                  chosen.for_scripts ? "" : "; HttpOnly",
                                  "; SameSite=", chosen.same_site, chosen.secure ? "; Secure" : "",
                                  chosen.seconds.empty() ? "" : "; Max-Age=", chosen.seconds,
                                  chosen.domain.empty() ? "" : "; Domain=", chosen.domain});
  return {};
}

}  // namespace vexa
