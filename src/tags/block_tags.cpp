// Conditionals and loops. IF and WHILE are the legacy spellings; they close only their own kind.
//
//   IF:     condition true  -> branch runs -> its closing tag, or VxELSE, which skips to it
//           condition false -> skip to VxELSE (branch runs) or to the closing tag (block done)
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

class IFState final : public BlockState {
 public:
  explicit IFState(const TagCall& call) : BlockState(call) {}

  // Starts the block whose condition is `value`. Handled: a branch runs; Finished: the block is
  // already complete; Failed.
  [[nodiscard]] StateResult Continue(const ScriptValue& value) {
    static constexpr WantedTag kBranchEnds[] = {
        {kTagVxIF, kTagVxIFClose}, {kTagVxIFClose, 0}, {kTagVxELSE, -1}};
    static constexpr WantedTags kWanted = kBranchEnds;
    if (value.IsTrue()) return StateResult::Handled;
    if (opener().id == kTagIF) {
      return SkipBlock() == StateResult::Failed ? StateResult::Failed : OnClose();
    }
    const TagRow* found = SkipTo(kWanted);
    if (found == nullptr) return StateResult::Failed;
    return found->id == kTagVxELSE ? StateResult::Handled : OnClose();
  }

  // A branch that ends early looks for the end of either spelling, on purpose: pages mix them.
  [[nodiscard]] StateResult ExitState() override {
    static constexpr WantedTag kEnds[] = {
        {kTagIF, kTagIFClose}, {kTagIFClose, 0}, {kTagVxIF, kTagVxIFClose}, {kTagVxIFClose, 0}};
    static constexpr WantedTags kWanted = kEnds;
    return finished() || SkipTo(kWanted) != nullptr ? StateResult::Handled : StateResult::Failed;
  }
};

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

StateResult ProcessVxIF(TagCall& call) {
  const NameValuePair& condition = call.Only();
  if (!condition.name.empty() && call.AssignOnly() == StateResult::Failed) {
    return StateResult::Failed;
  }
  auto state = std::make_unique<IFState>(call);
  const StateResult result = state->Continue(condition.value);
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
