// The states of conditionals and loops.
//
//   IF:     Continue(true) -> branch runs -> its closing tag, or VxELSE, which skips to it
//           Continue(false) -> skip to VxELSE (branch runs) or to the closing tag (block done)
//   WHILE:  condition true -> body runs -> closing tag -> condition again, from the file
//           condition false, or a stop tag -> skip to the closing tag

#ifndef VEXA_TAGS_BLOCK_STATES_H_
#define VEXA_TAGS_BLOCK_STATES_H_

#include "core/string.h"
#include "engine/script_state.h"
#include "expr/expression.h"

namespace vexa {

// The two spellings of conditionals and loops. They close only their own kind.
enum class BlockStyle { Vx, Legacy };

class IFState final : public ScriptState {
 public:
  IFState(ScriptParser& parser, BlockStyle style) : ScriptState(parser), style_(style) {}

  // Starts the block whose condition is `value`. Handled: a branch runs; Finished: the block is
  // already complete; Failed.
  [[nodiscard]] StateResult Continue(const String& value);
  [[nodiscard]] StateResult ProcessTag(Tag& tag) override;
  [[nodiscard]] StateResult ExitState() override;
  [[nodiscard]] std::string_view closing_tag() const override;

 private:
  BlockStyle style_;
  bool finished_ = false;  // the closing tag has been consumed
};

class WHILEState final : public ScriptState {
 public:
  // `tag` is the opening tag, just read; the body begins where the script now stands.
  WHILEState(ScriptParser& parser, BlockStyle style, const Tag& tag);

  // Evaluates the condition. Handled: true; Finished: false; Failed.
  [[nodiscard]] StateResult EvaluateExpression();
  [[nodiscard]] StateResult ProcessTag(Tag& tag) override;
  [[nodiscard]] StateResult ExitState() override;
  [[nodiscard]] std::string_view closing_tag() const override;

 private:
  BlockStyle style_;
  bool finished_ = false;  // the closing tag has been consumed
  SourcePlace condition_;  // where the condition's text begins
  SourcePlace body_;       // just behind the opening tag
  String condition_name_;  // the variable that receives the condition's value; may be empty
  Tag opener_;             // the opening tag, for errors of that assignment
};

}  // namespace vexa

#endif  // VEXA_TAGS_BLOCK_STATES_H_
