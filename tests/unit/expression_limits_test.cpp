// Expressions as large, as deep and as broken as they come: each ends in a value or in one error.

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <string_view>

#include "expr/character_source.h"
#include "expr/expression.h"
#include "fake_expression_context.h"

namespace vexa {

namespace {

constexpr int kMany = 100000;

std::string Repeated(std::string_view text, int count) {
  std::string all;
  for (int i = 0; i < count; ++i) all += text;
  return all;
}

class ExpressionLimitsTest : public testing::Test {
 protected:
  ExpressionLimitsTest() {
    context_.variables.AddGlobalVariable("a", "1");
    context_.AddFunction("f", 1, [](std::span<ScriptValue> arguments, ScriptValue& result) {
      result = std::move(arguments[0]);
      return true;
    });
    context_.AddFunction("pair", 2, [](std::span<ScriptValue> arguments, ScriptValue& result) {
      result = arguments[1];
      return true;
    });
  }

  // Reads `script` in every form and evaluates what was read. There must be a value or exactly one
  // error, and no more.
  void ExpectValueOrOneError(std::string_view script) {
    for (ValueForm form :
         {ValueForm::Attribute, ValueForm::ExpressionAttribute, ValueForm::Body, ValueForm::Text}) {
      context_.errors.clear();
      TextSource source(script);
      Expression expression;
      String result;
      bool done = expression.Read(source, form, context_) != ValueEnd::Failed;
      EXPECT_EQ(expression.empty(), !done) << script;
      done = done && expression.Evaluate(context_, result);
      EXPECT_EQ(context_.errors.size(), done ? 0U : 1U) << script;
    }
  }

  FakeExpressionContext context_;
};

TEST_F(ExpressionLimitsTest, EvaluatesManyTerms) {
  EXPECT_EQ(context_.Value("0" + Repeated(" + a", kMany)), std::to_string(kMany));
  EXPECT_EQ(context_.Value("''" + Repeated("$'xy'", kMany)), Repeated("xy", kMany));
  EXPECT_EQ(context_.Value("''" + Repeated("$('x'$a)", kMany)), Repeated("x1", kMany));
  EXPECT_EQ(context_.Value(Repeated("NOT ", kMany) + "a"), "0");
  // Operators that sink ever deeper, and climb one level each.
  EXPECT_EQ(context_.Value("0" + Repeated(" OR 0 EQ 1 + 1 * 1 POW 1", kMany / 4)), "0");
}

TEST_F(ExpressionLimitsTest, EvaluatesManyParentheses) {
  std::string open = Repeated("(", kMany);
  std::string close = Repeated(")", kMany);
  EXPECT_EQ(context_.Value(open + "a" + close), "1");
  EXPECT_EQ(context_.Value(Repeated("(1+", kMany) + "1" + close), std::to_string(kMany + 1));
  EXPECT_EQ(context_.Value(open + "1" + Repeated("+1)", kMany)), std::to_string(kMany + 1));
  EXPECT_EQ(context_.Value(Repeated("NOT(", kMany) + "a" + close), "1");
  EXPECT_EQ(context_.Tree(open + "a"), "ERROR: Mismatched parenthesis");
  EXPECT_EQ(context_.Tree(open), "ERROR: Mismatched parenthesis");
  EXPECT_EQ(context_.Tree(open + close), "ERROR: Unexpected end of expression");
  EXPECT_EQ(context_.Tree(open + "a" + close + ")"), "ERROR: Mismatched parenthesis");
}

TEST_F(ExpressionLimitsTest, EvaluatesManyNestedCalls) {
  std::string close = Repeated(")", kMany);
  EXPECT_EQ(context_.Value(Repeated("f(", kMany) + "a" + close), "1");
  EXPECT_EQ(context_.Value(Repeated("pair(a,1+", kMany) + "0" + close), std::to_string(kMany));
  EXPECT_EQ(context_.Value(Repeated("f((", kMany) + "a" + close + close), "1");
  EXPECT_EQ(context_.Tree(Repeated("f(", kMany) + "a"), "ERROR: Mismatched parenthesis");
  EXPECT_EQ(context_.Value("f(a" + Repeated(",a", kMany) + ")"),
            "ERROR: Call to function 'f' expects 1 parameter, found " + std::to_string(kMany + 1));
  std::string printed = context_.Tree(Repeated("f(", kMany) + "a" + close);
  EXPECT_EQ(printed, Repeated("f(", kMany) + "a" + close);
}

TEST_F(ExpressionLimitsTest, ReadsLongTokens) {
  std::string text = Repeated("&lt;x", kMany);
  EXPECT_EQ(context_.Value("'" + text + "'"), Repeated("<x", kMany));
  EXPECT_EQ(context_.Value(Repeated("n", kMany)), "");
  EXPECT_EQ(context_.Value("1" + Repeated("0", kMany) + " GT 1"), "1");
  EXPECT_EQ(context_.Value("'&#" + Repeated("0", kMany) + "65;'"), "A");
}

constexpr std::string_view kSamples[] = {
    "\"row\" $ i EQ (a + -1.5) * f(pair(a, NOT(b)) ) NAME=\"x\">",
    "\"a EQ &quot;b&quot; OR f(' &#65;&amp; ')\" >",
    "pair(f((1 + 2) POW a), 'x' FMT '3#&32;*A') SUBSTR '1,2' AND a |>",
    "NOT NOT a MOD BITOC 7 / 2 CIN \"z>\" ROUND 2 > ) , f()",
};

TEST_F(ExpressionLimitsTest, SurvivesEveryCut) {
  for (std::string_view sample : kSamples) {
    for (size_t length = 0; length <= sample.size(); ++length) {
      ExpectValueOrOneError(sample.substr(0, length));
      ExpectValueOrOneError(sample.substr(length));
    }
  }
}

TEST_F(ExpressionLimitsTest, SurvivesRandomChanges) {
  constexpr std::string_view kPieces[] = {
      "(", ")", ",",   "f(", "\"",   "'", " ",  "-",    ".",     "1",      "&",    ";",
      ">", "=", "NOT", "a",  " OR ", "|", "\n", "\xff", "pair(", "BITOC ", "&lt;", " + "};
  std::mt19937 random(20240131);
  auto below = [&](size_t bound) { return random() % bound; };
  for (int round = 0; round < 4000; ++round) {
    std::string script(kSamples[below(std::size(kSamples))]);
    for (size_t change = 0; change <= below(6); ++change) {
      size_t at = below(script.size() + 1);
      if (below(3) == 0) {
        script.erase(at, below(4));
      } else if (below(4) == 0 && at < script.size()) {
        script[at] = static_cast<char>(below(256));
      } else {
        script.insert(at, kPieces[below(std::size(kPieces))]);
      }
    }
    ExpectValueOrOneError(script);
  }
}

}  // namespace

}  // namespace vexa
