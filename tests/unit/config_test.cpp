// Settings by name: what a value must look like.

#include "config/config.h"

#include <gtest/gtest.h>

namespace vexa {

namespace {

TEST(ConfigTest, AnUnsuitableValueIsRefusedAndChangesNothing) {
  Config config;
  for (const char* value : {"+5", "5s", " 5", "5 ", "--5", "0x5", "5.0", "5-"}) {
    EXPECT_EQ(1, config.SetConfigValue("maxfiles", value)) << value;
  }
  EXPECT_EQ(0, config.settings().maxfiles);
  for (const char* value : {"", "2", "maybe", "yes ", "onn"}) {
    EXPECT_EQ(1, config.SetConfigValue("usecookies", value)) << value;
  }
  EXPECT_EQ(1, config.settings().usecookies);
}

TEST(ConfigTest, AnUnknownKeyIsAccepted) {
  Config config;
  EXPECT_EQ(0, config.SetConfigValue("nosuchkey", "1"));
  EXPECT_EQ(0, config.SetConfigValue("", "1"));
}

TEST(ConfigTest, NumbersSaturate) {
  Config config;
  EXPECT_EQ(0, config.SetConfigValue("nice", "-99999999999999999999999"));
  EXPECT_EQ(INT32_MIN, config.settings().nice);
}

TEST(ConfigTest, AnEmptyEntryAllowsTheEmptyExtension) {
  Config config;
  ASSERT_EQ(0, config.SetConfigValue("validextensions", ". , ..x"));
  EXPECT_TRUE(config.IsValidExtension(""));
  EXPECT_TRUE(config.IsValidExtension(".X"));
  EXPECT_FALSE(config.IsValidExtension("x"));
}

}  // namespace

}  // namespace vexa
