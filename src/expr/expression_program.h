// ExpressionProgram: a finished expression, ready to be evaluated as often as wanted.
//
// Since both sides of every operator are always evaluated, the order of evaluation never depends on
// values. It is a list of steps over a stack of values:
//
//   Push       puts the value of a leaf (a constant or a variable) on the stack
//   PushEmpty  puts the empty text there, for an operator without a left side
//   Operate    replaces the operands of an operator by its result
//   CheckCall  looks a function up, before its arguments are evaluated
//   Call       replaces the arguments of a function by its result
//
// An operand that is a leaf gets no Push when nothing can change it between its turn and the
// operator's: Operate takes it from where it is. That is so for every right leaf, and for a left
// leaf when the right operand is a leaf too, or there is none. So `i + 1` is one step.
//
//   'x' $ f(i + 1)    Push 'x', CheckCall f, Operate + (i, 1), Call f, Operate $ (stack, stack)
//
// A program without steps is a single leaf, the most common expression of all. Constants carry
// their numbers and variables their symbols, so evaluating reads no text twice.

#ifndef VEXA_EXPR_EXPRESSION_PROGRAM_H_
#define VEXA_EXPR_EXPRESSION_PROGRAM_H_

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "core/script_value.h"
#include "core/variables.h"
#include "expr/builtin_table.h"
#include "expr/expression_context.h"
#include "expr/operators.h"
#include "expr/whole_number_form.h"

namespace vexa {

class ExpressionProgram {
 public:
  // A constant or a variable.
  struct Leaf {
    ScriptValue constant;
    KnownName variable;  // no name for a constant
  };
  enum class Action : uint8_t { Push, PushEmpty, Operate, CheckCall, Call };
  // Where an operand is, when it is no leaf.
  static constexpr uint32_t kStack = UINT32_MAX;
  static constexpr uint32_t kNone = UINT32_MAX - 1;  // of a right operand
  // A function that is called, and with how many arguments.
  struct CallSite {
    String name;  // as it was written, for messages
    Symbol symbol;
    const BuiltinFunction* builtin;  // null for a function of the script
    uint32_t argument_count;
    // The function of the script that it meant last, and in which script that was.
    mutable const Callable* noted = nullptr;
    mutable uint64_t noted_in = 0;
    // The leaf that is the first argument when it need not be copied; kNone: it is on the stack.
    uint32_t looked_at = kNone;
  };

  struct Step {
    Action action;
    uint32_t left = kNone;   // Push: the leaf; Operate: a leaf or kStack; calls: the call site
    uint32_t right = kNone;  // Operate: a leaf, kStack or kNone
    const OperatorInfo* op = nullptr;  // of Operate
  };

  // --- Putting it together: leaves and calls first, then the steps in order ------------------

  // Makes room for that many leaves, so that adding them allocates once.
  void Expect(size_t leaves) { leaves_.reserve(leaves); }
  uint32_t AddConstant(std::string_view text);
  uint32_t AddVariable(std::string_view name);
  uint32_t AddCall(std::string_view name, uint32_t argument_count);
  void AddStep(const Step& step) { steps_.push_back(step); }
  // Counts what the steps will hold at most, so that an evaluation never has to look.
  void Finish();

  // --- Evaluating ----------------------------------------------------------------------------

  // False after an error was reported through `context`; `result` is then unspecified. May be
  // entered again while it runs, through the functions it calls. REQUIRES: it is not empty, and
  // `result` is no value of a variable.
  [[nodiscard]] bool Evaluate(ExpressionContext& context, ScriptValue& result) const;
  // Whether TryAppend may ever do so.
  [[nodiscard]] bool appends() const { return appends_; }
  // When the expression is `target $ a $ b ...`, with nothing but constants and other variables
  // behind `target`, and `target` is plain: appends them to its value in place and returns true.
  // Otherwise does nothing.
  [[nodiscard]] bool TryAppend(ExpressionContext& context, const KnownName& target) const;
  // The expression as one step on whole numbers, when it has that form.
  [[nodiscard]] const WholeNumberForm& whole() const { return whole_; }
  // Whether it calls any function.
  [[nodiscard]] bool Calls() const { return !calls_.empty(); }
  // The first built-in that it calls whose row has that flag, or null.
  [[nodiscard]] const BuiltinFunction* FindBuiltinWith(BuiltinFlag flag) const;
  // Appends the texts of all constants.
  void AppendConstants(std::vector<String>& constants) const;
  // Whether it can run a function of the script.
  [[nodiscard]] bool CallsScript() const;
  // The bytes of storage outside the object.
  [[nodiscard]] size_t storage_bytes() const;
  // The text when the expression is one constant and nothing else, else null.
  [[nodiscard]] const ScriptValue* constant() const {
    return steps_.empty() && !leaves_.empty() && !leaves_[0].variable ? &leaves_[0].constant
                                                                      : nullptr;
  }
  // The name when the expression is one variable and nothing else, else null.
  [[nodiscard]] const KnownName* known_variable() const {
    return steps_.empty() && !leaves_.empty() && leaves_[0].variable ? &leaves_[0].variable
                                                                     : nullptr;
  }

 private:
  static constexpr size_t kFewArguments = 4;
  class Stack;

  void FindWholeForm();
  void FindLookedAt();
  // How many values the stack holds behind a step that begins with so many.
  [[nodiscard]] uint32_t ValuesBehind(const Step& step, uint32_t values) const;
  bool Run(ExpressionContext& context, Stack& stack) const;
  bool OperateOn(const Step& step, ExpressionContext& context, Stack& stack) const;
  // Of at most that many arguments: those that are never used cost time too.
  template <size_t kMost>
  bool EvaluateOnlyCall(ExpressionContext& context, Variables& variables,
                        ScriptValue& result) const;
  static const Callable* FindCallee(const CallSite& call, ExpressionContext& context);
  static bool CallIt(const CallSite& call, const Callable& function, ExpressionContext& context,
                     std::span<ScriptValue> arguments, ScriptValue& result);
  bool Call(const CallSite& call, ExpressionContext& context, Stack& stack) const;

  std::vector<Leaf> leaves_;
  std::vector<Step> steps_;
  std::vector<CallSite> calls_;
  uint32_t most_values_ = 0;     // how many values an evaluation holds at most
  uint32_t most_functions_ = 0;  // how many calls wait for their arguments at most
  bool appends_ = false;         // whether it has the shape that TryAppend looks for
  WholeNumberForm whole_;
  bool only_call_ = false;  // whether it is a call of a function with a few leaves
};

}  // namespace vexa

#endif  // VEXA_EXPR_EXPRESSION_PROGRAM_H_
