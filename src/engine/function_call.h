// FunctionCall: a call of one of the script's own functions: its local scope, the block that its
// body is, and the way back.
//
//   Begin -> body -> return or closing tag -> Leave: the caller's place, levels and scope are back
//
// A call that is over waits in its function for the next one, with its variables, so that a call
// costs no storage; what further variables were made in is let go.

#ifndef VEXA_ENGINE_FUNCTION_CALL_H_
#define VEXA_ENGINE_FUNCTION_CALL_H_

#include <cstddef>
#include <memory>
#include <span>
#include <utility>
#include <vector>

#include "core/source_place.h"
#include "core/variables.h"
#include "engine/block_state.h"

namespace vexa {

class Function;
class FunctionCall;

// Calls of one function that are over and wait to be begun again. Owns them.
class WaitingCalls {
 public:
  // One of them, owned by the caller; null when none waits.
  [[nodiscard]] FunctionCall* Take();
  // Takes `call` over; false when enough wait already.
  [[nodiscard]] bool Put(FunctionCall* call);

 private:
  // More wait only after a deep recursion.
  static constexpr int kMost = 64;

  std::unique_ptr<FunctionCall> first_;
  int count_ = 0;
};

// Output levels that mean "the function has none of its own".
inline constexpr int kNoOutputLevel = 255;
inline constexpr unsigned kNoErrorLevel = 0x7F000000;

class FunctionCall final : public BlockState {
 public:
  // Both are borrowed.
  FunctionCall(ScriptParser& script, Function& function);

  // Moves the arguments in, one for each parameter, makes them the local scope, and stands at the
  // function's body. `result` is empty until the function gives something back; it must live until
  // the call is left.
  void Begin(std::span<ScriptValue> arguments, ScriptValue& result);
  // Stands where the call was made.
  void Leave();
  // What the function gives back.
  [[nodiscard]] ScriptValue& result() { return *result_; }

  [[nodiscard]] StateResult ExitState() override;
  void LetGo() override;
  [[nodiscard]] bool is_function() const override { return true; }

 protected:
  [[nodiscard]] StateResult OnClose() override;
  [[nodiscard]] StateResult OnOwnTag(Tag& tag) override;

 private:
  friend class WaitingCalls;

  // Whether the call may be begun again. Lets go of long arguments.
  [[nodiscard]] bool IsReusable();

  Function& function_;
  VariableTree locals_;
  std::vector<Variable*> parameters_;  // in their order; a name that stands twice is one variable
  size_t parameter_variables_ = 0;     // how many they are
  ScriptValue* result_ = nullptr;
  SourcePlace return_place_;
  // What the call gives back when it ends. A function without levels of its own gives back these
  // "none" values, so that the page then has every output bit set: on purpose, pages rely on it.
  int saved_output_level_ = kNoOutputLevel;
  unsigned saved_error_level_ = kNoErrorLevel;
  bool scope_pushed_ = false;
  std::unique_ptr<FunctionCall> next_;  // while it waits
};

inline FunctionCall* WaitingCalls::Take() {
  FunctionCall* const call = first_.release();
  if (call == nullptr) return nullptr;
  first_ = std::move(call->next_);
  --count_;
  return call;
}

inline bool WaitingCalls::Put(FunctionCall* call) {
  if (count_ == kMost) return false;
  call->next_ = std::move(first_);
  first_.reset(call);
  ++count_;
  return true;
}

}  // namespace vexa

#endif  // VEXA_ENGINE_FUNCTION_CALL_H_
