// The configuration below the level of pages: what every setting of the table means in a section.

#include "config/unix_config.h"
#include "fake_receiver.h"
#include "file_fixture.h"

namespace vexa {

namespace {

class ConfigurationTest : public FileFixture {
 protected:
  // Every setting of the file that holds `text`, as a request for that host reads it.
  std::string Read(const std::string& text, std::string_view host) {
    FakeReceiver receiver(files, host);
    UNIXConfig config(receiver, ServerSafeMode::Off, "/");
    EXPECT_EQ(0, config.ReadConfiguration(Make("vexa.conf", text))) << text;
    std::string all;
    for (size_t i = 0; !Config::KeyOfSetting(i).empty(); ++i) {
      all.append(Config::KeyOfSetting(i)).append("=").append(config.ValueOfSetting(i).view()) +=
          "\n";
    }
    return all;
  }
};

TEST_F(ConfigurationTest, EverySettingOfASectionIsThatHostsAlone) {
  const std::string defaults = Read("", "other");
  size_t count = 0;
  for (; !Config::KeyOfSetting(count).empty(); ++count) {
    const std::string key(Config::KeyOfSetting(count));
    const String preset = Config().ValueOfSetting(count);
    const auto suits = [&](const char* text) { return Config().CheckConfigValue(key, text) == 0; };
    std::string line, other = key + " = " + (suits("") ? "" : preset.c_str()) + "\n";
    for (const char* text : {"7", "0", "1", "entities", "brief"}) {
      if (line.empty() && suits(text) && preset != text) line = key + " = " + text + "\n";
    }
    const std::string section = "<VIRTUALHOST NAME=own>\n" + line + "</VIRTUALHOST>\n";
    if (key == "virtualhostvariable") continue;
    EXPECT_NE(defaults, Read(line, "own"));
    EXPECT_EQ(Read(line, "own"), Read(other + section + other, "own"));
    EXPECT_EQ(Read(other, "other"), Read(other + section, "other"));
    EXPECT_EQ(defaults, Read(section, "other"));
  }
  EXPECT_GT(count, 40u);
}

TEST_F(ConfigurationTest, WhatPagesNeedNotSayOfServersIsForSitesOfOneOwner) {
  FakeReceiver receiver(files, "host");
  for (const auto mode : {ServerSafeMode::Off, ServerSafeMode::On}) {
    UNIXConfig config(receiver, mode, "/");
    EXPECT_EQ(0, config.SetConfigValue("PostgreSQL", "password=x"));
    EXPECT_EQ(mode == ServerSafeMode::On, config.settings().postgresql.empty());
  }
}

}  // namespace

}  // namespace vexa
