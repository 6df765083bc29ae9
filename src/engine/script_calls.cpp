// Calls of functions: finding them, entering and leaving them, and the depth limit.

#include <algorithm>
#include <utility>

#include "core/number.h"
#include "core/text.h"
#include "engine/function_declaration.h"
#include "engine/function_state.h"
#include "engine/script_parser.h"
#include "engine/stack_guard.h"
#include "expr/builtin_call.h"
#include "expr/builtin_table.h"

namespace vexa {

bool ScriptParser::FindFunction(std::string_view name, const Callable*& function) {
  function = FindBuiltin(name);
  if (function == nullptr) function = functions_.Find(name);
  if (function != nullptr || scanning_) return true;
  if (!ScanForFunction(name)) return false;
  function = functions_.Find(name);
  return true;
}

// Registers the functions declared further down, up to and including the one called `name`, and
// comes back. False after an error was reported.
bool ScriptParser::ScanForFunction(std::string_view name) {
  const WantedTag declarations[] = {{tags().WithFlag(kDeclaresFunction)->id, 0}};
  SourcePlace noted = CurrentPlace();
  scanning_ = true;
  std::unique_ptr<Tag> found;
  Scanned result = FindTag(found, declarations);
  while (result == Scanned::Done) {
    bool wanted = EqualsIgnoreCase(found->Value("NAME"), name);
    bool declared = ValidateTag(*found) && DeclareFunction(*this, *found) != StateResult::Failed;
    if (!declared) result = Scanned::Failed;
    if (!declared || wanted) break;
    result = FindTag(found, declarations);
  }
  scanning_ = false;
  GoTo(noted);
  return result != Scanned::Failed;
}

bool ScriptParser::CallFunction(const Callable& function, std::span<String> arguments,
                                String& result) {
  if (function.builtin()) {
    result.clear();
    const auto& builtin = static_cast<const BuiltinFunction&>(function);
    return builtin.handler()(BuiltinCall(*this, arguments, result));
  }
  return CallOwnFunction(static_cast<const Function&>(function), arguments, result);
}

bool ScriptParser::CallOwnFunction(const Function& function, std::span<String> arguments,
                                   String& result) {
  if (!PushFunctionCall()) return false;
  VariableTree locals;
  for (size_t i = 0; i < arguments.size(); ++i) {
    locals.Insert(std::make_unique<Variable>(function.parameters()[i], std::move(arguments[i])));
  }
  const size_t noted = states_.size();
  TextFilter* filter = SwitchTextFilter(nullptr);
  AddState(std::make_unique<FunctionState>(*this, function, locals));
  function_return_value_.clear();
  Progress progress = Progress::More;
  while (progress == Progress::More && states_.size() > noted) progress = FindNextTag();
  PopFunctionCall();
  SwitchTextFilter(filter);
  if (exiting_) return false;
  if (progress == Progress::EndOfFile) ReportOpenBlock();
  DropStates(noted);
  result = std::move(function_return_value_);
  function_return_value_.clear();
  return progress == Progress::More;
}

bool ScriptParser::PushFunctionCall() {
  // The depth stays as it is on failure, on purpose: the script ends with this error.
  ++depth_;
  if (depth_ <= host_.config().maxfunctiondepth && !StackIsLow()) return true;
  String limit = PrintInteger(host_.config().maxfunctiondepth);
  (void)errors_.Error(
      kDepthError,
      vexa::RuntimeError(CurrentErrorPlace(),
                         String::Concat({"The maximum number of nested function calls (", limit,
                                         ") has been exceeded"})));
  return false;
}

void ScriptParser::TakeOver(const Inheritance& inherited) {
  errors_.CopySettings(inherited.errors);
  output_ = inherited.output;
  depth_ = inherited.depth;
  watchers_ = inherited.watchers;
}

bool ScriptParser::EvaluateText(std::string_view text, String& value) {
  const bool in_use = std::exchange(running_, true);
  // A script that ran before stands at its end, where no function can be found.
  if (!in_use) GoTo({});
  Expression expression;
  bool evaluated = expression.ReadText(text, *this) && expression.Evaluate(*this, value);
  running_ = in_use;
  if (in_use || !exiting_) return evaluated;
  // The script ended, but its functions can be called again.
  exiting_ = false;
  left_states_.clear();
  value.clear();
  return true;
}

}  // namespace vexa
