// The names of the files that a pack works with, and what they say about a pack that died; see
// table_pack.cpp.

#ifndef VEXA_XBASE_TABLE_TABLE_PACK_H_
#define VEXA_XBASE_TABLE_TABLE_PACK_H_

#include "core/file.h"

namespace vexa {

// The new file beside the one at `path`.
[[nodiscard]] String PackName(const String& path);
// Whether a pack put its table in place, but not the memo file, which is at PackName(memopath).
[[nodiscard]] bool PackIsUnfinished(FileManager& files, const String& datapath,
                                    const String& memopath);
// Where the texts of the table are: `memopath`, unless a pack died before it got there.
[[nodiscard]] String MemoPathInUse(FileManager& files, const String& datapath,
                                   const String& memopath);

}  // namespace vexa

#endif  // VEXA_XBASE_TABLE_TABLE_PACK_H_
