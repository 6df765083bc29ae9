// Calls of functions: finding them, entering and leaving them, and the depth limit.
//
// A call of one of the script's own functions:
//   1. goes one deeper, if the site and the machine's stack allow it;
//   2. pushes a FunctionCall, which makes the arguments the local scope and stands at the body;
//   3. scans on from there until that state is gone: the return or closing tag noted the value and
//      went back to the place of the call.
// A function that is not known yet is looked for further down, with everything on the way noted.

#include <sys/resource.h>

#include <algorithm>
#include <cstdint>
#include <utility>

#include "core/number.h"
#include "core/text.h"
#include "engine/function.h"
#include "engine/script_parser.h"
#include "expr/builtin_call.h"
#include "expr/builtin_table.h"

namespace vexa {

namespace {

constexpr uintptr_t kAssumedStack = 8u << 20;  // bytes, where the system sets no limit
constexpr uintptr_t kReserve = 512u << 10;     // bytes kept for what one more call may need

// Below this address less than a safe reserve of the machine's stack is left. The stack grows down
// from roughly `top`, where the first question was asked.
uintptr_t LowestAddress(uintptr_t top) {
  rlimit limit{};
  const bool known = getrlimit(RLIMIT_STACK, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY;
  const uintptr_t size = known ? limit.rlim_cur : kAssumedStack;
  const uintptr_t usable = size - std::min(2 * kReserve, size / 2);
  return usable < top ? top - usable : 1;
}

uintptr_t lowest_address = 0;  // 0: not asked yet

// A site may allow deeper calls than the stack can carry; the depth error is then raised earlier
// instead of a crash.
inline bool StackIsLow() {
  // Not the address of a local: checking tools may keep locals elsewhere.
  const auto now = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
  if (lowest_address == 0) [[unlikely]]
    lowest_address = LowestAddress(now);
  return now < lowest_address;
}

}  // namespace

bool ScriptParser::FindFunction(Symbol symbol, const Callable*& function) {
  // No function of a script has the name of a built-in.
  function = FindOwnFunction(symbol);
  if (function == nullptr) function = FindBuiltin(symbol.text());
  if (function != nullptr || scanning_) return true;
  if (!ScanForFunction(symbol.text())) return false;
  function = FindOwnFunction(symbol);
  return function != nullptr || host_.FindPackageFunction(symbol.text(), *this, function);
}

// Registers the functions declared further down, up to and including the one called `name`, and
// comes back. False after an error was reported.
bool ScriptParser::ScanForFunction(std::string_view name) {
  const WantedTag declarations[] = {{tags().WithFlag(kDeclaresFunction)->id, 0}};
  SourcePlace noted = CurrentPlace();
  scanning_ = true;
  std::unique_ptr<Tag> found;
  // What is remembered of the place that is left says nothing of those that are read here.
  const auto find = [&] {
    next_ = nullptr;
    return FindTag(found, declarations);
  };
  Scanned result = find();
  while (result == Scanned::Done) {
    bool wanted = EqualsIgnoreCase(found->Value("NAME"), name);
    bool declared = ValidateTag(*found) && DeclareFunction(*this, *found) != StateResult::Failed;
    if (!declared) result = Scanned::Failed;
    if (!declared || wanted) break;
    result = find();
  }
  scanning_ = false;
  GoTo(noted);
  return result != Scanned::Failed;
}

bool ScriptParser::CallFunction(const Callable& function, std::span<ScriptValue> arguments,
                                ScriptValue& result) {
  if (function.kind() == Callable::Kind::OfScript) [[likely]] {
    // Its own functions are the script's to change: it notes what it remembers of their bodies.
    return CallOwnFunction(const_cast<Function&>(static_cast<const Function&>(function)), arguments,
                           result);
  }
  if (function.kind() == Callable::Kind::OfPackage) {
    result.clear();
    if (!PushFunctionCall()) return false;
    const bool done = host_.CallPackageFunction(function, *this, arguments, result);
    PopFunctionCall();
    return done;
  }
  result.clear();
  const auto& builtin = static_cast<const BuiltinFunction&>(function);
  return builtin.handler()(BuiltinCall(*this, arguments, result));
}

bool ScriptParser::CallOwnFunction(Function& function, std::span<ScriptValue> arguments,
                                   ScriptValue& result) {
  if (!PushFunctionCall()) return false;
  const size_t noted = states_.size();
  TextFilter* filter = SwitchTextFilter(nullptr);
  const size_t outer = std::exchange(function_state_, noted);
  FunctionCall* call = function.waiting_calls().Take();
  if (call == nullptr) call = new FunctionCall(*this, function);
  states_.emplace_back(call);
  call->Begin(arguments, result);
  Progress progress = Progress::More;
  while (progress == Progress::More && states_.size() > noted) progress = FindNextTag();
  PopFunctionCall();
  SwitchTextFilter(filter);
  function_state_ = outer;
  if (exiting_) return false;
  if (progress == Progress::EndOfFile) ReportOpenBlock(*states_.back());
  DropStates(noted);
  return progress == Progress::More;
}

bool ScriptParser::PushFunctionCall() {
  // The depth stays as it is on failure, on purpose: the script ends with this error.
  ++depth_;
  const bool allowed = depth_ <= host_.config().maxfunctiondepth && !StackIsLow();
  return allowed || ReportDepth();
}

// Always false.
bool ScriptParser::ReportDepth() {
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
