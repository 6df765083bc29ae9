// Opening a block that only one request at a time may be in.

#include "tags/lock_tags.h"

#include <memory>
#include <utility>

#include "engine/script_parser.h"
#include "tags/lock_state.h"
#include "tags/shown_name.h"

namespace vexa {

StateResult ProcessVxLOCKFILE(ScriptParser& parser, Tag& tag) {
  const String name = tag.Value("FILE") + ".lck";
  String path;
  String error;
  auto lock = std::make_unique<NamedLock>(parser.host());
  if (parser.host().ResolvePath(name, path, PathType::DataPath, error) != 0 &&
      lock->Take(path, error)) {
    parser.AddState(std::make_unique<LockState>(parser, std::move(lock)));
    return StateResult::Handled;
  }
  const StateResult result = parser.RuntimeError(
      tag, String::Concat({"Error creating lockfile ", ShownName(name), ": ", error}));
  if (result == StateResult::Failed) return result;
  // The page wants to go on; it must not do so inside the block.
  return LockState::SkipBlock(parser);
}

}  // namespace vexa
