// Numbers beside texts: what is computed with them must print exactly what the former way prints,
// which reads both texts, computes in double precision and prints the result.

#include "core/script_value.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>

#include "core/number.h"
#include "fake_expression_context.h"

namespace vexa {

namespace {

// The former way of one operator: texts in, text out.
String Reference(OperatorCode code, const String& left, const String& right) {
  auto flag = [](bool value) { return String(value ? "1" : "0"); };
  double a, b;
  int order = left.view().compare(right.view());
  const bool numbers = ReadStrict(left, &a) && ReadStrict(right, &b) && a == a && b == b;
  if (numbers) order = (a > b) - (a < b);
  switch (code) {
    case OperatorCode::Add:
      return PrintReal(ReadReal(left) + ReadReal(right));
    case OperatorCode::Subtract:
      return PrintReal(ReadReal(left) - ReadReal(right));
    case OperatorCode::Multiply:
      return PrintReal(ReadReal(left) * ReadReal(right));
    case OperatorCode::Divide:
      return ReadReal(right) == 0 ? String("none") : PrintReal(ReadReal(left) / ReadReal(right));
    case OperatorCode::Round:
      return PrintRounded(ReadReal(left), ReadInteger(right));
    case OperatorCode::Modulo:
      return ReadInteger(right) == 0
                 ? String("none")
                 : PrintInteger(int64_t{ReadInteger(left)} % ReadInteger(right));
    case OperatorCode::BitXor:
      return PrintInteger(ReadInteger(left) ^ ReadInteger(right));
    case OperatorCode::And:
      return flag(ScriptValue::TextIsTrue(left) && ScriptValue::TextIsTrue(right));
    case OperatorCode::Equal:
      return flag(order == 0);
    case OperatorCode::LessThan:
      return flag(order < 0);
    default:
      return String("?");
  }
}

class Numbers {
 public:
  explicit Numbers(unsigned seed) : random_(seed) {}
  uint64_t Below(uint64_t bound) { return random_() % bound; }

  // A number as pages hold them, and what lies at the limits of what is kept beside a text.
  String Draw() {
    const bool negative = Below(3) == 0;
    const auto magnitude = static_cast<int>(Below(54));
    auto whole = static_cast<int64_t>(random_() >> (63 - magnitude));
    switch (Below(10)) {
      case 0:
        return PrintReal((negative ? -1 : 1) * static_cast<double>(whole) / 1e6);
      case 1:
        return PrintRounded(static_cast<double>(whole) / 1e3, static_cast<int>(Below(11)));
      case 2:  // in the middle between two last decimals
        return PrintRounded((static_cast<double>(Below(2'000'000)) + 0.5) / 1e6, 7);
      case 3:
        return PrintRounded((static_cast<double>(Below(2'000'000)) + 0.5) / 1e3, 4);
      case 4: {
        const char* odd[] = {"-0",
                             "0",
                             "",
                             "007",
                             "1e3",
                             ".5",
                             "5.",
                             "-0.0",
                             "0.00",
                             "12abc",
                             "+3",
                             " 4",
                             "-.5",
                             "1.50",
                             "9007199254740993",
                             "-9007199254740992",
                             "nan",
                             "0x10",
                             "0.0000001",
                             "-0.000001",
                             "0.5",
                             "1e300",
                             "inf"};
        return odd[Below(std::size(odd))];
      }
      case 5:
        return PrintInteger(static_cast<int64_t>(Below(20)) - 10);
      default:
        return PrintInteger(negative ? -whole : whole);
    }
  }

 private:
  std::mt19937_64 random_;
};

TEST(ScriptValueTest, ComputesWhatTheFormerArithmeticPrints) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  Numbers numbers(seed);
  constexpr OperatorCode kCodes[] = {
      OperatorCode::Add,   OperatorCode::Subtract, OperatorCode::Multiply, OperatorCode::Divide,
      OperatorCode::Round, OperatorCode::Modulo,   OperatorCode::BitXor,   OperatorCode::And,
      OperatorCode::Equal, OperatorCode::LessThan};
  FakeExpressionContext context;
  for (int round = 0; round < 200'000 && !testing::Test::HasFailure(); ++round) {
    // A chain of results, each of which may carry its number on.
    ScriptValue value = numbers.Draw();
    String text = value.text();
    for (int step = 0; step < 5; ++step) {
      const OperatorCode code = kCodes[numbers.Below(std::size(kCodes))];
      ScriptValue right = numbers.Draw();
      if (code == OperatorCode::Round)
        right.SetInteger(static_cast<int64_t>(numbers.Below(12)) - 1);
      if (numbers.Below(2) == 0) (void)right.IsNumber();
      const String former = text;
      text = Reference(code, former, right.text());
      // Which of two NaNs goes on is the compiler's choice.
      if (text == "none" || text.contains("nan")) break;
      for (const OperatorInfo& row : AllOperators()) {
        if (row.code != code) continue;
        ScriptValue result;
        const bool done =
            value.IsNumber() && right.IsNumber() && OperateOnNumbers(code, value, right, result);
        if (done) {
          ASSERT_EQ(result.text(), text) << former.view() << row.spelling << right.view();
        }
        ASSERT_TRUE(Operate(row, context, value, right));
        if (numbers.Below(3) == 0) value = value.text();
        const ScriptValue copy = value;
        ASSERT_EQ(copy.text(), text) << former.view() << row.spelling << right.view();
      }
    }
  }
}

TEST(ScriptValueTest, CarriesANumberOnlyBesideTheTextItPrints) {
  if (!UseShortcuts()) GTEST_SKIP() << "switched off";
  for (const char* text : {"0", "7", "-12", "0.5", "1.50", "-0.25", "0.00", "999999999999999"}) {
    EXPECT_TRUE(ScriptValue(text).IsNumber()) << text;
  }
  for (const char* text : {"", "-0", "007", "1e3", ".5", "5.", "-0.0", "+3", " 4", "4 ", "1.2.3",
                           "-", "9007199254740993", "0.12345678901"}) {
    EXPECT_FALSE(ScriptValue(text).IsNumber()) << text;
  }
  ScriptValue value;
  value.SetInteger(5);
  value.MutableText().cat('0');
  EXPECT_EQ(value.Real(), 50);
  value.SetInteger(ScriptValue::kWholeLimit);
  EXPECT_EQ(value.text(), "9007199254740992");
  EXPECT_FALSE(value.IsNumber());
}

}  // namespace

}  // namespace vexa
