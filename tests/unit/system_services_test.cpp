// What the CGI host asks of the system, where a page cannot choose the surroundings.

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "host/cgi_vexa.h"
#include "request/http_status.h"

namespace vexa {

namespace {

class SystemServicesTest : public testing::Test {
 protected:
  ~SystemServicesTest() override { unsetenv("TZ"); }

  std::string ZoneIn(const char* zone) {
    setenv("TZ", zone, 1);
    CGIVexa host(0, nullptr);
    String date = host.currentdate();
    return std::string(date.view().substr(date.view().rfind(' ') + 1));
  }
};

TEST_F(SystemServicesTest, ZonesAreWrittenInWholeHours) {
  EXPECT_EQ("-0000", ZoneIn("UTC0"));
  EXPECT_EQ("-0500", ZoneIn("WEST5"));
  EXPECT_EQ("+0500", ZoneIn("EAST-5:30"));
  EXPECT_EQ("-0300", ZoneIn("WEST3:30"));
  EXPECT_EQ("+1300", ZoneIn("EAST-13"));
  // Half an hour east is less than no hour at all.
  EXPECT_EQ("+0000", ZoneIn("EAST-0:30"));
  // Daylight saving in force the whole year round.
  EXPECT_EQ("+0200", ZoneIn("STD-1DST,0/0,J365/25"));
}

TEST_F(SystemServicesTest, HeadersComeFromTheEnvironment) {
  setenv("CONTENT_TYPE", "a/b", 1);
  setenv("HTTP_X_Own_Header", "mine", 1);
  CGIVexa host(0, nullptr);
  EXPECT_EQ(host.RequestHeader("Content-Type"), "a/b");
  EXPECT_EQ(host.RequestHeader("X-Own-Header"), "mine");
  EXPECT_EQ(host.RequestHeader("X-OWN-HEADER"), "");
  EXPECT_EQ(host.RequestHeader("Content-Length"), "");
  unsetenv("CONTENT_TYPE");
  unsetenv("HTTP_X_Own_Header");
}

TEST_F(SystemServicesTest, SaltsThatCannotBeUsedGiveNothing) {
  CGIVexa host(0, nullptr);
  EXPECT_EQ(host.Crypt("key", "ab").length(), 13);
  EXPECT_EQ(host.Crypt("key", ""), "");
  EXPECT_EQ(host.Crypt("key", "*"), "");
  EXPECT_EQ(host.Crypt("key", "$9$x"), "");
}

TEST_F(SystemServicesTest, SessionIdsAreHexadecimalAndNeverTheSame) {
  CGIVexa host(0, nullptr);
  String first = host.MakeSessionID();
  EXPECT_EQ(first.length(), 32);
  EXPECT_EQ(first.view().find_first_not_of("0123456789ABCDEF"), std::string_view::npos);
  EXPECT_FALSE(first == host.MakeSessionID());
}

TEST_F(SystemServicesTest, UnknownStatusCodesHaveNoText) {
  EXPECT_EQ(HTTPResultMessage(404), "Not Found");
  EXPECT_EQ(HTTPResultMessage(506), "Variant Also Varies");
  EXPECT_EQ(HTTPResultMessage(418), "");
  EXPECT_EQ(HTTPResultMessage(0), "");
}

}  // namespace

}  // namespace vexa
