// ScriptState: one open block of a running script. The executor keeps a stack of them, the base
// state at the bottom, and offers every tag and text from the top down:
//
//   ProcessTag -> Failed: stop | Done, Handled: go on | Finished: close this block and all above
//              -> NotMine: offer to the state below
//
// A block that is left before its closing tag was read skips to it in ExitState.

#ifndef VEXA_ENGINE_SCRIPT_STATE_H_
#define VEXA_ENGINE_SCRIPT_STATE_H_

#include <string_view>

#include "engine/tag.h"

namespace vexa {

class ScriptParser;

class ScriptState {
 public:
  explicit ScriptState(ScriptParser& parser) : parser_(parser) {}
  virtual ~ScriptState() = default;
  ScriptState(const ScriptState&) = delete;
  ScriptState& operator=(const ScriptState&) = delete;

  // The base: clears the tag's error variable and runs the tag's handler.
  [[nodiscard]] virtual StateResult ProcessTag(Tag& tag);
  // The base: writes `text` to the current output as the output `level` says. May change nothing
  // of the script's source.
  [[nodiscard]] virtual StateResult ProcessText(std::string_view text, int level);
  // Leaves the block; Failed after an error was reported.
  [[nodiscard]] virtual StateResult ExitState() { return StateResult::Handled; }
  // The closing tag that this block waits for, as messages show it; empty for the base state.
  [[nodiscard]] virtual std::string_view closing_tag() const { return {}; }
  // Whether tags and texts stop here: nothing passes the boundary of a function.
  [[nodiscard]] virtual bool is_function() const { return false; }
  // Called before every tag of this script and of those it runs, while this state watches them
  // (ScriptParser::AddWatcher).
  virtual void BeforeTag() {}

 protected:
  [[nodiscard]] ScriptParser& parser() const { return parser_; }

 private:
  ScriptParser& parser_;
};

}  // namespace vexa

#endif  // VEXA_ENGINE_SCRIPT_STATE_H_
