// ScriptState: one open block of a running script. The executor keeps a stack of them, the base
// state at the bottom, and offers every tag and text from the top down:
//
//   ProcessTag -> Failed: stop | Done, Handled: go on | Finished: close this block and all above
//              -> NotMine: offer to the state below
//
// What blocks have in common stands in block_state.h.

#ifndef VEXA_ENGINE_SCRIPT_STATE_H_
#define VEXA_ENGINE_SCRIPT_STATE_H_

#include <cstddef>
#include <memory>
#include <string_view>

#include "core/source_place.h"
#include "core/storage_pool.h"
#include "core/string.h"
#include "engine/tag.h"

namespace vexa {

class ScriptParser;

// The message about a tag that stands where nothing understands it.
[[nodiscard]] String UnexpectedTag(const TagRow& row);

class ScriptState {
 public:
  explicit ScriptState(ScriptParser& parser) : parser_(parser) {}
  virtual ~ScriptState() = default;
  ScriptState(const ScriptState&) = delete;
  ScriptState& operator=(const ScriptState&) = delete;
  // States come and go with every block and call.
  static void* operator new(size_t size) { return storage_pool.Take(size); }
  static void operator delete(void* storage, size_t size) { storage_pool.GiveBack(storage, size); }

  // The base: clears the tag's error variable, and runs the tag's handler when its attributes are
  // what its row says. A tag that only stops a block is left to that.
  [[nodiscard]] virtual StateResult ProcessTag(Tag& tag);
  // The base: writes `text` to the current output as the output `level` says. May change nothing
  // of the script's source.
  [[nodiscard]] virtual StateResult ProcessText(std::string_view text, int level);
  // Leaves the block; Failed after an error was reported.
  [[nodiscard]] virtual StateResult ExitState() { return StateResult::Handled; }
  // Nobody needs the state any more: it is destroyed, or kept for the next block of its kind.
  virtual void LetGo() { delete this; }
  // The closing tag that this block waits for, as messages show it; empty for the base state.
  [[nodiscard]] virtual String closing_tag() const { return {}; }
  // Whether tags and texts stop here: nothing passes the boundary of a function.
  [[nodiscard]] virtual bool is_function() const { return false; }
  // The closing tag of row `closing`, without attributes, comes next. The place where the block
  // goes on when going there is all it takes; null, and nothing was done, when there is more to do.
  [[nodiscard]] virtual SourcePlace* TryRepeat(const TagRow& closing) {
    (void)closing;
    return nullptr;
  }
  // The opening tag when it runs a branch, whose end takes nothing but leaving it; else null.
  [[nodiscard]] virtual const TagRow* branch() const { return nullptr; }
  // Called before every tag of this script and of those it runs, while this state watches them
  // (ScriptParser::AddWatcher).
  virtual void BeforeTag() {}

 protected:
  [[nodiscard]] ScriptParser& parser() const { return parser_; }

 private:
  ScriptParser& parser_;
};

// Owns a state that is, or was, on the stack.
struct StateLetGo {
  void operator()(ScriptState* state) const { state->LetGo(); }
};
using StateOwner = std::unique_ptr<ScriptState, StateLetGo>;

}  // namespace vexa

#endif  // VEXA_ENGINE_SCRIPT_STATE_H_
