// LockState: an open VxLOCKFILE block, which holds a lock file.
//
//   taken -> every tag refreshes it -> given back: closing tag, early end of the block or the page
//
// A holder on another host that does not refresh its lock for `lockexpiration` seconds counts as
// dead, and the lock may then be another's although the block is still open.

#ifndef VEXA_TAGS_LOCK_STATE_H_
#define VEXA_TAGS_LOCK_STATE_H_

#include <memory>
#include <string_view>

#include "engine/script_state.h"
#include "files/named_lock.h"

namespace vexa {

class LockState final : public ScriptState {
 public:
  // `lock` was just taken.
  LockState(ScriptParser& parser, std::unique_ptr<NamedLock> lock);
  ~LockState() override { Release(); }

  // Skips a block that is not entered to its closing tag.
  [[nodiscard]] static StateResult SkipBlock(ScriptParser& parser);

  [[nodiscard]] StateResult ProcessTag(Tag& tag) override;
  [[nodiscard]] StateResult ExitState() override;
  [[nodiscard]] std::string_view closing_tag() const override { return kClosingTag; }
  void BeforeTag() override { lock_->Refresh(); }

 private:
  static constexpr std::string_view kClosingTag = "&lt;/VxLOCKFILE&gt;";

  void Release();

  std::unique_ptr<NamedLock> lock_;  // null once it was given back
  bool finished_ = false;            // the closing tag has been consumed
};

}  // namespace vexa

#endif  // VEXA_TAGS_LOCK_STATE_H_
