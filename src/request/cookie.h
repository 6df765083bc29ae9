// Cookies: reading those that a browser sent, and writing those that it is to keep.

#ifndef VEXA_REQUEST_COOKIE_H_
#define VEXA_REQUEST_COOKIE_H_

#include <ctime>
#include <string_view>

#include "core/string.h"

namespace vexa {

// The identifying cookie, by which a returning visitor is known.
inline constexpr char kCookieName[] = "zdxcallerid";
inline constexpr time_t kCookieLifetime = 31536000;  // 365 days in seconds

// The visitor's id among the cookies a browser sent; empty when there is none. A view of `cookies`.
[[nodiscard]] std::string_view FindCallerID(std::string_view cookies);

// The value of the Set-Cookie header that makes a browser keep `caller_id` for another year.
[[nodiscard]] String IdentifyingCookie(std::string_view caller_id, time_t now);

// The value of the first cookie of exactly that name among those a browser sent, as it was sent;
// empty when there is none. A view of `cookies`.
[[nodiscard]] std::string_view FindCookie(std::string_view cookies, std::string_view name);

// A cookie that a page sets.
struct PageCookie {
  String header;  // the value of its Set-Cookie header
  String place;   // its name, path and domain: a later one with the same takes its place
};

// Makes it of a name, a value and options as pages write them (docs/answers.md). `secure`: the page
// itself came over HTTPS. Returns what is wrong as a message; empty when nothing is.
[[nodiscard]] String MakePageCookie(std::string_view name, std::string_view value,
                                    std::string_view options, bool secure, PageCookie& cookie);

}  // namespace vexa

#endif  // VEXA_REQUEST_COOKIE_H_
