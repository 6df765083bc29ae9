// What every state does with tags and texts that it does not treat in its own way.

#include "engine/script_state.h"

#include "core/string.h"
#include "core/text.h"
#include "engine/script_parser.h"
#include "engine/tag_call.h"

namespace vexa {

StateResult ScriptState::ProcessTag(Tag& tag) {
  const TagRow& row = tag.row();
  parser_.ClearErrorVariable(row);
  if (row.handler == nullptr) return parser_.SyntaxError(UnexpectedTag(row));
  if (!tag.sound()) {
    if (tag.stops()) return StateResult::NotMine;
    if (String problem = tag.Problem(); !problem.empty()) return parser_.SyntaxError(problem);
  }
  TagCall call(parser_, tag);
  return parser_.Handle(call);
}

String UnexpectedTag(const TagRow& row) {
  return String::Concat({"Unexpected &lt;", row.name, "&gt;"});
}

StateResult ScriptState::ProcessText(std::string_view text, int level) {
  if ((level & kTextOutput) == 0) return StateResult::Handled;
  if ((level & kCompressWhitespace) == 0) {
    parser_.WriteValue(text);
    return StateResult::Handled;
  }
  String compressed(text);
  compressed.CompressWhitespace();
  if (parser_.output().inwhitespace() != 0) compressed.ltrim();
  parser_.WriteValue(compressed);
  return StateResult::Handled;
}

}  // namespace vexa
