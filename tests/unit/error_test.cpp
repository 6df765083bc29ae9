// The wording, result code and level of each class of errors.

#include "core/error.h"

#include <gtest/gtest.h>

namespace {

std::string Text(const Error& error) { return std::string(error.message().view()); }

TEST(ErrorTest, ConfigurationErrorsNameTheAdministrator) {
  Settings config;
  config.serveradmin = "me@here";
  ConfigurationError error(config, "no root");
  EXPECT_EQ("Configuration Error: no root<BR>\nPlease contact the server administrator: me@here",
            Text(error));
  EXPECT_EQ(500, error.resultcode());
  EXPECT_EQ(0U, error.Level());
  EXPECT_EQ(
      "Syntax error in Configuration File: Line 12: Missing =<BR>\n"
      "Please contact the server administrator: me@here",
      Text(ConfigurationSyntaxError(config, 12, "Missing =")));
}

TEST(ErrorTest, ScriptErrorsNameTheirPlace) {
  RuntimeError bare({"a.vx", 3, ""}, "broken");
  EXPECT_EQ("a.vx: Line 3: Runtime Error: broken", Text(bare));
  EXPECT_EQ(200, bare.resultcode());
  EXPECT_EQ(0x01000000U, bare.Level());
  SyntaxError syntax({"a.vx", 3, "VxIF"}, "broken");
  EXPECT_EQ("a.vx: Line 3: VxIF: Syntax Error: broken", Text(syntax));
  EXPECT_EQ(0x04000000U, syntax.Level());
  ExpressionError expression({"a.vx", 3, ""}, "broken");
  EXPECT_EQ("a.vx: Line 3: Expression Error: broken", Text(expression));
  EXPECT_EQ(0x02000000U, expression.Level());
}

TEST(ErrorTest, TheOthersAddAWordOrNone) {
  EXPECT_EQ("Fatal Error: gone", Text(FatalError("gone")));
  EXPECT_EQ(500, FatalError("gone").resultcode());
  EXPECT_EQ("gone", Text(ScriptNotFoundError("gone")));
  EXPECT_EQ(404, ScriptNotFoundError("gone").resultcode());
  EXPECT_EQ("Application timed out", Text(TimeoutError("Application")));
  EXPECT_EQ(200, TimeoutError("Application").resultcode());
}

}  // namespace
