// Settings by name: every key reaches its own field, and what a value must look like.

#include "cgi/config.h"

#include <gtest/gtest.h>

#include <variant>

namespace {

using Field = std::variant<String Settings::*, int Settings::*>;

struct Key {
  const char* key;
  Field field;
};

const Key kKeys[] = {
    {"quorbelroot", &Settings::quorbelroot},
    {"vexaroot", &Settings::quorbelroot},
    {"teskroot", &Settings::quorbelroot},
    {"userdir", &Settings::userdir},
    {"usersitevars", &Settings::usersitevars},
    {"authfile", &Settings::authfile},
    {"authuserdir", &Settings::authuserdir},
    {"stdmodedatadir", &Settings::stdmodedatadir},
    {"quorbeldefault", &Settings::quorbeldefault},
    {"vexadefault", &Settings::quorbeldefault},
    {"teskdefault", &Settings::quorbeldefault},
    {"sitevars", &Settings::sitevars},
    {"commercedir", &Settings::commercedir},
    {"path", &Settings::path},
    {"tempdir", &Settings::tempdir},
    {"loglevel", &Settings::loglevel},
    {"securityoptions", &Settings::securityoptions},
    {"workdir", &Settings::workdir},
    {"logfile", &Settings::logfile},
    {"globaltimeout", &Settings::globaltimeout},
    {"mailtimeout", &Settings::mailtimeout},
    {"calltimeout", &Settings::calltimeout},
    {"serveradmin", &Settings::serveradmin},
    {"usecookies", &Settings::usecookies},
    {"nice", &Settings::nice},
    {"maxcpu", &Settings::maxcpu},
    {"maxdata", &Settings::maxdata},
    {"maxstack", &Settings::maxstack},
    {"maxfunctiondepth", &Settings::maxfunctiondepth},
    {"importbuffersize", &Settings::importbuffersize},
    {"templatebuffersize", &Settings::templatebuffersize},
    {"callbuffersize", &Settings::callbuffersize},
    {"smtpbuffersize", &Settings::smtpbuffersize},
    {"contentbuffersize", &Settings::contentbuffersize},
    {"outputbuffersize", &Settings::outputbuffersize},
    {"virtualhostvariable", &Settings::virtualhostvariable},
    {"dnslookup", &Settings::dnslookup},
    {"redirectonly", &Settings::redirectonly},
    {"serveruserid", &Settings::serveruserid},
    {"validextensions", &Settings::validextensions},
    {"packages", &Settings::packages},
    {"maxfiles", &Settings::maxfiles},
    {"lockexpiration", &Settings::lockexpiration},
    {"lockhostname", &Settings::lockhostname},
};

bool Equals(const Settings& a, const Settings& b, const Field& field) {
  return std::visit([&](auto member) { return a.*member == b.*member; }, field);
}

bool IsBoolean(std::string_view key) {
  return key == "usecookies" || key == "dnslookup" || key == "redirectonly";
}

TEST(ConfigTest, EveryKeySetsItsOwnFieldAndNoOther) {
  const Settings defaults;
  for (const Key& key : kKeys) {
    Config config;
    String upper(key.key);
    upper.upcase();
    bool was_on = std::string_view(key.key) != "redirectonly";
    String value = IsBoolean(key.key) ? (was_on ? "0" : "1") : "4711";
    ASSERT_EQ(0, config.SetConfigValue(upper, value)) << key.key;
    for (const Key& other : kKeys) {
      EXPECT_EQ(other.field != key.field, Equals(config.settings(), defaults, other.field))
          << key.key << " and " << other.key;
    }
  }
}

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
