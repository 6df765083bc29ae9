// Opening, reading and writing descriptors; see descriptor.h.

#include "files/descriptor.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstring>

#include "core/late_function.h"

namespace vexa {

bool ContainsNul(const String& path) { return std::memchr(path.data(), 0, path.size()) != nullptr; }

namespace {

// Calls `open` with flags, and looks at what it opened.
template <typename Open>
int OpenPlain(Open open, int flags, struct stat& status) {
  flags |= O_NOCTTY | O_CLOEXEC;
  // Without O_NONBLOCK opening a pipe would wait for its other end. On a regular file it means
  // something only while another program holds a lease on it, and then waiting is right.
  int descriptor = RetryInterrupted([&] { return open(flags | O_NONBLOCK); });
  if (descriptor < 0 && errno == EWOULDBLOCK) {
    descriptor = RetryInterrupted([&] { return open(flags); });
  }
  if (descriptor < 0) return -1;
  bool good = ::fstat(descriptor, &status) == 0;
  if (good && (S_ISFIFO(status.st_mode) || S_ISCHR(status.st_mode) || S_ISBLK(status.st_mode))) {
    errno = EINVAL;
    good = false;
  }
  if (good) return descriptor;
  CloseQuietly(descriptor);
  return -1;
}

}  // namespace

int OpenDescriptor(const char* path, int flags, mode_t permissions, struct stat& status,
                   LinkRule rule) {
  const auto open = [&](int with) { return OpenPath(path, with, permissions, rule); };
  return OpenPlain(open, flags, status);
}

int OpenDescriptorAt(int directory, const char* name, int flags, mode_t permissions,
                     struct stat& status) {
  const auto open_at = LateFunction<"openat", decltype(::openat)>();
  const auto open = [&](int with) { return open_at(directory, name, with, permissions); };
  return OpenPlain(open, flags, status);
}

void CloseQuietly(int descriptor) {
  const int reason = errno;
  ::close(descriptor);
  errno = reason;
}

ssize_t ReadFully(int descriptor, char* buffer, size_t count) {
  size_t done = 0;
  while (done < count) {
    const ssize_t got =
        RetryInterrupted([&] { return ::read(descriptor, buffer + done, count - done); });
    if (got < 0) return -1;
    if (got == 0) break;
    done += static_cast<size_t>(got);
  }
  return static_cast<ssize_t>(done);
}

ssize_t WriteFully(int descriptor, const char* data, size_t count) {
  size_t done = 0;
  while (done < count) {
    const ssize_t put =
        RetryInterrupted([&] { return ::write(descriptor, data + done, count - done); });
    if (put == 0) errno = EIO;
    if (put <= 0) return -1;
    done += static_cast<size_t>(put);
  }
  return static_cast<ssize_t>(done);
}

}  // namespace vexa
