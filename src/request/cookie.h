// The identifying cookie: how a returning visitor is known.

#ifndef VEXA_REQUEST_COOKIE_H_
#define VEXA_REQUEST_COOKIE_H_

#include <ctime>
#include <string_view>

#include "core/string.h"

namespace vexa {

inline constexpr char kCookieName[] = "zdxcallerid";
inline constexpr time_t kCookieLifetime = 31536000;  // 365 days in seconds

// The visitor's id among the cookies a browser sent; empty when there is none. A view of `cookies`.
[[nodiscard]] std::string_view FindCallerID(std::string_view cookies);

// The value of the Set-Cookie header that makes a browser keep `caller_id` for another year.
[[nodiscard]] String IdentifyingCookie(std::string_view caller_id, time_t now);

}  // namespace vexa

#endif  // VEXA_REQUEST_COOKIE_H_
