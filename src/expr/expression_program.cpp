// Evaluation of ExpressionProgram: the stack, the steps, and appending in place.
//
// The stack keeps its values in storage that is not touched until a value is pushed, since most
// expressions hold one or two; beyond a few it takes storage from the heap once. The value at the
// bottom is the caller's result, so the last step leaves it where it is wanted; where functions are
// called it has a slot like the others, so that arguments stand in a row. Of every step it holds
// that the stack has as many values afterwards as Finish() counted; what a failed step leaves is
// destroyed with the stack.

#include "expr/expression_program.h"

#include <algorithm>
#include <cassert>
#include <memory>
#include <new>

#include "core/number.h"
#include "expr/key_rule.h"

namespace vexa {

namespace {

// The value of a leaf. `room` is where the value of a variable that computes it is put. Valid until
// the next operation on the variables.
const ScriptValue& ValueOf(const ExpressionProgram::Leaf& leaf, Variables& variables,
                           ScriptValue& room) {
  if (!leaf.variable) return leaf.constant;
  Variable* variable = leaf.variable.Find(variables);
  if (variable == nullptr) {
    room.clear();
    return room;
  }
  if (variable->plain()) [[likely]]
    return variable->plain_value();
  room = variable->value();
  return room;
}

}  // namespace

// --- Putting it together ---------------------------------------------------------------------

uint32_t ExpressionProgram::AddConstant(std::string_view text) {
  leaves_.push_back({text, {}});
  // Looked at now, so that it is never looked at while it is evaluated.
  (void)leaves_.back().constant.IsNumber();
  return static_cast<uint32_t>(leaves_.size() - 1);
}

uint32_t ExpressionProgram::AddVariable(std::string_view name) {
  leaves_.push_back({{}, Variables::Scope(name)});
  return static_cast<uint32_t>(leaves_.size() - 1);
}

uint32_t ExpressionProgram::AddCall(std::string_view name, uint32_t argument_count) {
  calls_.push_back({name, Symbol(name), FindBuiltin(name), argument_count, nullptr, 0, kNone});
  return static_cast<uint32_t>(calls_.size() - 1);
}

uint32_t ExpressionProgram::ValuesBehind(const Step& step, uint32_t values) const {
  switch (step.action) {
    case Action::Push:
    case Action::PushEmpty:
      return values + 1;
    case Action::Operate:
      return values + (step.left != kStack ? 1 : 0) - (step.right == kStack ? 1 : 0);
    case Action::CheckCall:
      return values;
    case Action::Call:
      return values - calls_[step.left].argument_count + 1;
  }
  return values;
}

void ExpressionProgram::Finish() {
  uint32_t values = 0;
  uint32_t functions = 0;
  for (const Step& step : steps_) {
    values = ValuesBehind(step, values);
    if (step.action == Action::CheckCall) ++functions;
    if (step.action == Action::Call) --functions;
    assert(values > 0 || step.action == Action::CheckCall);
    most_values_ = std::max(most_values_, values);
    most_functions_ = std::max(most_functions_, functions);
  }
  assert(values == (steps_.empty() ? 0 : 1) && functions == 0);
  // `a $ b $ c`: the first step takes the variable and what follows it, the others the stack.
  appends_ = !steps_.empty() && !leaves_.empty() && leaves_[0].variable;
  for (size_t i = 0; i < steps_.size(); ++i) {
    const Step& step = steps_[i];
    appends_ = appends_ && step.action == Action::Operate &&
               step.op->code == OperatorCode::Concatenate && step.right < kNone &&
               step.left == (i == 0 ? 0 : kStack);
  }
  FindWholeForm();
  only_call_ = calls_.size() == 1 && steps_.size() >= 2 &&
               calls_[0].argument_count <= kFewArguments &&
               steps_.size() == size_t{calls_[0].argument_count} + 2 &&
               steps_[0].action == Action::CheckCall && steps_.back().action == Action::Call;
  for (size_t i = 1; i + 1 < steps_.size(); ++i) {
    only_call_ = only_call_ && steps_[i].action == Action::Push;
  }
  if (!only_call_ && !calls_.empty()) FindLookedAt();
}

// A call whose arguments are leaves: they go straight to where the function takes them from.
template <size_t kMost>
bool ExpressionProgram::EvaluateOnlyCall(ExpressionContext& context, Variables& variables,
                                         ScriptValue& result) const {
  const CallSite& call = calls_[0];
  const Callable* function = FindCallee(call, context);
  if (function == nullptr) return false;
  const bool looks = call.builtin != nullptr && call.builtin->Has(kLooksAtFirst);
  const ScriptValue* first = nullptr;  // left where it is
  ScriptValue arguments[kMost];
  for (size_t i = 0; i < call.argument_count; ++i) {
    const ScriptValue& value = ValueOf(leaves_[steps_[i + 1].left], variables, arguments[i]);
    if (&value == &arguments[i]) continue;
    if (i == 0 && looks) {
      first = &value;
    } else {
      arguments[i] = value;
    }
  }
  const std::span<ScriptValue> values(arguments, call.argument_count);
  if (call.builtin == nullptr) return context.CallFunction(*function, values, result);
  result.clear();
  return call.builtin->handler()(BuiltinCall(context, values, result, first));
}

// A leaf that is the first argument of a built-in which only looks at it is looked at when the call
// is made, unless a function is called between that may change a variable: one of the script or of
// a package, or a built-in that does more than compute. Such a call alone is EvaluateOnlyCall's.
//
// The calls that wait for their arguments have ever more values before them. So the ones for which
// a step counts as (the end of) the first argument are the last of those that may still look.
void ExpressionProgram::FindLookedAt() {
  struct Waiting {
    size_t call_step;
    uint32_t values_before;
  };
  std::vector<Waiting> waiting;
  std::vector<size_t> looking;  // those of them for which the step behind may be all of it
  uint32_t values = 0;
  const auto change_first = [&] {
    while (!looking.empty() && values == waiting[looking.back()].values_before + 1) {
      looking.pop_back();
    }
  };
  for (size_t i = 0; i < steps_.size(); ++i) {
    const Step& step = steps_[i];
    values = ValuesBehind(step, values);
    switch (step.action) {
      case Action::Push:
      case Action::PushEmpty:
        break;
      case Action::Operate:
        change_first();
        break;
      case Action::CheckCall: {
        const BuiltinFunction* builtin = calls_[step.left].builtin;
        if (builtin != nullptr && builtin->Has(kLooksAtFirst) && i + 1 < steps_.size() &&
            steps_[i + 1].action == Action::Push) {
          looking.push_back(waiting.size());
        }
        waiting.push_back({i, values});
        break;
      }
      case Action::Call: {
        const size_t call_step = waiting.back().call_step;
        waiting.pop_back();
        CallSite& site = calls_[step.left];
        if (!looking.empty() && looking.back() == waiting.size()) {
          looking.pop_back();
          Step& push = steps_[call_step + 1];
          site.looked_at = push.left;
          push.action = Action::PushEmpty;
        }
        if (site.builtin == nullptr || site.builtin->Has(kNotInKeys)) looking.clear();
        change_first();
        break;
      }
    }
  }
}

void ExpressionProgram::FindWholeForm() {
  if (steps_.size() != 1) return;
  const Step& step = steps_[0];
  if (step.action != Action::Operate || step.left >= kNone || step.right >= kNone) return;
  WholeNumberForm::Operand operands[2];
  for (size_t i = 0; i < 2; ++i) {
    const Leaf& leaf = leaves_[i == 0 ? step.left : step.right];
    operands[i].variable = leaf.variable;
    if (operands[i].variable) continue;
    if (!leaf.constant.IsWhole()) return;
    operands[i].constant = leaf.constant.mantissa();
  }
  whole_ = {step.op->code, operands[0], operands[1]};
}

const BuiltinFunction* ExpressionProgram::FindBuiltinWith(BuiltinFlag flag) const {
  for (const CallSite& call : calls_) {
    if (call.builtin != nullptr && call.builtin->Has(flag)) return call.builtin;
  }
  return nullptr;
}

void ExpressionProgram::AppendConstants(std::vector<String>& constants) const {
  for (const Leaf& leaf : leaves_) {
    if (!leaf.variable) constants.push_back(leaf.constant.text());
  }
}

bool ExpressionProgram::CallsScript() const {
  return std::any_of(calls_.begin(), calls_.end(),
                     [](const CallSite& call) { return call.builtin == nullptr; });
}

size_t ExpressionProgram::storage_bytes() const {
  size_t size = leaves_.capacity() * sizeof(Leaf) + steps_.capacity() * sizeof(Step) +
                calls_.capacity() * sizeof(CallSite);
  for (const Leaf& leaf : leaves_) size += leaf.constant.text_size();
  for (const CallSite& call : calls_) size += call.name.storage_bytes();
  return size;
}

// --- Evaluating ------------------------------------------------------------------------------

// The values and waiting functions of one evaluation.
class ExpressionProgram::Stack {
 public:
  Stack(const ExpressionProgram& program, Variables& variables, ScriptValue& result)
      : variables_(variables), result_(result), bottom_in_slot_(program.Calls()) {
    if (program.most_values_ > kFew) {
      many_values_ = std::make_unique<Slot[]>(program.most_values_);
      slots_ = many_values_.get();
    }
    if (program.most_functions_ > kFew) {
      many_functions_ = std::make_unique<const Callable*[]>(program.most_functions_);
      functions_ = many_functions_.get();
    }
  }
  ~Stack() {
    while (count_ > 0) Drop();
  }
  Stack(const Stack&) = delete;
  Stack& operator=(const Stack&) = delete;

