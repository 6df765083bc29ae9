// VxLOCKFILE: a block that only one request at a time may be in. It holds a lock file.
//
//   taken -> every tag refreshes it -> given back: closing tag, early end of the block or the page

#include <memory>
#include <utility>

#include "engine/block_state.h"
#include "engine/script_parser.h"
#include "files/named_lock.h"
#include "tags/handlers.h"
#include "tags/shown_name.h"

namespace vexa {

namespace {

class LockState final : public BlockState {
 public:
  // `lock` was just taken.
  LockState(const TagCall& call, std::unique_ptr<NamedLock> lock)
      : BlockState(call), lock_(std::move(lock)) {
    parser().AddWatcher(this);
  }
  ~LockState() override { Release(); }

  [[nodiscard]] StateResult ExitState() override {
    Release();
    return BlockState::ExitState();
  }
  void BeforeTag() override { lock_->Refresh(); }

 private:
  void Release() {
    if (lock_ == nullptr) return;
    parser().RemoveWatcher(this);
    lock_.reset();
  }

  std::unique_ptr<NamedLock> lock_;  // null once it was given back
};

}  // namespace

StateResult ProcessVxLOCKFILE(TagCall& call) {
  const String name = call.Text("FILE") + ".lck";
  String path;
  String error;
  auto lock = std::make_unique<NamedLock>(call.host());
  if (call.host().ResolvePath(name, path, PathType::DataPath, error) != 0 &&
      lock->Take(path, error)) {
    return call.Enter(std::make_unique<LockState>(call, std::move(lock)));
  }
  const StateResult result =
      call.Fail(String::Concat({"Error creating lockfile ", ShownName(name), ": ", error}));
  if (result == StateResult::Failed) return result;
  // The page wants to go on; it must not do so inside the block.
  return BlockState(call).SkipBlock();
}

}  // namespace vexa
