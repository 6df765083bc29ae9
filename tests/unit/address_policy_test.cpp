// Which servers a page can name, and which addresses its calls may reach.

#include "net/address_policy.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace vexa {

namespace {

template <typename Check>
void ForEachWord(const char* words, Check check) {
  std::istringstream stream(words);
  for (std::string word; stream >> word;) EXPECT_TRUE(check(word)) << word;
}

std::string Read(std::string_view text) {
  const auto server = ReadServerName(text);
  if (!server) return "-";
  const std::string host(server->host);
  return host + (server->numeric ? " numeric " : " ") + std::to_string(server->port);
}

TEST(AddressPolicy, ReadsServers) {
  EXPECT_EQ(Read(" a-b_c.d \t"), "a-b_c.d 0");
  EXPECT_EQ(Read("1.2.3.4:25"), "1.2.3.4 numeric 25");
  EXPECT_EQ(Read("[::1]:65535"), "::1 numeric 65535");
  EXPECT_EQ(Read("2130706433:1"), "2130706433 1");
  EXPECT_EQ(Read("") + Read("a b"), "--");
  ForEachWord(
      "-a .a a: a:0 a:65536 a:+1 ::1 [::1 [1.2.3.4] [::1]1 [fe80::1%eth0] a/b a:1:2 a@b \xC3\xA9",
      [](const auto& wrong) { return Read(wrong) == "-"; });
}

bool IsLocal(const std::string& text) { return IsLocalAddress(ReadNumericAddress(text).value()); }

TEST(AddressPolicy, KnowsLocalAddresses) {
  ForEachWord(
      "0.0.0.0 0.255.255.255 10.1.2.3 100.64.0.0 100.127.255.255 127.0.0.1 169.254.169.254 "
      "172.16.0.1 172.31.255.255 192.0.0.255 192.168.0.1 198.18.0.1 198.19.255.255 224.0.0.1 "
      "255.255.255.255 :: ::1 64:ff9b:1::5 fc00::1 fdff::1 fe80::1 feff::1 ff02::1 ::127.0.0.1 "
      "::ffff:10.0.0.1 64:ff9b::7f00:1 2002:a00:1::",
      IsLocal);
  ForEachWord(
      "1.0.0.0 9.255.255.255 11.0.0.0 100.63.255.255 100.128.0.0 169.253.0.1 172.15.0.1 172.32.0.1 "
      "192.0.1.0 192.167.0.1 198.17.0.1 198.20.0.1 223.255.255.255 2001:db8::1 64:ff9b::808:808 "
      "64:ff9b:2::1 2002:808:808::1 fe00::1 fbff::1 ::8.8.8.8 ::ffff:8.8.8.8",
      [](const auto& other) { return !IsLocal(other); });
}

TEST(AddressPolicy, KnowsExceptions) {
  const auto listed = [](const std::string& list, const char* address) {
    return IsListed(list, "Intern.example", ReadNumericAddress(address).value());
  };
  ForEachWord("all x,INTERN.example 127.0.0.1 ,127.0.0.0/8 126.0.0.0/7 0.0.0.0/0",
              [&](const auto& list) {
                return listed(list, "127.0.0.1") && listed(list, "::ffff:127.0.0.1");
              });
  ForEachWord("intern 127.0.0.2 128.0.0.0/1 ::/0 127.0.0.1/33 127.0.0.1/ 127/8",
              [&](const auto& list) { return !listed(list, "127.0.0.1"); });
  EXPECT_TRUE(listed(" fd00::/8 ", "fd12::1") && listed("[::1]", "::1") && !listed("", "::1"));
}

}  // namespace

}  // namespace vexa
