// BlockState: a block between an opening and a closing tag, as far as all blocks are alike.
//
//   opened -> tags of the body -> closing tag -> OnClose: the block is left, or goes on (loops)
//                              -> a tag of its own (stop, branch) -> OnOwnTag
//          -> left early: ExitState skips to the closing tag
//
// Which tags are a block's own is said by their rows.

#ifndef VEXA_ENGINE_BLOCK_STATE_H_
#define VEXA_ENGINE_BLOCK_STATE_H_

#include <span>

#include "core/string.h"
#include "engine/parser.h"
#include "engine/script_state.h"
#include "engine/tag_call.h"

namespace vexa {

class BlockState : public ScriptState {
 public:
  // The block that the tag of `call`, just read, opens; its body begins where the script stands.
  explicit BlockState(const TagCall& call) : BlockState(call.script(), call.row()) {}
  BlockState(ScriptParser& script, const TagRow& opener) : ScriptState(script), opener_(opener) {}

  [[nodiscard]] StateResult ProcessTag(Tag& tag) override;
  [[nodiscard]] StateResult ExitState() override;
  [[nodiscard]] String closing_tag() const override;

  // Skips what is left of the block, to behind its closing tag. Handled, or Failed.
  [[nodiscard]] StateResult SkipBlock();

 protected:
  // Its closing tag was read. The base: the block is complete.
  [[nodiscard]] virtual StateResult OnClose();
  // A tag that belongs to the block was read. The base: it is left.
  [[nodiscard]] virtual StateResult OnOwnTag(Tag&) { return StateResult::Finished; }

  [[nodiscard]] const TagRow& opener() const { return opener_; }
  // Skips to a tag of `wanted`, whose row is returned. Null after an error.
  [[nodiscard]] const TagRow* SkipTo(const WantedTags& wanted);
  // Nothing of the block is left to be read.
  void SetFinished() { finished_ = true; }
  [[nodiscard]] bool finished() const { return finished_; }

 private:
  const TagRow& opener_;
  bool finished_ = false;
};

// What the skips of a branching tag look for.
struct BranchSkips {
  WantedTags otherwise;  // when its value is false
  WantedTags early;      // when the branch is left before its end
};

// A block of one branch, or two, of which one runs.
//
//   value true  -> first branch -> closing tag, or the tag that divides them: skip to the closing
//   tag value false -> skip to what divides them -> second branch -> closing tag
//               -> skip to the closing tag: there is no block
class BranchState final : public BlockState {
 public:
  // REQUIRES: `opener` branches.
  BranchState(ScriptParser& script, const TagRow& opener) : BlockState(script, opener) {}

  // Handled: a branch is to run; Finished: none is, and nothing of the block is left; Failed after
  // an error was reported.
  [[nodiscard]] StateResult Choose(const ScriptValue& value);

  [[nodiscard]] StateResult ExitState() override;
  [[nodiscard]] const TagRow* branch() const override { return &opener(); }
};

// A block whose body runs once for each pass.
//
//   opened, Continue -> body -> closing tag -> Continue: Handled -> back to the body
//                                                        Finished -> the block is left
class LoopState : public BlockState {
 public:
  explicit LoopState(const TagCall& call);

  // Goes to the next pass. Handled: the body is to run; Finished: there is no further one; Failed
  // after an error was reported.
  [[nodiscard]] virtual StateResult Continue() = 0;

 protected:
  [[nodiscard]] StateResult OnClose() override;
  // Just behind the opening tag.
  [[nodiscard]] SourcePlace& body() { return body_; }

 private:
  SourcePlace body_;
};

}  // namespace vexa

#endif  // VEXA_ENGINE_BLOCK_STATE_H_
