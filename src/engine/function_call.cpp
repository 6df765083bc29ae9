// Entering and leaving a function.

#include "engine/function_call.h"

#include <cassert>
#include <memory>
#include <utility>

#include "engine/function.h"
#include "engine/script_parser.h"

namespace vexa {

namespace {

// An argument with a longer text is not kept for the next call.
constexpr size_t kLongArgument = 256;

}  // namespace

FunctionCall::FunctionCall(ScriptParser& script, Function& function)
    : BlockState(script, function.declaration()), function_(function), locals_(kLocalKind) {
  for (size_t i = 0; i < function.parameters().size(); ++i) {
    const Symbol name = function.symbols()[i];
    if (locals_.Find(name) == nullptr) {
      locals_.Insert(
          std::make_unique<Variable>(name, function.parameters()[i].view(), ScriptValue()));
    }
    parameters_.push_back(locals_.Find(name));
  }
  parameter_variables_ = locals_.size();
}

void FunctionCall::Begin(std::span<ScriptValue> arguments, ScriptValue& result) {
  assert(arguments.size() == parameters_.size());
  for (size_t i = 0; i < parameters_.size(); ++i) {
    parameters_[i]->plain_value() = std::move(arguments[i]);
  }
  result.clear();
  result_ = &result;
  ScriptParser& script = parser();
  return_place_ = script.CurrentPlace();
  script.GoBackTo(function_.body());
  if (function_.standardoutputlevel != kNoOutputLevel) {
    saved_output_level_ = script.SetStandardOutputLevel(function_.standardoutputlevel);
  }
  if (function_.erroroutputlevel != kNoErrorLevel) {
    saved_error_level_ = script.SetErrorOutputLevel(function_.erroroutputlevel);
  }
  script.variables().PushLocalVars(&locals_);
  scope_pushed_ = true;
}

void FunctionCall::Leave() {
  ScriptParser& script = parser();
  script.GoTo(return_place_);
  script.SetStandardOutputLevel(saved_output_level_);
  script.SetErrorOutputLevel(saved_error_level_);
  script.variables().PopLocalVars();
  scope_pushed_ = false;
}

bool FunctionCall::IsReusable() {
  for (Variable* parameter : parameters_) {
    ScriptValue& value = parameter->plain_value();
    if (value.text_size() > kLongArgument) value = ScriptValue();
  }
  return locals_.size() == parameter_variables_;
}

StateResult FunctionCall::OnClose() {
  result_->clear();
  return StateResult::Finished;
}

StateResult FunctionCall::OnOwnTag(Tag& tag) {
  result_->clear();
  if (ScriptValue* value = tag.FindValue("VALUE")) *result_ = std::move(*value);
  return StateResult::Finished;
}

StateResult FunctionCall::ExitState() {
  Leave();
  return StateResult::Handled;
}

// A call that an error ended was not left.
void FunctionCall::LetGo() {
  if (std::exchange(scope_pushed_, false)) parser().variables().PopLocalVars();
  if (!IsReusable() || !function_.waiting_calls().Put(this)) delete this;
}

}  // namespace vexa
