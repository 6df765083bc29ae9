// Opening a block of localized text.

#include "tags/localized_tags.h"

#include <memory>

#include "engine/script_parser.h"
#include "tags/localized_state.h"

namespace vexa {

StateResult ProcessVxLOCALIZED(ScriptParser& parser, Tag& tag) {
  parser.AddState(std::make_unique<LocalizedState>(parser, tag));
  return StateResult::Handled;
}

}  // namespace vexa
