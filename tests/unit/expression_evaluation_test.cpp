// Evaluation of expressions: values, calls, and the order in which things happen.

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "expr/expression.h"
#include "fake_expression_context.h"

namespace vexa {

namespace {

class ExpressionEvaluationTest : public testing::Test {
 protected:
  ExpressionEvaluationTest() {
    context_.variables.AddGlobalVariable("i", "7");
    context_.variables.AddGlobalVariable("name", "Ann");
    // Each call of `note` is noted; it gives its argument back.
    context_.AddFunction("note", 1, [this](std::span<ScriptValue> arguments, ScriptValue& result) {
      noted_ += std::string(arguments[0].view()) + ";";
      result = arguments[0];
      return true;
    });
    context_.AddFunction("join", 2, [](std::span<ScriptValue> arguments, ScriptValue& result) {
      result = String::Concat({arguments[0].view(), "-", arguments[1].view()});
      return true;
    });
    context_.AddFunction("none", 0, [](std::span<ScriptValue> arguments, ScriptValue& result) {
      EXPECT_TRUE(arguments.empty());
      result = "nothing";
      return true;
    });
    context_.AddFunction("stop", 0, [](std::span<ScriptValue>, ScriptValue&) { return false; });
    context_.AddFunction("seti", 1, [this](std::span<ScriptValue> arguments, ScriptValue& result) {
      context_.variables.SetVariable("i", arguments[0]);
      result = "0";
      return true;
    });
    context_.AddFunction("eval", 1, [this](std::span<ScriptValue> arguments, ScriptValue& result) {
      Expression inner;
      return inner.ReadText(arguments[0].view(), context_) && inner.Evaluate(context_, result);
    });
  }

  FakeExpressionContext context_;
  std::string noted_;
};

struct Case {
  std::string_view text;
  std::string_view expected;
};

TEST_F(ExpressionEvaluationTest, GivesValues) {
  const Case cases[] = {
      {"'abc'", "abc"},
      {"\"a 'b' c\"", "a 'b' c"},
      {"''", ""},
      {"12abc", "12abc"},
      {"-.50", "-.50"},
      {"i", "7"},
      {"NAME", "Ann"},
      {"g.name", "Ann"},
      {"unknown", ""},
      {"((i))", "7"},
      {"1 + 2 * 3", "7"},
      {"(1 + 2) * 3", "9"},
      {"10 - 4 - 3", "3"},
      {"(1/3)*3", "0.999999"},
      {"'Hello ' $ name $ '!'", "Hello Ann!"},
      {"name $ name $ (name $ name)", "AnnAnnAnnAnn"},
      {"i $ 'a' $ (1 + (2 + (3 + (4 + (5 + (6 + (7 + i)))))))", "7a35"},
      {"i GT 5 AND name EQ 'Ann'", "1"},
      // A second prefix operator finds its operand's place taken by the first.
      {"NOT NOT 1", "0"},
      {"NOT NOT 0", "0"},
      {"5 + BITOC 0", "-6"},
      {"BITOC 0 * 2", "-1"},
      {"BITOC 1 * (2 + 3)", "-2"},
      {"BITOC 1 / 2", "ERROR: Divide by 0"},
      {"BITOC NOT 5", "-1"},
      {"NOT (NOT 0)", "0"},
      {"NOT (NOT 1)", "1"},
      {"join(1, 2)", "1-2"},
      {"Join(join(1, i + 1), join(none(), 'x')) $ none()", "1-8-nothing-xnothing"},
      {"eval('1 + ' $ eval('i'))", "8"},
  };
  for (const Case& c : cases) EXPECT_EQ(context_.Value(c.text), c.expected) << c.text;
}

TEST_F(ExpressionEvaluationTest, HoldsAnyByte) {
  EXPECT_EQ(context_.Value(std::string_view("'a\0b' $ '&#1;\xff'", 15)),
            std::string("a\0b\x01\xff", 5));
  std::string name("n\0m", 3);
  context_.variables.AddGlobalVariable("n", "wrong");
  EXPECT_EQ(context_.Value(name), "");
}

TEST_F(ExpressionEvaluationTest, EvaluatesBothSidesFromLeftToRight) {
  const Case cases[] = {
      {"0 AND note('f')", "f;"},
      {"1 OR note('f')", "f;"},
      {"note(1) + note(2) * note(3)", "1;2;3;"},
      {"join(note(1), join(note(2), note(3))) $ note(4)", "1;2;3;4;"},
      {"note(note(1) + note(2))", "1;2;3;"},
  };
  for (const Case& c : cases) {
    noted_.clear();
    EXPECT_NE(context_.Value(c.text).substr(0, 6), "ERROR:");
    EXPECT_EQ(noted_, c.expected) << c.text;
  }
}

// A function may change a variable that the expression has read already or will read later.
TEST_F(ExpressionEvaluationTest, ReadsVariablesInTheirTurn) {
  EXPECT_EQ(context_.Value("i $ seti(8) $ i"), "708");
  EXPECT_EQ(context_.Value("i $ (seti(9) $ i)"), "809");
  EXPECT_EQ(context_.Value("join(i, seti(1)) $ i"), "9-01");
}

TEST_F(ExpressionEvaluationTest, ChecksACallBeforeItsArguments) {
  const Case cases[] = {
      {"nosuch(note(1))", "Call to undefined function 'nosuch'"},
      {"JOIN(note(1))", "Call to function 'JOIN' expects 2 parameters, found 1"},
      {"note()", "Call to function 'note' expects 1 parameter, found 0"},
      {"note(note(1), 2)", "Call to function 'note' expects 1 parameter, found 2"},
      {"none(note(1))", "Call to function 'none' expects 0 parameters, found 1"},
      {"join(nosuch(), note(1))", "Call to undefined function 'nosuch'"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(context_.Value(c.text), "ERROR: " + std::string(c.expected)) << c.text;
  }
  EXPECT_EQ(noted_, "");
}

TEST_F(ExpressionEvaluationTest, StopsAtTheFirstFailure) {
  EXPECT_EQ(context_.Value("note(1) + stop() + note(2)"), "ERROR:");
  EXPECT_EQ(noted_, "1;");
  EXPECT_EQ(context_.Value("(1 / 0) + nosuch()"), "ERROR: Divide by 0");
}

TEST_F(ExpressionEvaluationTest, CanBeEvaluatedAgainAndWithinItself) {
  Expression expression;
  int depth = 0;
  context_.AddFunction("again", 1, [&](std::span<ScriptValue> arguments, ScriptValue& result) {
    if (++depth > 3) {
      result = "end";
      return true;
    }
    String inner;
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

TEST_F(ExpressionEvaluationTest, TellsTruth) {
  for (std::string_view text : {"", "0", "000", "0.0", ".", ".00", "00."}) {
    EXPECT_FALSE(Expression::IsTrue(text)) << text;
  }
  for (std::string_view text : {"1", "a", " 0", "0 ", "-0", "0.0.0", "..", "00.1"}) {
    EXPECT_TRUE(Expression::IsTrue(text)) << text;
  }
  EXPECT_TRUE(Expression::IsTrue(std::string_view("\0", 1)));
}

}  // namespace

}  // namespace vexa
