// Opening conditionals and loops. IF and WHILE are the legacy spellings.

#include "tags/block_tags.h"

#include <memory>

#include "engine/script_parser.h"
#include "tags/block_states.h"
#include "tags/one_attribute.h"
#include "tags/tag_numbers.h"

namespace vexa {

StateResult ProcessVxIF(ScriptParser& parser, Tag& tag) {
  const NameValuePair* condition = OnlyAttribute(parser, tag);
  if (condition == nullptr) return StateResult::Failed;
  if (!condition->name.empty() &&
      parser.Assign(tag, condition->name, condition->value) == StateResult::Failed) {
    return StateResult::Failed;
  }
  BlockStyle style = tag.id() == kTagVxIF ? BlockStyle::Vx : BlockStyle::Legacy;
  auto state = std::make_unique<IFState>(parser, style);
  StateResult result = state->Continue(condition->value);
  if (result == StateResult::Handled) parser.AddState(std::move(state));
  return result == StateResult::Finished ? StateResult::Handled : result;
}

StateResult ProcessVxWHILE(ScriptParser& parser, Tag& tag) {
  bool vx = tag.id() == kTagVxWHILE;
  // The legacy stop form belongs to the loop around it.
  if (!vx && tag.Has("STOP")) return StateResult::NotMine;
  if (vx && OnlyAttribute(parser, tag) == nullptr) return StateResult::Failed;
  BlockStyle style = vx ? BlockStyle::Vx : BlockStyle::Legacy;
  auto state = std::make_unique<WHILEState>(parser, style, tag);
  StateResult result = state->EvaluateExpression();
  if (result == StateResult::Handled) parser.AddState(std::move(state));
  return result == StateResult::Finished ? state->ExitState() : result;
}

}  // namespace vexa