  [[nodiscard]] Variables& variables() const { return variables_; }
  // A new value on top: some value, to be assigned.
  ScriptValue& Push() {
    if (count_++ == 0 && !bottom_in_slot_) return result_;
    return *new (slots_[count_ - 1].bytes) ScriptValue();
  }
  // REQUIRES of the rest: there are that many.
  [[nodiscard]] ScriptValue& Top(size_t below = 0) {
    assert(count_ > below);
    const size_t i = count_ - 1 - below;
    return i == 0 && !bottom_in_slot_ ? result_ : InSlot(i);
  }
  void Drop() {
    assert(count_ > 0);
    if (--count_ > 0 || bottom_in_slot_) InSlot(count_).~ScriptValue();
  }
  // The values on top as neighbours, for a program that calls.
  [[nodiscard]] std::span<ScriptValue> Arguments(size_t count) {
    assert(bottom_in_slot_ && count <= count_);
    if (count == 0) return {};
    return {&InSlot(count_ - count), count};
  }
  // Replaces them by `value`.
  void ReplaceArguments(size_t count, ScriptValue&& value) {
    for (size_t i = 0; i < count; ++i) Drop();
    new (slots_[count_++].bytes) ScriptValue(std::move(value));
  }
  // The one value that is left is the result.
  void Finish() {
    assert(count_ == 1);
    if (bottom_in_slot_) result_ = std::move(Top());
  }
  void PushFunction(const Callable* function) { functions_[function_count_++] = function; }
  const Callable* PopFunction() {
    assert(function_count_ > 0);
    return functions_[--function_count_];
  }

