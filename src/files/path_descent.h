// What a path leads to, found by stepping from directory to directory with each one held open. A
// check by names alone can be outwitted: somebody puts a link in the place of a directory behind
// it. Here what was looked at is what is entered.

#ifndef VEXA_FILES_PATH_DESCENT_H_
#define VEXA_FILES_PATH_DESCENT_H_

#include <sys/stat.h>

#include "core/string.h"
#include "files/file_paths.h"

namespace vexa {

// Walks down `path`, which begins with "/" and holds neither "." nor "..", and fills `status` with
// what is there. Links are judged as by FollowPath, with the same results, and `status` is then as
// it was; what there is not is kLinkToNothing. Nothing is opened for reading, so a device or pipe
// at the end does no harm.
[[nodiscard]] FollowResult DescendPath(const String& path, int allow_links, int allow_other_owner,
                                       struct stat& status);

}  // namespace vexa

#endif  // VEXA_FILES_PATH_DESCENT_H_
