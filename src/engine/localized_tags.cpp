// Opening a block of localized text.

#include "engine/localized_tags.h"

#include <memory>

#include "engine/localized_state.h"
#include "engine/script_parser.h"

StateResult ProcessVxLOCALIZED(ScriptParser& parser, Tag& tag) {
  parser.AddState(std::make_unique<LocalizedState>(parser, tag));
  return StateResult::Handled;
}
