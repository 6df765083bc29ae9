// Opening paths that must not pass a symbolic link. Whoever may write to a directory of a site can
// put a link in the place of a file or directory at any moment, also between the check of a name
// and its use; so the system itself must refuse links while it walks down the path.

#ifndef VEXA_CORE_LINKLESS_OPEN_H_
#define VEXA_CORE_LINKLESS_OPEN_H_

#include <sys/stat.h>
#include <sys/types.h>

namespace vexa {

// What becomes of the links that an operation meets on its path, its last component included.
enum class LinkRule { Follow, Refuse };

// Opens `path` as open does, with O_CLOEXEC. A link that is refused is ELOOP, or ENOTDIR where only
// a directory may stand; with O_PATH and O_NOFOLLOW a link at the end is what is opened. Returns
// the descriptor, or -1 with the reason in errno.
[[nodiscard]] int OpenPath(const char* path, int flags, mode_t permissions, LinkRule rule);

// Fills `status` with what `path` leads to; `more` may be O_NOFOLLOW, for a link at its end. 0, or
// -1 with the reason in errno.
[[nodiscard]] int LookAtPath(const char* path, int more, struct stat& status, LinkRule rule);

}  // namespace vexa

#endif  // VEXA_CORE_LINKLESS_OPEN_H_
