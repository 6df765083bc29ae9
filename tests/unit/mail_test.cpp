// Lists of mail addresses.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "net/mail_address.h"

namespace vexa {
namespace {

// The addresses as `name|address`, one after the other, or the piece that is none.
std::string Read(std::string_view list) {
  std::vector<MailAddress> addresses;
  String wrong;
  if (!ReadMailAddresses(list, addresses, wrong)) return "wrong: " + std::string(wrong.view());
  std::string shown;
  for (const MailAddress& one : addresses) {
    shown += (shown.empty() ? "" : " ") + std::string(one.name.view()) + "|" + one.address.c_str();
  }
  return shown;
}

TEST(MailAddress, ListsOfAddresses) {
  const std::string long_domain(250, 'd');
  const struct {
    std::string list, read;
  } kCases[] = {
      {"", ""},
      {" a@b ,, \tc@d,", "|a@b |c@d"},
      {"Ada L <a@b>,<c@d>", "Ada L|a@b |c@d"},
      {R"("Last, \"F\"" <a@b>, "x@y,z"@d)", R"(Last, "F"|a@b |"x@y,z"@d)"},
      {"a;b@c", R"(|"a;b"@c)"},
      {"a@[IPv6:::1], a@[127.0.0.1]", "|a@[IPv6:::1] |a@[127.0.0.1]"},
      {"a@" + long_domain + "dd", "|a@" + long_domain + "dd"},
      {"a@" + long_domain + "ddd", "wrong: a@" + long_domain + "ddd"},
      {"a@b, Last, First <c@d>", "wrong: Last"},
      {"a b@c", "wrong: a b@c"},
      {"<a@b> c", "wrong: <a@b> c"},
      {"<a@b><c@d>", "wrong: <a@b><c@d>"},
      {"\"<a@b>", "wrong: \"<a@b>"},
      {"a@b;c@d,\xE9@x", "wrong: \xE9@x"},
      {"@b", "wrong: @b"},
      {"a@", "wrong: a@"},
  };
  for (const auto& [list, read] : kCases) {
    EXPECT_EQ(Read(list), read) << list;
  }
}

}  // namespace
}  // namespace vexa
