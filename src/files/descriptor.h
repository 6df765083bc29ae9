// Descriptors: what the file services share around the bare system calls. Everything here leaves
// the reason of a failure in errno and never disturbs it otherwise.

#ifndef VEXA_FILES_DESCRIPTOR_H_
#define VEXA_FILES_DESCRIPTOR_H_

#include <sys/stat.h>
#include <sys/types.h>

#include <cerrno>

#include "core/linkless_open.h"
#include "core/string.h"

namespace vexa {

// Which file a descriptor or path leads to, whatever its name.
struct FileIdentity {
  dev_t device = 0;
  ino_t inode = 0;
  friend bool operator==(const FileIdentity&, const FileIdentity&) = default;
};

[[nodiscard]] inline FileIdentity IdentityOf(const struct stat& status) {
  return {status.st_dev, status.st_ino};
}

// Calls `call` until it ends otherwise than by a signal; returns its result.
template <typename Call>
[[nodiscard]] auto RetryInterrupted(Call call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}

// The names the system calls take end at the first NUL, so a name that holds one would silently
// mean another file.
[[nodiscard]] bool ContainsNul(const String& path);
inline constexpr char kNulMessage[] = "File name contains a NUL character";

// Opens `path` with POSIX `flags` and fills `status`. Pipes and devices are refused with EINVAL,
// since reading one may wait for a stranger, have no end or change the machine. The descriptor is
// closed on exec. Returns -1 on failure.
[[nodiscard]] int OpenDescriptor(const char* path, int flags, mode_t permissions,
                                 struct stat& status, LinkRule rule = LinkRule::Follow);
// The same for a name in an open directory.
[[nodiscard]] int OpenDescriptorAt(int directory, const char* name, int flags, mode_t permissions,
                                   struct stat& status);
// Closes `descriptor` without touching errno.
void CloseQuietly(int descriptor);

// Reads until `count` bytes or the end of the file; returns the number read, or -1.
[[nodiscard]] ssize_t ReadFully(int descriptor, char* buffer, size_t count);
// Writes all `count` bytes; returns `count`, or -1 when any of them could not be written.
[[nodiscard]] ssize_t WriteFully(int descriptor, const char* data, size_t count);

}  // namespace vexa

#endif  // VEXA_FILES_DESCRIPTOR_H_
