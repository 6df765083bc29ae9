// Keeping a lock fresh, and giving it back.

#include "tags/lock_state.h"

#include <time.h>

#include "engine/script_parser.h"
#include "tags/tag_numbers.h"

namespace vexa {

namespace {

// Without a time limit nothing else would end the attempts to remove the file: ten seconds.
constexpr int kMostAttempts = 1000;

void SleepTenMilliseconds() {
  const struct timespec pause = {0, 10'000'000};
  ::nanosleep(&pause, nullptr);
}

}  // namespace

LockState::LockState(ScriptParser& parser, const String& path)
    : ScriptState(parser), path_(path), file_(parser.host().filemanager().Open(path, OpenRead)) {
  parser.AddWatcher(this);
}

bool LockState::IsOurs() { return file_ == nullptr || file_->StillNamed() != 0; }

// Through the open file: by its name, a lock that another host took over in this very moment would
// be refreshed for it. Without an open file there is only the name.
void LockState::BeforeTag() {
  if (file_ != nullptr) {
    (void)file_->Touch();
  } else {
    (void)parser().host().filemanager().TouchFile(path_);
  }
}

void LockState::Release() {
  if (!held_) return;
  held_ = false;
  parser().RemoveWatcher(this);
  Vexa& host = parser().host();
  FileManager& files = host.filemanager();
  const bool unlimited = host.timeremaining() < 0;
  for (int attempt = 1; IsOurs() && files.Delete(path_) < 0 && files.Exists(path_); ++attempt) {
    if (host.timedout() || (unlimited && attempt == kMostAttempts)) break;
    SleepTenMilliseconds();
  }
  file_.reset();
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
