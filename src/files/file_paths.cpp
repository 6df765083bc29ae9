// Normalising paths, following links, name helpers; see file_paths.h.
//
// FollowPath walks a path from the root, component by component. A component that is a link is
// judged where it stands: whether links are allowed here at all, whether it belongs to whom its
// target belongs to, and whether it leads anywhere; its target is then walked in its place. The
// path that comes out holds neither "." nor "..". A chain of links ends after a fixed number of
// hops. Directories that were found to be none are remembered for a moment.

#include "files/file_paths.h"

#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <ctime>
#include <string>
#include <string_view>
#include <utility>

#include "files/descriptor.h"

namespace vexa {

namespace {

constexpr int64_t kKnownFor = 20;        // milliseconds
constexpr size_t kMostDirectories = 16;  // known at a time

int64_t Milliseconds() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return now.tv_sec * 1000 + now.tv_nsec / 1'000'000;
}

// Reads the target of a link of any length. False when `path` is not a link; errno then says
// whether there is anything.
bool ReadLink(const std::string& path, std::string& target) {
  target.resize(1024);
  for (;;) {
    const ssize_t length = ::readlink(path.c_str(), target.data(), target.size());
    if (length < 0) return false;
    if (static_cast<size_t>(length) < target.size()) {
      target.resize(static_cast<size_t>(length));
      return true;
    }
    target.resize(target.size() * 2);
  }
}

uid_t OwnerOf(const std::string& path) {
  struct stat status;
  return ::lstat(path.c_str(), &status) == 0 ? status.st_uid : static_cast<uid_t>(-1);
}

// One walk over the components of a path. `result_` is the checked part of it.
class PathWalk {
 public:
  PathWalk(std::string_view path, bool links_allowed, bool other_owners_allowed,
           KnownDirectories& known)
      : path_(path),
        known_(known),
        absolute_(path.starts_with('/')),
        links_allowed_(links_allowed),
        other_owners_allowed_(other_owners_allowed) {}

  int Run() {
    // A component runs from one "/" up to the next; only the first of a relative path has none.
    for (size_t start = 0; start < path_.size();) {
      const size_t end = path_.find('/', start + 1);
      const std::string_view component = path_.substr(start, end - start);
      if (component == "/..") {
        GoUp();
      } else if (component != "/.") {
        const int outcome = Enter(component, end != std::string_view::npos);
        if (outcome != kPathGood) return outcome;
      }
      start = end == std::string_view::npos ? path_.size() : end;
    }
    return kPathGood;
  }

  [[nodiscard]] const std::string& result() const { return result_; }
  // Whether the last component that was asked about is there, and no link.
  [[nodiscard]] bool seen() const { return seen_; }

 private:
  void GoUp() {
    seen_ = false;
    const size_t slash = result_.rfind('/');
    if (slash != std::string::npos && result_.substr(slash) != "/..") {
      result_.resize(slash);
    } else if (!absolute_) {
      // The path must not turn into an absolute one: "a/.." leaves nothing, "../.." stays.
      if (result_.empty() || result_ == ".." || slash != std::string::npos) {
        result_ += result_.empty() ? ".." : "/..";
      } else {
        result_.clear();
      }
    }
  }

  // `inner` says that more of the path follows, so that it must be a directory.
  int Enter(std::string_view component, bool inner) {
    if (component.starts_with('/')) component.remove_prefix(1);
    if (component.empty()) {
      // A further slash leads nowhere else.
      Append(result_, component);
      return kPathGood;
    }
    if (result_.size() + component.size() >= PATH_MAX) {
      // No link can be there, and asking about every component would cost the square of a length
      // that a script is free to choose.
      seen_ = false;
      Append(result_, component);
      return kPathGood;
    }
    std::string next = Below(component);
    std::string target;
    inner = inner && absolute_;
    seen_ = false;
    if (absolute_ && known_.Knows(next)) {
      seen_ = true;
    } else if (ReadLink(next, target)) {
      if (!links_allowed_) return kLinkNotAllowed;
      const int outcome = FollowChain(next, std::move(target));
      if (outcome != kPathGood) return outcome;
    } else if (errno == EINVAL) {
      seen_ = true;
      if (inner) known_.Note(next);
    }
    result_ = std::move(next);
    return kPathGood;
  }

  // `name` in the directory reached so far.
  [[nodiscard]] std::string Below(std::string_view name) const {
    std::string path = result_;
    Append(path, name);
    return path;
  }
  void Append(std::string& path, std::string_view name) const {
    if (absolute_ || !path.empty()) path += '/';
    path += name;
  }

  // `first` is a link to `target`. A relative target counts from the directory reached so far at
  // every hop, on purpose, as scripts' link farms were laid out; Reaches() makes up for it.
  int FollowChain(const std::string& first, std::string target) {
    std::string link = first;
    for (int hops = 1; hops <= kMostLinkHops; ++hops) {
      if (!target.starts_with('/')) target = Below(target);
      if (!other_owners_allowed_) {
        const uid_t owner = OwnerOf(target);
        if (owner == static_cast<uid_t>(-1)) return kLinkToNothing;
        if (owner != OwnerOf(link)) return kLinkToOtherOwner;
      }
      link = std::move(target);
      if (!ReadLink(link, target)) return other_owners_allowed_ ? kPathGood : Reaches(first);
    }
    return kLinkToNothing;
  }

  // Whether what the system reaches through `first` belongs to the owner of `first`: the hops above
  // may have looked at other names than the system will.
  static int Reaches(const std::string& first) {
    struct stat status;
    if (::stat(first.c_str(), &status) != 0) return kLinkToNothing;
    return status.st_uid == OwnerOf(first) ? kPathGood : kLinkToOtherOwner;
  }

  std::string_view path_;
  KnownDirectories& known_;
  bool absolute_;
  bool links_allowed_;
  bool other_owners_allowed_;
  bool seen_ = false;
  std::string result_;
};

}  // namespace

bool KnownDirectories::Knows(std::string_view path) {
  if (paths_.empty()) return false;
  if (Milliseconds() - noted_ > kKnownFor) {
    Forget();
    return false;
  }
  return std::find(paths_.begin(), paths_.end(), path) != paths_.end();
}

void KnownDirectories::Note(std::string_view path) {
  if (paths_.empty()) noted_ = Milliseconds();
  if (paths_.size() < kMostDirectories) paths_.emplace_back(path);
}

int FollowPath(String& path, int allow_links, int allow_other_owner, KnownDirectories& known,
               bool& seen) {
  seen = false;
  if (ContainsNul(path)) return kLinkToNothing;
  PathWalk walk(path.view(), allow_links != 0, allow_other_owner != 0, known);
  const int outcome = walk.Run();
  seen = walk.seen();
  if (outcome == kPathGood) path.assign(std::string_view(walk.result()));
  return outcome;
}

uid_t GetOwnerUID(const String& path) {
  return ContainsNul(path) ? static_cast<uid_t>(-1) : OwnerOf(std::string(path.view()));
}

String StripExtension(const String& path) {
  for (int i = path.length() - 1; i >= 1; --i) {
    if (path[i] == '.') return path.before(i);
    if (path[i] == '/') break;
  }
  return path;
}

String StripDirectory(const String& path) {
  const size_t slash = path.view().rfind('/');
  return slash == std::string_view::npos ? path : path.after(static_cast<int>(slash));
}

}  // namespace vexa
