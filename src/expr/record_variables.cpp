// The variables of a record; see record_variables.h.

#include "expr/record_variables.h"

#include <memory>

#include "core/text.h"

namespace vexa {

namespace {

// Puts the record's variables before all other scopes, and counts the evaluation, while it lives.
class Evaluation {
 public:
  Evaluation(Variables& variables, VariableTree& scope, int& count)
      : variables_(variables), count_(count) {
    variables_.PushSystemVars(&scope);
    ++count_;
  }
  ~Evaluation() {
    --count_;
    variables_.PopSystemVars();
  }
  Evaluation(const Evaluation&) = delete;
  Evaluation& operator=(const Evaluation&) = delete;

 private:
  Variables& variables_;
  int& count_;
};

}  // namespace

void RecordVariables::AddEOF() { eof_ = scope_->Insert(std::make_unique<Variable>("EOF", "1")); }

void RecordVariables::ForgetVariables() {
  scope_.emplace(kFieldKind);
  eof_ = nullptr;
}

void RecordVariables::SetEOF(bool end) {
  // A page may assign to EOF like to any other variable.
  const std::string_view value = end ? "1" : "0";
  if (eof_->value() != value) (void)eof_->SetValue(value);
}

DataResult RecordVariables::Evaluate(const Expression& expression, String& result) {
  const Evaluation evaluation(host_.vars(), *scope_, evaluations_);
  return expression.Evaluate(host_.expressioncontext(), result) ? DataResult::Done
                                                                : DataResult::Reported;
}

bool RecordVariables::Parse(std::string_view text, Expression& expression) {
  return expression.ReadText(text, host_.expressioncontext());
}

bool RecordVariables::ParseFilter(const String& text, Expression& filter) {
  return Stripped(text).empty() || Parse(text, filter);
}

String RecordVariables::BusyMessage() const {
  return String::Concat(
      {"Database '", database_, "' is in use by its own filter or key expression"});
}

}  // namespace vexa
