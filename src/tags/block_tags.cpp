// Conditionals and loops. IF and WHILE are the legacy spellings; they close only their own kind.
//
//   IF:     as BranchState draws it; VxELSE divides the branches
//   WHILE:  condition true  -> body runs -> closing tag -> condition again, from the file
//           condition false, or a stop tag -> skip to the closing tag

#include <memory>
#include <utility>

#include "engine/block_state.h"
#include "engine/script_parser.h"
#include "expr/expression.h"
#include "tags/handlers.h"
#include "tags/tag_numbers.h"

namespace vexa {

namespace {

constexpr WantedTag kOtherwise[] = {
    {kTagVxIF, kTagVxIFClose}, {kTagVxIFClose, 0}, {kTagVxELSE, -1}};
constexpr WantedTag kLegacyOtherwise[] = {{kTagIF, kTagIFClose}, {kTagIFClose, 0}};
// A branch that ends early looks for the end of either spelling, on purpose: pages mix them.
constexpr WantedTag kEnds[] = {
    {kTagIF, kTagIFClose}, {kTagIFClose, 0}, {kTagVxIF, kTagVxIFClose}, {kTagVxIFClose, 0}};

class WHILEState final : public LoopState {
 public:
  explicit WHILEState(const TagCall& call)
      : LoopState(call),
        condition_(call.tag().deferred(),
                   IsLegacy() ? ValueForm::Body : ValueForm::ExpressionAttribute) {
    if (!IsLegacy()) condition_name_ = Variables::Scope(call.Only().name);
  }

  // Evaluates the condition.
  [[nodiscard]] StateResult Continue() override {
    ScriptValue value;
    if (!parser().EvaluateAt(condition_, value)) return StateResult::Failed;
    const bool holds = value.IsTrue();
    if (!IsLegacy() && parser().Assign(opener(), condition_name_.name(), std::move(value)) ==
                           StateResult::Failed) {
      return StateResult::Failed;
    }
    return holds ? StateResult::Handled : StateResult::Finished;
  }

  [[nodiscard]] SourcePlace* TryRepeat(const TagRow& closing) override {
    const bool mine = closing.id == opener().closing_id;
    return mine && parser().TryCondition(condition_, condition_name_) ? &body() : nullptr;
  }

 private:
  [[nodiscard]] bool IsLegacy() const { return opener().id == kTagWHILE; }

  DeferredExpression condition_;
  KnownName condition_name_;  // the variable that receives the condition's value
};

}  // namespace

constinit const BranchSkips kVxIFSkips = {kOtherwise, kEnds};
constinit const BranchSkips kIFSkips = {kLegacyOtherwise, kEnds};

StateResult ProcessVxIF(TagCall& call) {
  const NameValuePair& condition = call.Only();
  if (!condition.name.empty() && call.AssignOnly() == StateResult::Failed) {
    return StateResult::Failed;
  }
  auto state = std::make_unique<BranchState>(call.script(), call.row());
  const StateResult result = state->Choose(condition.value);
  if (result == StateResult::Handled) return call.Enter(std::move(state));
  return result == StateResult::Finished ? StateResult::Handled : result;
}

StateResult ProcessVxWHILE(TagCall& call) {
  auto state = std::make_unique<WHILEState>(call);
  const StateResult result = state->Continue();
  if (result == StateResult::Handled) return call.Enter(std::move(state));
  return result == StateResult::Finished ? state->ExitState() : result;
}

}  // namespace vexa
