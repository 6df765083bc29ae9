// FunctionState: a call of one of the script's own functions in progress. Built, it stands at the
// function's body with the arguments as the local scope; left, it stands where the call was made.

#ifndef VEXA_ENGINE_FUNCTION_STATE_H_
#define VEXA_ENGINE_FUNCTION_STATE_H_

#include "core/variables.h"
#include "engine/block_state.h"
#include "engine/function.h"

namespace vexa {

class FunctionState final : public BlockState {
 public:
  // `locals` holds the arguments under the parameters' names; both are borrowed.
  FunctionState(ScriptParser& parser, const Function& function, VariableTree& locals);
  ~FunctionState() override;

  [[nodiscard]] StateResult ExitState() override;
  [[nodiscard]] bool is_function() const override { return true; }

 protected:
  [[nodiscard]] StateResult OnClose() override;
  [[nodiscard]] StateResult OnOwnTag(Tag& tag) override;

 private:
  SourcePlace return_place_;
  // What the call gives back when it ends. A function without levels of its own gives back these
  // "none" values, so that the page then has every output bit set: on purpose, pages rely on it.
  int saved_output_level_ = kNoOutputLevel;
  unsigned saved_error_level_ = kNoErrorLevel;
  bool scope_pushed_ = true;
};

}  // namespace vexa

#endif  // VEXA_ENGINE_FUNCTION_STATE_H_
