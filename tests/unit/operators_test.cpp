// The operators: what each makes of its operands, as pages write them.

#include "expr/operators.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "expr/format_picture.h"
#include "fake_expression_context.h"

namespace vexa {

namespace {

struct Case {
  std::string_view text;
  std::string_view expected;
};

template <size_t n>
void ExpectValues(const Case (&cases)[n]) {
  FakeExpressionContext context;
  for (const Case& c : cases) EXPECT_EQ(context.Value(c.text), c.expected) << c.text;
}

TEST(OperatorsTest, CalculateWithReals) {
  ExpectValues({
      {"'abc' + 1", "1"},
      {"'12abc' + 1", "13"},
      {"0.1 + 0.2", "0.3"},
      {"1 / 3", "0.333333"},
      {"(1/3)*3", "0.999999"},
      {"0.0000004 + 0", "0"},
      {"0 * -1", "-0"},
      {"-0.0000001 + 0", "-0"},
      {"5 - 7.5", "-2.5"},
      {"99999999999999 + 1", "100000000000000"},
      {"1e20 * 1", "100000000000000000000"},
      {"' 3' + '1e2x'", "103"},
      {"2 POW 10", "1024"},
      {"2 POW 0.5", "1.414214"},
      {"-8 POW 0.5", "-nan"},
      {"1 / 0", "ERROR: Divide by 0"},
      {"1 / 'x'", "ERROR: Divide by 0"},
      {"0 / 5", "0"},
      {"3.14159 ROUND 2", "3.14"},
      {"2 ROUND 2", "2.00"},
      {"2.5 ROUND 0", "2"},
      {"2 ROUND -1", "2.000000"},
  });
}

TEST(OperatorsTest, CalculateWithIntegers) {
  ExpectValues({
      {"7 MOD -2", "1"},
      {"-7 MOD 2", "-1"},
      {"7.9 MOD 2", "1"},
      {"7 MOD 0.9", "ERROR: Divide by 0"},
      {"-2147483648 MOD -1", "0"},
      {"12 BITAND 10", "8"},
      {"12 BITOR 10", "14"},
      {"12 BITXOR 10", "6"},
      {"BITOC 0", "-1"},
      {"BITOC 'x'", "-1"},
      {"1 BITSL 33", "2"},
      {"1 BITSL 31", "-2147483648"},
      {"3 BITSL 31", "-2147483648"},
      {"-8 BITSR 1", "-4"},
      {"-1 BITSR 31", "-1"},
      {"8 BITSR 35", "1"},
      {"1 BITSL -1", "-2147483648"},
      // Readings saturate at 32 bits.
      {"99999999999 BITOR 0", "2147483647"},
      {"-99999999999999999999 BITOR 0", "-2147483648"},
  });
}

TEST(OperatorsTest, CompareNumbersAndTexts) {
  ExpectValues({
      {"10 GT 9", "1"},        {"10 LT 9", "0"},
      {"'10' GT '9a'", "0"},   {"10 LT '9x'", "1"},
      {"'abc' EQ 'ABC'", "0"}, {"'' EQ '0'", "1"},
      {"'' EQ ''", "1"},       {"'' LT 1", "1"},
      {"'1.0' EQ 1", "1"},     {"'0x10' EQ 16", "1"},
      {"'-0' EQ '0'", "1"},    {"' 1' EQ 1", "1"},
      {"'1 ' EQ 1", "0"},      {"'1e999' EQ '1e9999'", "0"},
      {"'inf' GT 1", "1"},     {"'nan' EQ 'nan'", "1"},
      {"'nan' EQ 'NAN'", "0"}, {"'nan' GT 1", "1"},
      {"'a' LT 'b'", "1"},     {"'a' LT 'ab'", "1"},
      {"'\xff' GT 'z'", "1"},  {"9007199254740993 EQ 9007199254740992", "1"},
      {"1 NE 2", "1"},         {"2 GE 2", "1"},
      {"2 LE 1", "0"},         {"2 GT 2", "0"},
      {"2 LT 2", "0"},
  });
  EXPECT_GT(Compare(std::string_view("a\0b", 3), "a"), 0);
  EXPECT_NE(Compare(std::string_view("1\0", 2), "1"), 0);
}

TEST(OperatorsTest, CombineTruthValues) {
  ExpectValues({
      {"1 AND 'a'", "1"},
      {"1 AND 0.0", "0"},
      {"'' OR '.'", "0"},
      {"'' OR ' '", "1"},
      {"NOT '0.0'", "1"},
      {"NOT '..'", "0"},
      {"NOT unknown", "1"},
  });
}

TEST(OperatorsTest, SearchTexts) {
  ExpectValues({
      {"'b' IN 'abc'", "2"},
      {"'B' IN 'abc'", "0"},
      {"'B' CIN 'abc'", "2"},
      {"'abcd' IN 'abc'", "0"},
      {"'bc' EIN 'abc'", "3"},
      {"'b' EIN 'abc'", "2"},
      {"'x' EIN 'abc'", "0"},
      {"'BC' EIN 'abc'", "0"},
      {"'BC' ECIN 'abc'", "3"},
      {"'' IN 'abc'", "1"},
      {"'' IN ''", "1"},
      {"'' CIN ''", "1"},
      {"'' EIN 'abc'", "0"},
      {"'' ECIN 'abc'", "0"},
      {"'a' IN ''", "0"},
  });
}

TEST(OperatorsTest, CutTexts) {
  ExpectValues({
      {"'abcdef' SUBSTR '2,3'", "bcd"},
      {"'abcdef' SUBSTR '0,2'", "ab"},
      {"'abcdef' SUBSTR '5,9'", "ef"},
      {"'abcdef' SUBSTR '6,1'", "f"},
      {"'abcdef' SUBSTR '7,1'", ""},
      {"'abcdef' SUBSTR '2,0'", ""},
      {"'abc' SUBSTR 'x'", ""},
      {"'abc' SUBSTR '1'", ""},
      {"'abc' SUBSTR '1,'", ""},
      {"'abc' SUBSTR '1,x'", ""},
      {"'abc' SUBSTR '1 ,2'", ""},
      {"'abc' SUBSTR ' 1, 2x'", "ab"},
      {"'abc' SUBSTR '+2,+1'", "b"},
      {"'abc' SUBSTR '-1,1'", ""},
      {"'abc' SUBSTR '2,-1'", "bc"},
      {"'abc' SUBSTR '2,99999999999999999999999'", "bc"},
      {"'abc' SUBSTR '4294967297,1'", ""},
      {"'abc' SUBSTR '99999999999999999999999,1'", ""},
      {"'' SUBSTR '1,1'", ""},
  });
}

TEST(OperatorsTest, HashWithASaltFromTheAlphabet) {
  ExpectValues({
      {"'key' CRYPT 'abc'", "ab:key"},
      {"'key' CRYPT 'x'", "xx:key"},
      {"'key' CRYPT ''", "ERROR: The CRYPT operator expects a non-empty alphabet"},
  });
}

TEST(OperatorsTest, FormatByPictures) {
  ExpectValues({
      {"'5551234567' FMT '(3#)&32;3#-4#'", "(555) 123-4567"},
      {"'12a' FMT '3#'", "120"},
      {"'a1b2' FMT '*!#'", "ab"},
      {"'a1b2' FMT '!*#'", "ab"},
      {"'a1b2' FMT '*A'", "ab"},
      {"'a1b2' FMT '*!A'", "12"},
      {"'a1b2' FMT '2A'", "ab"},
      {"'a1b2' FMT '!2A9'", "12"},
      {"'abcd' FMT 'P2pP'", "ad"},
      {"'abcd' FMT '*P'", "abcd"},
      {"'abc' FMT 'P&45;P&45;P&45;'", "a-b-c"},
      {"'ab' FMT '3&42;P'", "***a"},
      {"'ab' FMT '*-P'", "--a"},
      {"'ab' FMT '0PP'", "a"},
      {"'ab' FMT ' P'", " a"},
      {"'ab' FMT 'x2y'", "xyy"},
      {"'ab' FMT '&P'", "&a"},
      {"'ab' FMT '&0;P'", "&a"},
      {"'12' FMT '(2#)'", "(12"},
      {"'12' FMT '#'", "1"},
      {"'12' FMT '3'", ""},
      {"'12' FMT '#!'", "1"},
      {"'' FMT '(3#)'", ""},
      {"'12' FMT ''", ""},
      {"'1-2' FMT 'A'", ""},
  });
}

TEST(OperatorsTest, LimitFormattedTexts) {
  FakeExpressionContext context;
  std::string longest(kLongestFormatted, 'a');
  EXPECT_EQ(context.Value("'" + longest + "' FMT '*P'"), longest);
  EXPECT_EQ(context.Value("'" + longest + "x' FMT '*P'"),
            "ERROR: The left operand to the FMT operator is limited to 512 characters");
  EXPECT_EQ(Format("ab", "99999999999999999999-PP"), String(std::string(kLongestFormatted, '-')));
  EXPECT_EQ(Format("ab", "511-PP"), String(std::string(511, '-') + "a"));
  // 256 is no character, so it is the count of the semicolon.
  EXPECT_EQ(Format("ab", "&256;P"), String("&" + std::string(256, ';') + "a"));
  EXPECT_EQ(Format(std::string_view("a\0b", 3), "3P"), std::string_view("a\0b", 3));
}

TEST(OperatorsTest, AreFoundInAnyLetterCase) {
  EXPECT_EQ(AllOperators().size(), 30U);
  for (const OperatorInfo& info : AllOperators()) {
    EXPECT_EQ(FindOperator(info.spelling), &info);
    EXPECT_EQ(FindOperator(String(info.spelling).lower()), &info);
  }
  for (std::string_view word : {"", "A", "ANDS", "AN", "SUBSTRX", "|", "^", "=", "ORAND"}) {
    EXPECT_EQ(FindOperator(word), nullptr) << word;
  }
  EXPECT_EQ(FindOperator(std::string_view("\0OR", 3)), nullptr);
  EXPECT_EQ(FindOperator(std::string_view("OR\0", 3)), nullptr);
}

}  // namespace

}  // namespace vexa