 private:
  static constexpr size_t kFew = 6;
  struct Slot {
    alignas(ScriptValue) unsigned char bytes[sizeof(ScriptValue)];
  };

  [[nodiscard]] ScriptValue& InSlot(size_t i) {
    return *std::launder(reinterpret_cast<ScriptValue*>(slots_[i].bytes));
  }

  Variables& variables_;
  ScriptValue& result_;  // the value at the bottom when that is in no slot
  const bool bottom_in_slot_;
  size_t count_ = 0;
  size_t function_count_ = 0;
  Slot few_values_[kFew];
  Slot* slots_ = few_values_;  // the values by their number
  const Callable* few_functions_[kFew];
  const Callable** functions_ = few_functions_;
  std::unique_ptr<Slot[]> many_values_;
  std::unique_ptr<const Callable*[]> many_functions_;
};

bool ExpressionProgram::Evaluate(ExpressionContext& context, ScriptValue& result) const {
  assert(!leaves_.empty() || !steps_.empty());
  Variables& variables = context.host().vars();
  if (steps_.empty()) {
    const ScriptValue& value = ValueOf(leaves_[0], variables, result);
    if (&value != &result) result = value;
    return true;
  }
  if (int64_t whole; whole_.Compute(variables, whole)) {
    result.SetWhole(whole);
    return true;
  }
  if (only_call_) {
    return calls_[0].argument_count <= 1
               ? EvaluateOnlyCall<1>(context, variables, result)
               : EvaluateOnlyCall<kFewArguments>(context, variables, result);
  }
  Stack stack(*this, variables, result);
  if (!Run(context, stack)) return false;
  stack.Finish();
  return true;
}

bool ExpressionProgram::Run(ExpressionContext& context, Stack& stack) const {
  for (const Step& step : steps_) {
    switch (step.action) {
      case Action::Push: {
        ScriptValue& top = stack.Push();
        const ScriptValue& value = ValueOf(leaves_[step.left], stack.variables(), top);
        if (&value != &top) top = value;
        break;
      }
      case Action::PushEmpty:
        stack.Push().clear();
        break;
      case Action::Operate:
        if (!OperateOn(step, context, stack)) return false;
        break;
      case Action::CheckCall: {
        const Callable* function = FindCallee(calls_[step.left], context);
        if (function == nullptr) return false;
        stack.PushFunction(function);
        break;
      }
      case Action::Call:
        if (!Call(calls_[step.left], context, stack)) return false;
        break;
    }
  }
  return true;
}

bool ExpressionProgram::OperateOn(const Step& step, ExpressionContext& context,
                                  Stack& stack) const {
  ScriptValue room;
  if (step.left == kStack) {
    const bool both = step.right == kStack;
    ScriptValue& left = stack.Top(both ? 1 : 0);
    const ScriptValue& right = both ? stack.Top()
                               : step.right == kNone
                                   ? room
                                   : ValueOf(leaves_[step.right], stack.variables(), room);
    // What was computed is known to be a number; texts are mostly appended to.
    const bool numbers = step.right != kNone && left.IsKnownNumber() && right.IsNumber();
    const bool done = (numbers && OperateOnNumbers(step.op->code, left, right, left)) ||
                      Operate(*step.op, context, left, right);
    if (both) stack.Drop();
    return done;
  }
  // The left one is copied before the right one is looked at: a computed value lives only so long.
  ScriptValue& left = stack.Push();
  const ScriptValue& value = ValueOf(leaves_[step.left], stack.variables(), left);
  if (step.right < kNone && value.IsNumber()) {
    const ScriptValue& right = ValueOf(leaves_[step.right], stack.variables(), room);
    if (right.IsNumber() && OperateOnNumbers(step.op->code, value, right, left)) return true;
    if (&value != &left) left = value;
    return Operate(*step.op, context, left, right);
  }
  if (&value != &left) left = value;
  const ScriptValue& right =
      step.right == kNone ? room : ValueOf(leaves_[step.right], stack.variables(), room);
  return Operate(*step.op, context, left, right);
}

// The function; null after an error was reported.
const Callable* ExpressionProgram::FindCallee(const CallSite& call, ExpressionContext& context) {
  if (call.noted != nullptr && call.noted_in == context.script_number()) return call.noted;
  const Callable* function = call.builtin;
  if (function == nullptr && !context.FindFunction(call.symbol, function)) return nullptr;
  if (function == nullptr) {
    context.ReportExpressionError(String::Concat({"Call to undefined function '", call.name, "'"}));
    return nullptr;
  }
  if (call.builtin != nullptr && call.builtin->Has(kNotInKeys)) {
    if (const String* const index = context.host().keyindex()) {
      context.ReportExpressionError(NotInKeyMessage(*index, call.builtin->name()));
      return nullptr;
    }
  }
  const int expected = function->parameter_count();
  if (static_cast<uint32_t>(expected) != call.argument_count) {
    context.ReportExpressionError(String::Concat(
        {"Call to function '", call.name, "' expects ", PrintInteger(expected).view(),
         expected == 1 ? " parameter, found " : " parameters, found ",
         PrintInteger(call.argument_count).view()}));
    return nullptr;
  }
  // No script loses a function; one of a package gives way to a script's own.
  if (function->kind() == Callable::Kind::OfScript && context.script_number() != 0) {
    call.noted = function;
    call.noted_in = context.script_number();
  }
  return function;
}

bool ExpressionProgram::CallIt(const CallSite& call, const Callable& function,
                               ExpressionContext& context, std::span<ScriptValue> arguments,
                               ScriptValue& result) {
  return call.builtin != nullptr ? call.builtin->handler()(BuiltinCall(context, arguments, result))
                                 : context.CallFunction(function, arguments, result);
}

bool ExpressionProgram::Call(const CallSite& call, ExpressionContext& context, Stack& stack) const {
  const Callable& function = *stack.PopFunction();
  ScriptValue result;
  const std::span<ScriptValue> arguments = stack.Arguments(call.argument_count);
  bool done;
  if (call.looked_at == kNone) {
    done = CallIt(call, function, context, arguments, result);
  } else {
    const ScriptValue& first = ValueOf(leaves_[call.looked_at], stack.variables(), arguments[0]);
    done = call.builtin->handler()(BuiltinCall(context, arguments, result, &first));
  }
  stack.ReplaceArguments(call.argument_count, std::move(result));
  return done;
}

bool ExpressionProgram::TryAppend(ExpressionContext& context, const KnownName& target) const {
  if (!appends_ || !UseShortcuts()) return false;
  Variables& variables = context.host().vars();
  Variable* variable = leaves_[0].variable.FindPlain(variables);
  if (variable == nullptr || target.FindPlain(variables) != variable) return false;
  for (size_t i = 1; i < leaves_.size(); ++i) {
    // What is read behind it must be what it was before.
    if (leaves_[i].variable && leaves_[i].variable.FindPlain(variables) == variable) {
      return false;
    }
  }
  ScriptValue room;
  String& text = variable->plain_value().MutableText();
  for (const Step& step : steps_) {
    const String& piece = ValueOf(leaves_[step.right], variables, room).text();
    AppendPiece(text, piece);
  }
  return true;
}

}  // namespace vexa
