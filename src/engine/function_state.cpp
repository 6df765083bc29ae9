// Entering and leaving a function.

#include "engine/function_state.h"

#include "engine/script_parser.h"

namespace vexa {

FunctionState::FunctionState(ScriptParser& parser, const Function& function, VariableTree& locals)
    : BlockState(parser, *parser.tags().WithFlag(kDeclaresFunction)),
      return_place_(parser.CurrentPlace()) {
  parser.GoTo(function.body());
  if (function.standardoutputlevel != kNoOutputLevel) {
    saved_output_level_ = parser.SetStandardOutputLevel(function.standardoutputlevel);
  }
  if (function.erroroutputlevel != kNoErrorLevel) {
    saved_error_level_ = parser.SetErrorOutputLevel(function.erroroutputlevel);
  }
  parser.variables().PushLocalVars(&locals);
}

FunctionState::~FunctionState() {
  // Left by an error, without ExitState.
  if (scope_pushed_) parser().variables().PopLocalVars();
}

StateResult FunctionState::OnClose() {
  parser().functionreturnvalue().clear();
  return StateResult::Finished;
}

StateResult FunctionState::OnOwnTag(Tag& tag) {
  parser().functionreturnvalue() = tag.Value("VALUE");
  return StateResult::Finished;
}

StateResult FunctionState::ExitState() {
  parser().GoTo(return_place_);
  parser().SetStandardOutputLevel(saved_output_level_);
  parser().SetErrorOutputLevel(saved_error_level_);
  parser().variables().PopLocalVars();
  scope_pushed_ = false;
  return StateResult::Handled;
}

}  // namespace vexa
