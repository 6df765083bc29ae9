// Evaluation of expressions where pages cannot reach: any byte, the order in which things happen,
// evaluation within evaluation, and operators on the longest texts.

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "expr/expression.h"
#include "expr/format_picture.h"
#include "fake_expression_context.h"
#include "rows.h"

namespace vexa {

namespace {

class ExpressionEvaluationTest : public testing::Test {
 protected:
  using Arguments = std::span<ScriptValue>;

  ExpressionEvaluationTest() {
    context_.variables.AddGlobalVariable("i", "7");
    // Each call of `note` is noted; it gives its argument back.
    context_.AddFunction("note", 1, [this](Arguments arguments, ScriptValue& result) {
      noted_ += std::string(arguments[0].view()) + ";";
      result = arguments[0];
      return true;
    });
    context_.AddFunction("join", 2, [](Arguments arguments, ScriptValue& result) {
      result = String::Concat({arguments[0].view(), "-", arguments[1].view()});
      return true;
    });
    context_.AddFunction("stop", 0, [](Arguments, ScriptValue&) { return false; });
    context_.AddFunction("seti", 1, [this](Arguments arguments, ScriptValue& result) {
      context_.variables.SetVariable("i", arguments[0]);
      result = "0";
      return true;
    });
    context_.AddFunction("eval", 1, [this](Arguments arguments, ScriptValue& result) {
      Expression inner;
      return inner.ReadText(arguments[0].view(), context_) && inner.Evaluate(context_, result);
    });
  }

  FakeExpressionContext context_;
  std::string noted_;
};

TEST_F(ExpressionEvaluationTest, HoldsAnyByte) {
  EXPECT_EQ(context_.Value(std::string_view("'a\0b' $ '&#1;\xff'", 15)),
            std::string("a\0b\x01\xff", 5));
  context_.variables.AddGlobalVariable("n", "wrong");
  EXPECT_EQ(context_.Value(std::string("n\0m", 3)), "");
  EXPECT_GT(Compare(std::string_view("a\0b", 3), "a"), 0);
  EXPECT_NE(Compare(std::string_view("1\0", 2), "1"), 0);
  EXPECT_EQ(FindOperator(std::string_view("OR\0", 3)), nullptr);
  EXPECT_EQ(Format(std::string_view("a\0b", 3), "3P"), std::string_view("a\0b", 3));
}

// A function may change a variable that the expression has read already or will read later.
TEST_F(ExpressionEvaluationTest, EvaluatesBothSidesFromLeftToRight) {
  for (const auto& [text, notes] : Rows(R"(
      0 AND note('f') => f; ;; 1 OR note('f') => f; ;; note(1) + note(2) * note(3) => 1;2;3;
      join(note(1), join(note(2), note(3))) $ note(4) => 1;2;3;4;
      note(note(1) + note(2)) => 1;2;3; ;; eval('1 + ' $ eval('note(i)')) => 7;)")) {
    noted_.clear();
    EXPECT_NE(context_.Value(text).substr(0, 6), "ERROR:");
    EXPECT_EQ(noted_, notes) << text;
  }
  for (const auto& [text, value] : Rows(R"(
      i $ seti(8) $ i => 708 ;; i $ (seti(9) $ i) => 809 ;; join(i, seti(1)) $ i => 9-01)")) {
    EXPECT_EQ(context_.Value(text), value) << text;
  }
}

TEST_F(ExpressionEvaluationTest, ChecksACallBeforeItsArgumentsAndStopsAtTheFirstFailure) {
  for (const auto& [text, error] : Rows(R"(
      nosuch(note(1)) => Call to undefined function 'nosuch'
      JOIN(note(1)) => Call to function 'JOIN' expects 2 parameters, found 1
      note() => Call to function 'note' expects 1 parameter, found 0
      note(note(1), 2) => Call to function 'note' expects 1 parameter, found 2
      stop(note(1)) => Call to function 'stop' expects 0 parameters, found 1
      join(nosuch(), note(1)) => Call to undefined function 'nosuch'
      (1 / 0) + nosuch() => Divide by 0)")) {
    EXPECT_EQ(context_.Value(text), "ERROR: " + error) << text;
  }
  EXPECT_EQ(noted_, "");
  EXPECT_EQ(context_.Value("note(1) + stop() + note(2)"), "ERROR:");
  EXPECT_EQ(noted_, "1;");
}

TEST_F(ExpressionEvaluationTest, CanBeEvaluatedAgainAndWithinItself) {
  Expression expression;
  int depth = 0;
  context_.AddFunction("again", 1, [&](Arguments arguments, ScriptValue& result) {
    if (++depth > 3) {
      result = "end";
      return true;
    }
    ScriptValue inner;
    bool done = expression.Evaluate(context_, inner);
    result = String::Concat({arguments[0].view(), "(", inner.view(), ")"});
    return done;
  });
  ASSERT_TRUE(expression.ReadText("i $ again('x' $ i) $ i", context_));
  String result;
  ASSERT_TRUE(expression.Evaluate(context_, result));
  EXPECT_EQ(result, "7x7(7x7(7x7(7end7)7)7)7");
  context_.variables.SetVariable("i", "8");
  ASSERT_TRUE(expression.Evaluate(context_, result));
  EXPECT_EQ(result, "8end8");
}

TEST_F(ExpressionEvaluationTest, AppendsInPlaceOnlyWhatEvaluatingAnewWouldGive) {
  if (!UseShortcuts()) GTEST_SKIP() << "switched off";
  auto append = [this](std::string_view text) {
    Expression expression;
    EXPECT_TRUE(expression.ReadText(text, context_));
    const bool done = expression.program().TryAppend(context_, Variables::Scope("i"));
    return std::string(context_.variables.Value("i").view()) + (done ? "" : " evaluate");
  };
  EXPECT_EQ(append("i $ 'x' $ G.I"), "7 evaluate");
  EXPECT_EQ(append("i $ i"), "7 evaluate");
  EXPECT_EQ(append("i $ (i $ 1)"), "7 evaluate");
  EXPECT_EQ(append("i $ note(1)"), "7 evaluate");
  EXPECT_EQ(append("i + 1"), "7 evaluate");
  EXPECT_EQ(append("j $ 1"), "7 evaluate");
  EXPECT_EQ(append("g.i $ 'x' $ unknown $ 1"), "7x1");
}

TEST_F(ExpressionEvaluationTest, LimitsFormattedTexts) {
  std::string longest(kLongestFormatted, 'a');
  EXPECT_EQ(context_.Value("'" + longest + "' FMT '*P'"), longest);
  EXPECT_EQ(context_.Value("'" + longest + "x' FMT '*P'"),
            "ERROR: The left operand to the FMT operator is limited to 512 characters");
  EXPECT_EQ(Format("ab", "99999999999999999999-PP"), String(std::string(kLongestFormatted, '-')));
  EXPECT_EQ(Format("ab", "511-PP"), String(std::string(511, '-') + "a"));
  // 256 is no character, so it is the count of the semicolon.
  EXPECT_EQ(Format("ab", "&256;P"), String("&" + std::string(256, ';') + "a"));
}

}  // namespace

}  // namespace vexa
