// Walking down a path by descriptors; see path_descent.h.

#include "files/path_descent.h"

#include <fcntl.h>
#include <limits.h>
#include <unistd.h>

#include <string_view>

#include "core/late_function.h"
#include "files/descriptor.h"

namespace vexa {

namespace {

constexpr int kLook = O_PATH | O_CLOEXEC;

// A descriptor of a place, closed when it is left.
class Place {
 public:
  Place() = default;
  ~Place() { Leave(); }
  Place(const Place&) = delete;
  Place& operator=(const Place&) = delete;

  // Goes to `name`, seen from the directory `from`. False when there is nothing.
  [[nodiscard]] bool Enter(const Place& from, const char* name, int flags) {
    return Hold(LateFunction<"openat", decltype(::openat)>()(from.descriptor_, name, flags));
  }
  [[nodiscard]] bool EnterRoot() { return Hold(::open("/", kLook)); }
  void Take(Place& other) {
    Leave();
    descriptor_ = other.descriptor_;
    status_ = other.status_;
    other.descriptor_ = -1;
  }
  // The text of a link; empty when it cannot be read.
  [[nodiscard]] String Target() const {
    char text[PATH_MAX];
    const ssize_t length =
        LateFunction<"readlinkat", decltype(::readlinkat)>()(descriptor_, "", text, sizeof text);
    // One that fills the room may have been cut.
    if (length <= 0 || length == ssize_t{sizeof text}) return {};
    return String(std::string_view(text, static_cast<size_t>(length)));
  }
  [[nodiscard]] const struct stat& status() const { return status_; }

 private:
  [[nodiscard]] bool Hold(int descriptor) {
    Leave();
    descriptor_ = descriptor;
    return descriptor_ >= 0 && ::fstat(descriptor_, &status_) == 0;
  }
  void Leave() {
    if (descriptor_ >= 0) CloseQuietly(descriptor_);
    descriptor_ = -1;
  }

  int descriptor_ = -1;
  struct stat status_ = {};
};

}  // namespace

FollowResult DescendPath(const String& path, int allow_links, int allow_other_owner,
                         struct stat& status) {
  Place here;
  if (path[0] != '/' || ContainsNul(path) || !here.EnterRoot()) return kLinkToNothing;
  for (std::string_view rest = path; !rest.empty();) {
    const size_t end = rest.find('/');
    const String name(rest.substr(0, end));
    rest.remove_prefix(end == rest.npos ? rest.size() : end + 1);
    if (name.empty()) continue;
    Place next;
    if (!next.Enter(here, name.c_str(), kLook | O_NOFOLLOW)) return kLinkToNothing;
    if (S_ISLNK(next.status().st_mode)) {
      if (allow_links == 0) return kLinkNotAllowed;
      // A link never changes: its text leads where this very link leads.
      const String target = next.Target();
      const uid_t owner = next.status().st_uid;
      if (target.empty() || !next.Enter(here, target.c_str(), kLook)) return kLinkToNothing;
      if (allow_other_owner == 0 && next.status().st_uid != owner) return kLinkToOtherOwner;
    }
    here.Take(next);
  }
  if (path.view().ends_with('/') && !S_ISDIR(here.status().st_mode)) return kLinkToNothing;
  status = here.status();
  return kPathGood;
}

}  // namespace vexa
