// Opening a block that only one request at a time may be in.

#include "tags/lock_tags.h"

#include <memory>

#include "engine/script_parser.h"
#include "tags/lock_state.h"
#include "tags/shown_name.h"

namespace vexa {

StateResult ProcessVxLOCKFILE(ScriptParser& parser, Tag& tag) {
  const String name = tag.Value("FILE") + ".lck";
  String path;
  String error;
  bool locked = false;
  if (parser.host().ResolvePath(name, path, PathType::DataPath, error) != 0) {
    FileManager& files = parser.host().filemanager();
    locked = files.Lock(path) == 1;
    if (!locked) error = files.error();
  }
  if (locked) {
    parser.AddState(std::make_unique<LockState>(parser, path));
    return StateResult::Handled;
  }
  const StateResult result = parser.RuntimeError(
      tag, String::Concat({"Error creating lockfile ", ShownName(name), ": ", error}));
  if (result == StateResult::Failed) return result;
  // The page wants to go on; it must not do so inside the block.
  return LockState::SkipBlock(parser);
}

}  // namespace vexa
