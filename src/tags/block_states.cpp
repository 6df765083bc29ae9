// Conditionals and loops.

#include "tags/block_states.h"

#include "engine/script_parser.h"
#include "tags/tag_numbers.h"

namespace vexa {

// --- IF --------------------------------------------------------------------------------------

std::string_view IFState::closing_tag() const {
  return style_ == BlockStyle::Vx ? "&lt;/VxIF&gt;" : "&lt;/IF&gt;";
}

StateResult IFState::Continue(const String& value) {
  static constexpr WantedTag kBranchEnds[] = {
      {kTagVxIF, kTagVxIFClose}, {kTagVxIFClose, 0}, {kTagVxELSE, -1}};
  static constexpr WantedTag kLegacyEnds[] = {{kTagIF, kTagIFClose}, {kTagIFClose, 0}};
  if (Expression::IsTrue(value)) return StateResult::Handled;
  bool vx = style_ == BlockStyle::Vx;
  auto found = parser().SkipTo(
      vx ? std::span<const WantedTag>(kBranchEnds) : std::span<const WantedTag>(kLegacyEnds),
      closing_tag());
  if (found == nullptr) return StateResult::Failed;
  if (found->id() == kTagVxELSE) return StateResult::Handled;
  finished_ = true;
  return StateResult::Finished;
}

StateResult IFState::ProcessTag(Tag& tag) {
  bool vx = style_ == BlockStyle::Vx;
  if (tag.id() == (vx ? kTagVxIFClose : kTagIFClose)) {
    finished_ = true;
    return StateResult::Finished;
  }
  if (vx && tag.id() == kTagVxELSE) return StateResult::Finished;
  return ScriptState::ProcessTag(tag);
}

StateResult IFState::ExitState() {
  static constexpr WantedTag kEnds[] = {
      {kTagIF, kTagIFClose}, {kTagIFClose, 0}, {kTagVxIF, kTagVxIFClose}, {kTagVxIFClose, 0}};
  if (finished_) return StateResult::Handled;
  return parser().SkipTo(kEnds, closing_tag()) != nullptr ? StateResult::Handled
                                                          : StateResult::Failed;
}

// --- WHILE -----------------------------------------------------------------------------------

WHILEState::WHILEState(ScriptParser& parser, BlockStyle style, const Tag& tag)
    : ScriptState(parser),
      style_(style),
      condition_(tag.deferred()),
      body_(parser.CurrentPlace()),
      opener_(tag) {
  if (style == BlockStyle::Vx) condition_name_ = tag.attributes().front().name;
}

std::string_view WHILEState::closing_tag() const {
  return style_ == BlockStyle::Vx ? "&lt;/VxWHILE&gt;" : "&lt;/WHILE&gt;";
}

StateResult WHILEState::EvaluateExpression() {
  ValueForm form = style_ == BlockStyle::Vx ? ValueForm::ExpressionAttribute : ValueForm::Body;
  String value;
  if (!parser().EvaluateAt(condition_, form, value)) return StateResult::Failed;
  if (!condition_name_.empty() &&
      parser().Assign(opener_, condition_name_, value) == StateResult::Failed) {
    return StateResult::Failed;
  }
  return Expression::IsTrue(value) ? StateResult::Handled : StateResult::Finished;
}

StateResult WHILEState::ProcessTag(Tag& tag) {
  bool vx = style_ == BlockStyle::Vx;
  if (tag.id() == (vx ? kTagVxWHILEClose : kTagWHILEClose)) {
    StateResult result = EvaluateExpression();
    if (result == StateResult::Handled) parser().GoTo(body_);
    if (result == StateResult::Finished) finished_ = true;
    return result;
  }
  bool stops = vx ? tag.id() == kTagVxWHILESTOP : tag.id() == kTagWHILE && tag.Has("STOP");
  return stops ? StateResult::Finished : ScriptState::ProcessTag(tag);
}

StateResult WHILEState::ExitState() {
  static constexpr WantedTag kEnds[] = {{kTagVxWHILE, kTagVxWHILEClose}, {kTagVxWHILEClose, 0}};
  static constexpr WantedTag kLegacyEnds[] = {{kTagWHILE, kTagWHILEClose}, {kTagWHILEClose, 0}};
  if (finished_) return StateResult::Handled;
  auto found = parser().SkipTo(style_ == BlockStyle::Vx ? kEnds : kLegacyEnds, closing_tag());
  return found != nullptr ? StateResult::Handled : StateResult::Failed;
}

}  // namespace vexa
