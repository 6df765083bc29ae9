// Paths as texts and as chains of links: what the sandbox knows about a name without opening it.

#ifndef VEXA_FILES_FILE_PATHS_H_
#define VEXA_FILES_FILE_PATHS_H_

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "core/string.h"

namespace vexa {

// What FollowPath finds.
enum FollowResult : int {
  kPathGood = 0,
  kLinkNotAllowed = 1,
  kLinkToOtherOwner = 2,
  kLinkToNothing = 3,
};

// A chain of links longer than this, or one that runs in a circle, leads to nothing. The system
// gives up at the same length.
inline constexpr int kMostLinkHops = 40;

// Directories that were found to be no links a moment ago, so that the many paths of a request
// below the same roots do not ask about them again. What others change is noticed after that
// moment; what this process changes must be told.
class KnownDirectories {
 public:
  [[nodiscard]] bool Knows(std::string_view path);
  void Note(std::string_view path);
  void Forget() { paths_.clear(); }

 private:
  std::vector<std::string> paths_;
  int64_t noted_ = 0;  // when the first of them was asked about: milliseconds of a steady clock
};

// Takes "." and ".." out of `path` by its text alone and checks every link on the way. Returns
// kPathGood and replaces `path` by the result, which keeps the names of links, or one of the other
// results and leaves `path` as it is. Repeated and trailing slashes stay. What `known` knows is not
// asked about. `seen` says whether on the way the last component was seen to exist; when it is
// false it may exist all the same.
[[nodiscard]] int FollowPath(String& path, int allow_links, int allow_other_owner,
                             KnownDirectories& known, bool& seen);

// The owner of `path` itself, not of what a link leads to; (uid_t)-1 on failure.
[[nodiscard]] uid_t GetOwnerUID(const String& path);

// `path` before the last "." behind its last "/"; a "." at the very start is no extension.
[[nodiscard]] String StripExtension(const String& path);
// `path` behind its last "/".
[[nodiscard]] String StripDirectory(const String& path);

}  // namespace vexa

#endif  // VEXA_FILES_FILE_PATHS_H_
