// LockState: an open VxLOCKFILE block, which holds a lock file.
//
//   taken -> every tag refreshes it -> given back: closing tag, early end of the block or the page
//
// A holder on another host that does not refresh its lock for `lockexpiration` seconds counts as
// dead, and the lock may then be another's although the block is still open. So the file is
// refreshed and removed only while it is the one that was taken.

#ifndef VEXA_TAGS_LOCK_STATE_H_
#define VEXA_TAGS_LOCK_STATE_H_

#include <memory>
#include <string_view>

#include "core/file.h"
#include "core/string.h"
#include "engine/script_state.h"

namespace vexa {

class LockState final : public ScriptState {
 public:
  // `path` is the finished path of the lock file, which this request has just taken.
  LockState(ScriptParser& parser, const String& path);
  ~LockState() override { Release(); }

  // Skips a block that is not entered to its closing tag.
  [[nodiscard]] static StateResult SkipBlock(ScriptParser& parser);

  [[nodiscard]] StateResult ProcessTag(Tag& tag) override;
  [[nodiscard]] StateResult ExitState() override;
  [[nodiscard]] std::string_view closing_tag() const override { return kClosingTag; }
  void BeforeTag() override;

 private:
  static constexpr std::string_view kClosingTag = "&lt;/VxLOCKFILE&gt;";

  [[nodiscard]] bool IsOurs();
  void Release();

  String path_;
  std::unique_ptr<File> file_;  // tells whether the path still names it; null when it cannot
  bool held_ = true;
  bool finished_ = false;  // the closing tag has been consumed
};

}  // namespace vexa

#endif  // VEXA_TAGS_LOCK_STATE_H_
