// Keeping a lock fresh, and giving it back.

#include "tags/lock_state.h"

#include <utility>

#include "engine/script_parser.h"
#include "tags/tag_numbers.h"

namespace vexa {

LockState::LockState(ScriptParser& parser, std::unique_ptr<NamedLock> lock)
    : ScriptState(parser), lock_(std::move(lock)) {
  parser.AddWatcher(this);
}

void LockState::Release() {
  if (lock_ == nullptr) return;
  parser().RemoveWatcher(this);
  lock_.reset();
}

StateResult LockState::ProcessTag(Tag& tag) {
  if (tag.id() != kTagVxLOCKFILEClose) return ScriptState::ProcessTag(tag);
  finished_ = true;
  return StateResult::Finished;
}

StateResult LockState::ExitState() {
  Release();
  return finished_ ? StateResult::Handled : SkipBlock(parser());
}

StateResult LockState::SkipBlock(ScriptParser& parser) {
  static constexpr WantedTag kEnds[] = {{kTagVxLOCKFILE, kTagVxLOCKFILEClose},
                                        {kTagVxLOCKFILEClose, 0}};
  return parser.SkipTo(kEnds, kClosingTag) != nullptr ? StateResult::Handled : StateResult::Failed;
}

}  // namespace vexa
