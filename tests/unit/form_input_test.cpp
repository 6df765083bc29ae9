// Headers below the level of pages: their parameters, and how long a cookie lasts.

#include <gtest/gtest.h>

#include <utility>

#include "request/cookie.h"
#include "request/part_header.h"

namespace vexa {

namespace {

TEST(PartHeaderTest, ParametersOfHeaders) {
  // What the parameter "b" of each header is; null: there is none.
  const std::pair<const char*, const char*> kCases[] = {
      {"t;B = x y ; c=d", "x y"},
      {"t; a=\"; b=no\"; b=yes", "yes"},
      {"t; a=\"\\\"; b=no\"; b=yes", "yes"},
      {"t; b=\"C:\\d\\\"q\\\"\"", "C:\\d\"q\""},
      {"t; b=\"open", "open"},
      {"t; b=\"", ""},
      {"t; b=", ""},
      {"t; b", nullptr},
      {"t; ab=x; c", nullptr},
      {"b=x", nullptr},
      {";;;=;b=1", "1"},
  };
  for (const auto& [header, expected] : kCases) {
    String value;
    EXPECT_EQ(expected != nullptr, HeaderParameter(header, "b", value)) << header;
    EXPECT_EQ(value, expected == nullptr ? "" : expected) << header;
  }
}

TEST(CookieTest, TheCookieLastsAYear) {
  EXPECT_EQ(IdentifyingCookie("id", 951782400),  // 29 February 2000
            "zdxcallerid=id; expires=Wed, 28-Feb-2001 00:00:00 GMT; path=/");
}

}  // namespace

}  // namespace vexa
