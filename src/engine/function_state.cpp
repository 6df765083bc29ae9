// Entering and leaving a function.

#include "engine/function_state.h"

#include "engine/script_parser.h"
#include "tags/tag_numbers.h"

namespace vexa {

FunctionState::FunctionState(ScriptParser& parser, const Function& function, VariableTree& locals)
    : ScriptState(parser), return_place_(parser.CurrentPlace()) {
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

StateResult FunctionState::ProcessTag(Tag& tag) {
  switch (tag.id()) {
    case kTagVxFUNCRETURN:
      parser().functionreturnvalue() = tag.Value("VALUE");
      return StateResult::Finished;
    case kTagVxFUNCTIONClose:
      parser().functionreturnvalue().clear();
      return StateResult::Finished;
    default:
      return ScriptState::ProcessTag(tag);
  }
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
