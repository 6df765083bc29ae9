// FakeExpressionContext: a script for unit tests of expressions. It has variables, functions made
// of C++ lambdas, and a list of what was reported.

#ifndef VEXA_TESTS_UNIT_FAKE_EXPRESSION_CONTEXT_H_
#define VEXA_TESTS_UNIT_FAKE_EXPRESSION_CONTEXT_H_

#include <functional>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/variables.h"
#include "expr/expression.h"
#include "expr/expression_context.h"
#include "expr/expression_tree.h"
#include "fake_host.h"

namespace vexa {

class FakeExpressionContext final : public ExpressionContext {
 public:
  // What a function does: false makes the call fail.
  using Work = std::function<bool(std::span<ScriptValue> arguments, ScriptValue& result)>;

  FakeExpressionContext() : variables(fake_host) { fake_host.variables = &variables; }

  // `name` in lower case.
  void AddFunction(const std::string& name, int parameters, Work work) {
    functions_.insert_or_assign(name, Function(parameters, std::move(work)));
  }

  // The value of `text`, or "ERROR: " and what was reported.
  std::string Value(std::string_view text) {
    errors.clear();
    Expression expression;
    String result;
    if (!expression.ReadText(text, *this) || !expression.Evaluate(*this, result)) {
      return ErrorText();
    }
    return std::string(result.view());
  }
  // The tree of `text`, or "ERROR: " and what was reported.
  std::string Tree(std::string_view text) {
    errors.clear();
    ExpressionTree tree, quoted;
    TextSource source(text);
    ValueEnd end;
    ExpressionTree* read = Expression::ReadTree(source, ValueForm::Text, *this, tree, quoted, end);
    return read == nullptr ? ErrorText() : std::string(read->Printed().view());
  }
  std::string ErrorText() const {
    std::string all = "ERROR:";
    for (const std::string& error : errors) all += " " + error;
    return all;
  }

  Vexa& host() override { return fake_host; }
  bool ReportExpressionError(std::string_view message) override {
    errors.emplace_back(message);
    return false;
  }
  bool ReportFileError(std::string_view message) override {
    errors.emplace_back(message);
    return true;
  }
  bool FindFunction(Symbol name, const Callable*& function) override {
    auto found = functions_.find(std::string(String(name.text()).lower().view()));
    function = found == functions_.end() ? nullptr : &found->second;
    return true;
  }
  bool CallFunction(const Callable& function, std::span<ScriptValue> arguments,
                    ScriptValue& result) override {
    return static_cast<const Function&>(function).work(arguments, result);
  }

  FakeHost fake_host;
  Variables variables;
  std::vector<std::string> errors;

 private:
  struct Function final : Callable {
    Function(int count, Work what) : Callable(Kind::OfScript, count), work(std::move(what)) {}
    Work work;
  };
  std::map<std::string, Function> functions_;
};

}  // namespace vexa

#endif  // VEXA_TESTS_UNIT_FAKE_EXPRESSION_CONTEXT_H_
