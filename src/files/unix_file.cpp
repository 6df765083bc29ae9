// Reading, writing and locking an open file; see unix_file.h.

#include "files/unix_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "core/outside.h"
#include "files/descriptor.h"
#include "files/unix_file_manager.h"

namespace vexa {

int UNIXFile::Open(const String& path, int mode) {
  Close();
  named_until_ = 0;
  if (manager_.open(this, path, UNIXFileManager::OpenMode(mode), 0600) < 0) {
    error_ = manager_.error();
    return 0;
  }
  return 1;
}

int UNIXFile::Close() {
  if (open_) {
    open_ = false;
    manager_.CloseFile(this);
  }
  return 1;
}

int UNIXFile::Read(char* buffer, int count) {
  int fd;
  if (!Activate(fd)) return -1;
  if (count < 0) return Fail(EINVAL);
  const ssize_t got =
      RetryInterrupted([&] { return ::read(fd, buffer, static_cast<size_t>(count)); });
  return got < 0 ? Fail() : static_cast<int>(got);
}

int UNIXFile::Write(const char* data, int count) {
  int fd;
  if (!Activate(fd)) return -1;
  if (count < 0) return Fail(EINVAL);
  return WriteFully(fd, data, static_cast<size_t>(count)) < 0 ? Fail() : count;
}

int64_t UNIXFile::Seek(int64_t offset) {
  int fd;
  if (!Activate(fd)) return -1;
  const off_t reached = ::lseek(fd, offset, SEEK_SET);
  return reached < 0 ? Fail() : reached;
}

int64_t UNIXFile::Tell() {
  int fd;
  if (!Activate(fd)) return -1;
  const off_t offset = ::lseek(fd, 0, SEEK_CUR);
  return offset < 0 ? Fail() : offset;
}

int64_t UNIXFile::Length() {
  int fd;
  if (!Activate(fd)) return -1;
  struct stat status;
  return ::fstat(fd, &status) != 0 ? Fail() : status.st_size;
}

int UNIXFile::Lock(FileLockType type, int64_t start, int64_t length) {
  int fd;
  if (!Activate(fd)) return -1;
  if (start < 0 || length < 0) return Fail(EINVAL);
  const ByteRange range = ByteRanges::Covered(start, length, type);
  return manager_.LockRange(*info_, range, LockWait::UntilFree) != 0 ? Fail() : 0;
}

int UNIXFile::TryLock(FileLockType type, int64_t start, int64_t length) {
  int fd;
  if (!Activate(fd)) return -1;
  if (start < 0 || length < 0) return Fail(EINVAL);
  const ByteRange range = ByteRanges::Covered(start, length, type);
  if (manager_.LockRange(*info_, range, LockWait::None) == 0) return 1;
  return errno == EACCES || errno == EAGAIN ? 0 : Fail();
}

int UNIXFile::Release(int64_t start, int64_t length) {
  int fd;
  if (!Activate(fd)) return -1;
  if (start < 0 || length < 0) return Fail(EINVAL);
  const ByteRange range = ByteRanges::Covered(start, length, FileLockType::Shared);
  return manager_.ReleaseRange(*info_, range) != 0 ? Fail() : 0;
}

int UNIXFile::ReadAt(int64_t offset, char* buffer, int count) {
  int fd;
  if (!Activate(fd)) return -1;
  if (count < 0) return Fail(EINVAL);
  int done = 0;
  while (done < count) {
    const ssize_t got = RetryInterrupted([&] {
      return ::pread(fd, buffer + done, static_cast<size_t>(count - done), offset + done);
    });
    if (got < 0) return Fail();
    if (got == 0) break;
    done += static_cast<int>(got);
    if (info_->EndsAt(offset + done)) break;
  }
  return done;
}

int UNIXFile::WriteAt(int64_t offset, const char* data, int count) {
  int fd;
  if (!Activate(fd)) return -1;
  if (count < 0) return Fail(EINVAL);
  int done = 0;
  while (done < count) {
    const ssize_t put = RetryInterrupted([&] {
      return ::pwrite(fd, data + done, static_cast<size_t>(count - done), offset + done);
    });
    if (put == 0) return Fail(EIO);
    if (put < 0) return Fail();
    done += static_cast<int>(put);
  }
  return done;
}

int UNIXFile::Truncate(int64_t length) {
  int fd;
  if (!Activate(fd)) return -1;
  return RetryInterrupted([&] { return ::ftruncate(fd, length); }) != 0 ? Fail() : 0;
}

int UNIXFile::Sync() {
  int fd;
  if (!Activate(fd)) return -1;
  return RetryInterrupted([&] { return ::fsync(fd); }) != 0 ? Fail() : 0;
}

int UNIXFile::Touch() {
  int fd;
  if (!Activate(fd)) return -1;
  return ::futimens(fd, nullptr) != 0 ? Fail() : 0;
}

int UNIXFile::StillNamed(NameCheck check, FileStamp& stamp) {
  if (!open_) return Fail(EBADF);
  LookOutside();
  const auto note = [&](const struct stat& status) {
    constexpr int64_t kNanoseconds = 1'000'000'000;
    stamp.modified = int64_t{status.st_mtim.tv_sec} * kNanoseconds + status.st_mtim.tv_nsec;
    stamp.length = status.st_size;
  };
  struct stat status;
  const int64_t now = SteadyTime();
  // A file whose only name another one took has none left. That somebody gave it another name shows
  // when the path is asked again.
  if (check == NameCheck::ByLink && info_->fd() >= 0 && now < named_until_ &&
      ::fstat(info_->fd(), &status) == 0 && status.st_nlink == 1) {
    note(status);
    return 1;
  }
  named_until_ = 0;
  // The identity is remembered, so an inactive file need not be opened for this. A link on the way
  // can make this say no more than that it leads to this very file; whatever else is seen is asked
  // again by a way that passes none.
  const char* const path = info_->filename().c_str();
  int looked = ::stat(path, &status);
  if ((looked != 0 || !(IdentityOf(status) == info_->identity())) &&
      info_->links() == LinkRule::Refuse) {
    looked = LookAtPath(path, 0, status, LinkRule::Refuse);
  }
  if (looked == 0) {
    note(status);
    if (!(IdentityOf(status) == info_->identity())) return 0;
    named_until_ = now + kLongestTrust;
    return 1;
  }
  return errno == ENOENT || errno == ENOTDIR || MetLink() ? 0 : Fail();
}

void UNIXFile::KeepOpen() {
  // A closed one would have to be opened again when it is read.
  int fd;
  if (Activate(fd)) info_->KeepOpen();
}

int UNIXFile::Status(struct stat& status) {
  int fd;
  if (!Activate(fd)) return -1;
  return ::fstat(fd, &status) != 0 ? Fail() : 0;
}

// Whether the last call found a link that must not be passed: it took the place of the file.
bool UNIXFile::MetLink() const { return errno == ELOOP && info_->links() == LinkRule::Refuse; }

bool UNIXFile::Activate(int& fd) {
  LookOutside();
  if (!open_) {
    (void)Fail(EBADF);
    return false;
  }
  fd = manager_.ActivateFile(this);
  if (fd < 0) error_ = manager_.error();
  return fd >= 0;
}

int UNIXFile::Fail() {
  error_ = manager_.host().lasterror();
  return -1;
}

int UNIXFile::Fail(int reason) {
  errno = reason;
  return Fail();
}

}  // namespace vexa
