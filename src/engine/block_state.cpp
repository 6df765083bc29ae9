// Recognising a block's own tags, and leaving it.

#include "engine/block_state.h"

#include "engine/script_parser.h"

namespace vexa {

StateResult BlockState::ProcessTag(Tag& tag) {
  if (tag.id() == opener_.closing_id) return OnClose();
  const bool own = tag.row().block == opener_.id || (tag.id() == opener_.id && tag.stops());
  return own ? OnOwnTag(tag) : ScriptState::ProcessTag(tag);
}

StateResult BlockState::OnClose() {
  SetFinished();
  return StateResult::Finished;
}

StateResult BlockState::ExitState() { return finished_ ? StateResult::Handled : SkipBlock(); }

StateResult BlockState::SkipBlock() {
  const WantedTag ends[] = {{opener_.id, opener_.closing_id}, {opener_.closing_id, 0}};
  return SkipTo(ends) != nullptr ? StateResult::Handled : StateResult::Failed;
}

const TagRow* BlockState::SkipTo(const WantedTags& wanted) {
  return parser().SkipTo(wanted, *this);
}

StateResult BranchState::Choose(const ScriptValue& value) {
  if (value.IsTrue()) return StateResult::Handled;
  const TagRow* found = SkipTo(opener().branch->otherwise);
  if (found == nullptr) return StateResult::Failed;
  return found->id == opener().closing_id ? OnClose() : StateResult::Handled;
}

StateResult BranchState::ExitState() {
  const bool left = finished() || SkipTo(opener().branch->early) != nullptr;
  return left ? StateResult::Handled : StateResult::Failed;
}

LoopState::LoopState(const TagCall& call) : BlockState(call), body_(parser().CurrentPlace()) {}

StateResult LoopState::OnClose() {
  const StateResult result = Continue();
  if (result == StateResult::Handled) parser().GoBackTo(body_);
  if (result == StateResult::Finished) SetFinished();
  return result;
}

String BlockState::closing_tag() const {
  const TagRow* closer = parser().tags().WithNumber(opener_.closing_id);
  return String::Concat({"&lt;", closer->name, "&gt;"});
}

}  // namespace vexa
