// Opening without links, by one call where the system has it and step by step elsewhere; see
// linkless_open.h.

#include "core/linkless_open.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <string_view>

#include "core/late_function.h"

namespace vexa {

namespace {

void CloseQuietly(int descriptor) {
  const int reason = errno;
  ::close(descriptor);
  errno = reason;
}

// O_NOFOLLOW and O_PATH together open a link.
int RefuseLink(int descriptor, int flags) {
  struct stat status;
  if (descriptor < 0 || (flags & O_PATH) == 0 || (flags & O_NOFOLLOW) != 0) return descriptor;
  if (::fstat(descriptor, &status) == 0 && !S_ISLNK(status.st_mode)) return descriptor;
  CloseQuietly(descriptor);
  errno = ELOOP;
  return -1;
}

// One component after the other, each seen from the directory before it, which is held open.
int OpenStepwise(std::string_view path, int flags, mode_t permissions) {
  constexpr int kStep = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  const auto open_at = LateFunction<"openat", decltype(::openat)>();
  const size_t length = path.find_last_not_of('/') + 1;
  if (length < path.size()) {
    errno = EISDIR;
    if ((flags & O_CREAT) != 0) return -1;
    // Behind a name a "/" would lead on through a link.
    flags |= O_DIRECTORY;
  }
  int here = path.starts_with('/') ? ::open("/", kStep) : AT_FDCWD;
  std::string name(length == 0 && !path.empty() ? "." : "");
  for (std::string_view rest = path.substr(0, length); !rest.empty() && here != -1;) {
    rest.remove_prefix(rest.find_first_not_of('/'));
    const size_t end = std::min(rest.find('/'), rest.size());
    name = rest.substr(0, end);
    rest.remove_prefix(end);
    if (rest.empty()) break;
    const int next = open_at(here, name.c_str(), kStep);
    if (here != AT_FDCWD) CloseQuietly(here);
    here = next;
  }
  if (here == -1) return -1;
  const int opened = open_at(here, name.c_str(), flags | O_NOFOLLOW, permissions);
  if (here != AT_FDCWD) CloseQuietly(here);
  return RefuseLink(opened, flags);
}

int OpenWithoutLinks(const char* path, int flags, mode_t permissions) {
  static bool missing = false;  // the call
  if (missing) return OpenStepwise(path, flags, permissions);
  const bool makes = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
  open_how how = {};
  how.flags = static_cast<unsigned>(flags);
  how.mode = makes ? permissions : 0;
  how.resolve = RESOLVE_NO_SYMLINKS;
  const auto opened = static_cast<int>(::syscall(SYS_openat2, AT_FDCWD, path, &how, sizeof how));
  // Containers with a list of calls from before this one forbid it. But a file can be forbidden,
  // too: only where the other way leads further it was the call.
  if (opened >= 0 || (errno != ENOSYS && errno != EPERM)) return opened;
  const bool known = errno == ENOSYS;
  const int stepwise = OpenStepwise(path, flags, permissions);
  missing = known || stepwise >= 0;
  return stepwise;
}

}  // namespace

int OpenPath(const char* path, int flags, mode_t permissions, LinkRule rule) {
  flags |= O_CLOEXEC;
  if (rule == LinkRule::Follow) return ::open(path, flags, permissions);
  return OpenWithoutLinks(path, flags, permissions);
}

int LookAtPath(const char* path, int more, struct stat& status, LinkRule rule) {
  if (rule == LinkRule::Follow) {
    return more == O_NOFOLLOW ? ::lstat(path, &status) : ::stat(path, &status);
  }
  // Opened so, it can neither be read nor waited for, and closing it drops no lock.
  const int looked = OpenPath(path, O_PATH | more, 0, rule);
  if (looked < 0) return -1;
  const int result = ::fstat(looked, &status);
  CloseQuietly(looked);
  return result;
}

}  // namespace vexa
