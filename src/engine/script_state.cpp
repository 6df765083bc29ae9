// What every state does with tags and texts that it does not treat in its own way.

#include "engine/script_state.h"

#include "core/string.h"
#include "core/text.h"
#include "engine/script_parser.h"

namespace vexa {

StateResult ScriptState::ProcessTag(Tag& tag) {
  parser_.SetErrorVariable(tag.form(), {});
  TagHandler handler = tag.form().handler;
  if (handler != nullptr) return handler(parser_, tag);
  return parser_.SyntaxError(String::Concat({"Unexpected &lt;", tag.name(), "&gt;"}));
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
