// Texts of other machines taken apart: tags as they stand, entities, charsets; and however long and
// broken they are, every byte is passed once.

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "core/utf8.h"
#include "net/charset.h"
#include "net/tag_walker.h"

namespace vexa {

namespace {

// Every step as `name(attribute=value ...)"text"`.
std::string Walk(std::string_view text, Markup markup) {
  std::string steps;
  TagWalker walker(text, markup);
  while (walker.Next()) {
    steps += std::string(walker.name());
    for (const TagWalker::Attribute& a : walker.attributes()) {
      steps += "(" + std::string(a.name) + "=" + std::string(walker.Decoded(a.value)) + ")";
    }
    steps += "\"" + std::string(walker.text()) + "\" ";
  }
  return steps;
}

TEST(TagWalker, TakesHtmlAsItStands) {
  const std::vector<std::pair<const char*, const char*>> cases = {
      {"", ""},
      {" \r\n<P>a</p >b", "p\"a\" /p\"b\" "},
      {"x<br/>y<", "\"x\" br\"y<\" "},
      {"1 < 2 &lt;&eacute;&#x20AC;&#8364;&AMP;&nope;&#0;&#55296;&amp",
       "\"1 < 2 <é€€&AMP;&nope;&#0;&#55296;&amp\" "},
      {"<a HREF='x>&quot;y' b c = d/ e=\"\" HREF=z data-id=1>",
       "a(href=x>\"y)(b=)(c=d/)(e=)(data_id=1)\"\" "},
      {"a<!-- <b> -->&amp;<!-->c<!DOCTYPE x [ <!-- ] --> <!ELEMENT y> ]>d<?php >e</ x>f</>g",
       "\"a&cdefg\" "},
      {"<p it's>a<![CDATA[<&amp;]]>b<p><![CDATA[c", "p(it_s=)\"a<&amp;b\" p\"c\" "},
      {"<script>a<b>&lt;</scriptx></SCRIPT>c<title>&lt;<b></title>",
       "script\"a<b>&lt;</scriptx>\" /script\"c\" title\"<<b>\" /title\"\" "},
      {"<style>a", "style\"a\" "},
      {"a<b c=\"d>e", "\"a\" "},
      {"a<!-- b>c", "\"a\" "},
  };
  for (const auto& [text, steps] : cases) EXPECT_EQ(Walk(text, Markup::Html), steps) << text;
}

TEST(TagWalker, TakesXmlAsItStands) {
  const std::vector<std::pair<const char*, const char*>> cases = {
      {"<?xml?>\n<A b='1'/>x<_y:z/>", "A(b=1)\"\" /A\"x\" _y:z\"\" /_y:z\"\" "},
      {"<é>&eacute;&apos;<1</é>", "é\"&eacute;'<1\" /é\"\" "},
      {"<!DOCTYPE a [<!ENTITY b \"]>\">]><script><c/></script/>",
       "script\"\" c\"\" /c\"\" /script\"\" "},
      {"<a B=1 b=2 c=d/><!-->x-->y", "a(B=1)(c=d)\"\" /a\"y\" "},
  };
  for (const auto& [text, steps] : cases) EXPECT_EQ(Walk(text, Markup::Xml), steps) << text;
  EXPECT_EQ(DetectMarkup("image/svg+xml", ""), Markup::Xml);
  EXPECT_EQ(DetectMarkup("text/html", "<?xml"), Markup::Xml);
  EXPECT_EQ(DetectMarkup("text/html", " <?xml"), Markup::Html);
}

void ExpectOnePass(const std::string& text) {
  for (const Markup markup : {Markup::Html, Markup::Xml}) {
    TagWalker walker(text, markup);
    size_t position = 0;
    while (walker.Next()) {
      ASSERT_GE(walker.position(), position + walker.raw().size());
      position = walker.position();
    }
    ASSERT_EQ(walker.position(), text.size());
  }
}

TEST(TagWalker, PassesEveryByteOnce) {
  for (const char* piece :
       {"<", "<a ", "&", "<!--", "\"", "</", "<![", "<![CDATA[", "<a b=", "<?", "<script>"}) {
    std::string text = "<a ";
    while (text.size() < 1000000) text += piece;
    ExpectOnePass(text.substr(3));
    ExpectOnePass(text);
  }
}

TEST(Charset, FindsItsName) {
  EXPECT_EQ(NamedCharset("<?xml version='1.0' encoding=\"ISO-8859-15\"?><meta charset=x>"),
            "ISO-8859-15");
  EXPECT_EQ(NamedCharset("<p><META http-equiv=x content='text/html; charset = koi8-r;'>"),
            "koi8-r");
  EXPECT_EQ(NamedCharset("<meta name=x><meta charset=utf-16>"), "UTF-8");
  EXPECT_EQ(NamedCharset(std::string(1024, ' ') + "<meta charset=x>"), "");
  EXPECT_EQ(FindByteOrderMark("\xFF\xFEx").charset, "UTF-16LE");
  EXPECT_EQ(FindByteOrderMark("\xEF\xBB").charset, "");
}

TEST(Charset, BecomesUtf8) {
  const std::string many(5000, '\xA4');
  std::string euros;
  for (size_t i = 0; i < many.size(); ++i) euros += "€";
  const std::vector<std::tuple<std::string, std::string, std::string>> cases = {
      {many, "iso-8859-15", euros},
      {"\x93\xFA\x80x\x93", "Shift_JIS", "日\uFFFDx\uFFFD"},
      {"a\xC3\xE9z", "UTF-8", "a\uFFFD\uFFFDz"},
      {std::string("a\0\0\xD8\x62\0c", 7), "UTF-16LE", "a\uFFFDb\uFFFD"},
      {"x", "../../x", "-"},
      {"x", "no-such-charset", "-"},
      {"x", "UTF-16//IGNORE", "-"},
  };
  for (const auto& [text, charset, expected] : cases) {
    String utf8 = "-";
    EXPECT_EQ(ConvertToUtf8(text, charset, utf8), expected != "-") << charset;
    EXPECT_EQ(utf8.view(), expected) << charset;
  }
  for (const char* wrong :
       {"\xC0\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xE2\x82", "\x80", "\xE0\x80\x80"}) {
    EXPECT_FALSE(IsUtf8(wrong));
  }
  EXPECT_TRUE(IsUtf8("aé€😀\uFFFD"));
}

}  // namespace

}  // namespace vexa
