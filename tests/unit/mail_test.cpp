// Pieces of mails that strangers write: address lists, names of files, raw texts, HTML.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/settings.h"
#include "net/attachment_saver.h"
#include "net/html_text.h"
#include "net/mail_address.h"
#include "net/mail_check.h"

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

TEST(SafeFileName, NamesThatStrangersSend) {
  Settings settings;
  settings.validextensions = ".vx, html";
  const std::string z200(200, 'z');
  const std::pair<std::string, std::string> kCases[] = {
      {"../../etc/passwd", "passwd"},
      {"C:\\x\\a b  \xE9.txt", "a_b_.txt"},
      {"..", "attachment"},
      {"", "attachment"},
      {"a/", "attachment"},
      {".htaccess", "htaccess"},
      {"...vx", "vx"},
      {"page.VX", "page.VX.txt"},
      {"p.html", "p.html.txt"},
      {"p.vx.", "p.vx."},
      {"a\r\n\t$(x)", "a_x_"},
      {z200 + ".tar.gz", z200.substr(0, 97) + ".gz"},
      {"a.b" + z200, "a.b" + z200.substr(0, 97)},
      {z200.substr(0, 97) + ".vx" + z200, z200.substr(0, 97) + ".vx.txt"},
  };
  for (const auto& [sent, safe] : kCases) {
    EXPECT_EQ(SafeFileName(sent, settings).view(), safe) << sent;
  }
}

TEST(CheckMail, LimitsOfHeadersAndParts) {
  const auto times = [](int count, const std::string& text) {
    std::string all;
    for (int i = 0; i < count; ++i) all += text;
    return all;
  };
  const auto kNone = MailProblem::None;
  const auto kLines = MailProblem::TooManyHeaderLines;
  const auto kParts = MailProblem::TooManyParts;
  const std::string message = "Content-Type: Message/rfc822\n\n";
  const std::pair<std::string, MailProblem> kCases[] = {
      {"", kNone},
      {times(1000, "a: b\r\n") + "\r\n" + times(2000, "a: b\n"), kNone},
      {times(500, "a: b\n c\n") + "d: e\n", kLines},
      {"x\n--\n" + times(1001, "a: b\n"), kLines},
      {"a: " + std::string(256 * 1024, 'x') + "\n", kLines},
      {"a: b\n" + std::string(300 * 1024, 'x') + "\n", kNone},
      {times(10'000, "--x\n"), kNone},
      {times(10'001, "--x\n"), kParts},
      {message + times(1001, "a: b\n"), kLines},
      {"Content-Type:\n message (x) /rfc822\n\n" + times(1001, "a: b\n"), kLines},
      {"Content-Type: multipart/digest\n\n--x\n\n" + times(1001, "a: b\n"), kLines},
      {"To: " + times(5000, "a:") + "\n", kNone},
      {"To: " + times(2500, "a:") + "\n " + times(2501, "a,") + "\n", kLines},
      {times(10'001, message), kParts},
      {times(200, "--\n" + times(501, "a:\n")), kLines},
  };
  for (const auto& [text, problem] : kCases) {
    EXPECT_EQ(CheckMail(text), problem) << text.substr(0, 40);
  }
  EXPECT_EQ(MailHead(times(1001, "a: b\n")), times(1000, "a: b\n"));
  EXPECT_EQ(MailHead("a: b\n\tc\nno header\nd: e\n"), "a: b\n\tc\n");
}

TEST(TextOfHtml, LooksLikeTheShownPage) {
  const std::pair<std::string, std::string> kCases[] = {
      {"<html><head><title>T</title><style>p{}</style></head> <body> a  <b>b</b>\n c </body>",
       "a b c\n"},
      {"one<br>two<br><br>three<p>four</p>five", "one\ntwo\n\nthree\n\nfour\n\nfive\n"},
      {"<ul><li>a<li><a href=x>b</a> c</ul>d", "- a\n- b (x) c\nd\n"},
      {"<a href='http://x/'>http://x/</a> <a href=y></a><a>z</a>", "http://x/ (y)z\n"},
      {"<pre>  a\n\n   b</pre><tr><td>1<td>2", "  a\n\n   b\n\n1 2\n"},
      {"&lt;b&gt; &euro;<!-- x --><script>if (a<b) x</script>", "<b> \xE2\x82\xAC\n"},
      {" <p> ", ""},
  };
  for (const auto& [html, text] : kCases) EXPECT_EQ(TextOfHtml(html).view(), text) << html;
}

}  // namespace
}  // namespace vexa
