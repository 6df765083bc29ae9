// String, split, numbers and encodings: the values of the language.

#include "core/string.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "core/encoding.h"
#include "core/number.h"

namespace vexa {

namespace {

std::vector<std::string> Split(const char* text, const char* separator, int max) {
  std::vector<String> pieces(static_cast<size_t>(max));
  int count = split(text, pieces.data(), max, separator);
  std::vector<std::string> result;
  for (int i = 0; i < count; ++i) result.emplace_back(pieces[static_cast<size_t>(i)].view());
  return result;
}

String Changed(String text, void (*change)(String&)) {
  change(text);
  return text;
}

using Pieces = std::vector<std::string>;

TEST(StringTest, CapacityGrowsInSteps) {
  EXPECT_EQ(String().capacity(), 24);
  EXPECT_EQ(String(static_cast<const char*>(nullptr)).length(), 0);
  EXPECT_EQ(String(std::string(23, 'x')).capacity(), 24);
  EXPECT_EQ(String(std::string(24, 'x')).capacity(), 48);
  EXPECT_EQ(String(std::string(47, 'x')).capacity(), 48);
  String text(std::string(47, 'x'));
  text.cat('y');
  EXPECT_EQ(text.capacity(), 72);
  text.assign('z');
  EXPECT_EQ(text.capacity(), 24);
}

TEST(StringTest, AssignsAndAppendsPartsOfItself) {
  String text("abcdefghijklmnopqrstuvw");
  text.cat(text.view());
  EXPECT_EQ(text, "abcdefghijklmnopqrstuvwabcdefghijklmnopqrstuvw");
  text.assign(text.view().substr(20, 5));
  EXPECT_EQ(text, "uvwab");
  text.prepend(text.view().substr(3));
  EXPECT_EQ(text, "abuvwab");
}

TEST(StringTest, TextsThatShareStorageChangeApart) {
  void (*const kChanges[])(String&) = {
      [](String& text) { text.cat('x'); },
      [](String& text) { text.cat(text.view().substr(9)); },
      [](String& text) { text.assign(text.view().substr(9)); },
      [](String& text) { text.Truncate(9); },
      [](String& text) { text.clear(); },
      [](String& text) { text.upcase(); },
      [](String& text) { text.StripWhitespace(); },
      [](String& text) { text.Reserve(9999); },
      [](String& text) { *text.MutableBytes() = 'x'; },
      [](String& text) { text = String("x"); },
      [](String& text) { DecodeAttribute(text); },
  };
  for (const auto change : kChanges) {
    const String apart(" a+b " + std::string(2000, 'c'));
    String text = apart, assigned;
    text.Share();
    String copy = text;
    assigned = text;
    EXPECT_EQ(copy.data(), assigned.data());
    change(copy);
    EXPECT_EQ(copy, Changed(apart, change));
    EXPECT_EQ(assigned, apart);
    copy = text = String();
    change(assigned);  // Its last owner keeps the storage.
    EXPECT_EQ(assigned, Changed(apart, change));
  }
}

TEST(StringTest, CopiesAndMovesKeepBytes) {
  for (size_t length : {0u, 1u, 22u, 23u, 24u, 25u, 1000u}) {
    std::string bytes(length, '\0');
    for (size_t i = 0; i < length; ++i) bytes[i] = static_cast<char>(i * 7);
    String original(bytes);
    String copy(original);
    String moved(std::move(original));
    EXPECT_EQ(copy.view(), bytes);
    EXPECT_EQ(moved.view(), bytes);
    EXPECT_EQ(copy.data()[length], '\0');
    copy = moved;
    moved = "short";
    EXPECT_EQ(copy.view(), bytes);
  }
}

TEST(StringTest, TakesPartsAndSearches) {
  String text("a.bc.d");
  const std::vector<String> parts = {text.before(2),
                                     text.before(9),
                                     text.before(-1),
                                     text.before("."),
                                     text.before("x"),
                                     text.after(0),
                                     text.after(5),
                                     text.after(".", 2),
                                     text.after("x"),
                                     text.from(4),
                                     text.from(6),
                                     text.from(".", 2),
                                     text.at(1, 3),
                                     text.at(4, 99),
                                     text.at(6, 7),
                                     text.at(3, 1),
                                     String("12").padl(5, '0'),
                                     String("1234").padl(3, '0'),
                                     String("1").padr(3, '-')};
  EXPECT_EQ(parts,
            (std::vector<String>{"a.", "a.bc.d", "", "a", "a.bc.d", ".bc.d", "", "d", "", ".d", "",
                                 ".d", ".b", ".d", "", "", "00012", "1234", "1--"}));
  text = "aaaa";
  EXPECT_EQ(text.search("", 0), -1);
  EXPECT_EQ(text.search("aa", 3), -1);
  EXPECT_EQ(text.search("aa", 2), 2);
  EXPECT_EQ(text.freq("aa"), 3);
  EXPECT_TRUE(text.contains('a', 3));
  EXPECT_FALSE(text.contains('a', 4));
  EXPECT_TRUE(String("abc").matches("ABC", 0));
  EXPECT_FALSE(String("abcd").matches("ABC", 0));
  EXPECT_TRUE(String("xyz").matches("YZ", 1));
  EXPECT_TRUE(String("x").matches("", 5));
  EXPECT_FALSE(String("x").matches('x', 2));
}

TEST(StringTest, ChangesInPlace) {
  String text("a \t b  ");
  text.CompressWhitespace();
  EXPECT_EQ(text, "a b ");
  text = "\t  a\r\nb ";
  text.CompressWhitespace();
  EXPECT_EQ(text, "\ta\rb ");
  text.StripWhitespace();
  EXPECT_EQ(text, "a\rb");
  text = "aaa";
  text.gsub("aa", "b");
  EXPECT_EQ(text, "ba");
  text.gsub("b", "");
  EXPECT_EQ(text, "a");
  text.gsub("", "x");
  EXPECT_EQ(text, "a");
  text = "  \xe4Z";
  text.ltrim();
  text.lowcase();
  EXPECT_EQ(text, "\xe4z");
}

TEST(SplitTest, KeepsEmptyPiecesButNoTrailingOne) {
  EXPECT_EQ(Split("a,,b,", ",", 10), (Pieces{"a", "", "b"}));
  EXPECT_EQ(Split("a,,b,", ",", 2), (Pieces{"a", ""}));
  EXPECT_EQ(Split("", ",", 10), Pieces{});
  EXPECT_EQ(Split("", "", 10), Pieces{""});
  EXPECT_EQ(Split("ab", "", 10), Pieces{"ab"});
  EXPECT_EQ(Split("a--b-c", "--", 10), (Pieces{"a", "b-c"}));
  EXPECT_EQ(Split(",", ",", 10), Pieces{""});
}

TEST(NumberTest, ReadsAndPrintsAsTheCLibraryWould) {
  double value = 1;
  for (const char* text : {"", "12", "-0", " 1e2", "inf", "nan", "0x1F", "99999999999999999999"}) {
    EXPECT_TRUE(ReadStrict(text, &value)) << text;
    const double expected = std::strtod(text, nullptr);
    EXPECT_TRUE(value == expected || std::isnan(expected)) << text;
  }
  EXPECT_FALSE(ReadStrict("1 ", &value));
  EXPECT_FALSE(ReadStrict("1x", &value));
  EXPECT_FALSE(ReadStrict("1e999", &value));
  EXPECT_FALSE(ReadStrict(std::string_view("1\0", 2), &value));
  EXPECT_EQ(ReadReal(" -.5e1x"), -5);
  EXPECT_EQ(ReadReal(std::string_view("12345", 2)), 12);
  EXPECT_EQ(ReadInteger("-99999999999"), INT32_MIN);
  EXPECT_EQ(ReadInteger64("99999999999x"), 99999999999);
  EXPECT_EQ(ReadInteger64("99999999999999999999"), INT64_MAX);
  EXPECT_EQ(PrintReal(-0.0), "-0");
  EXPECT_EQ(PrintReal(-999999999999999.0), "-999999999999999");
  EXPECT_EQ(PrintReal(1e300).length(), 301);
  EXPECT_EQ(PrintReal(HUGE_VAL), "inf");
  EXPECT_EQ(PrintRounded(0.5, 1 << 30).length(), 2 + kMostPlaces);
}

TEST(EncodingTest, RoundTripsAndKeepsWhatItDoesNotKnow) {
  EXPECT_EQ(Changed("x@y.z-_*\t", EncodeAttribute), "x@y.z-_*\t");
  EXPECT_EQ(Changed("a+b%2fc%4", DecodeAttribute), "a b/c%4");
  std::string all;
  for (int c = 0; c < 256; ++c) all += static_cast<char>(c);
  EXPECT_EQ(Changed(Changed(String(all), EncodeAttribute), DecodeAttribute).view(), all);
  EXPECT_EQ(Changed("<a href=\"x\">&", EncodeEntities), "&lt;a href=&quot;x&quot;&gt;&amp;");
  EXPECT_EQ(Changed("&LT;&nbsp;&quot;&#65;a&;b&amp", DecodeEntities), "<nbsp\"#65ab&amp");
}

}  // namespace

}  // namespace vexa
