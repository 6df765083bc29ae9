// Closing and reopening behind the scenes; see unix_file_info.h.

#include "files/unix_file_info.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace vexa {

UNIXFileInfo::UNIXFileInfo(const String& filename, int fd, const OpenedAs& opened)
    : filename_(filename),
      fd_(fd),
      // Opening again must neither create the file, nor insist on creating it, nor empty it.
      flags_(opened.flags & ~(O_CREAT | O_EXCL | O_TRUNC)),
      links_(opened.links),
      identity_(IdentityOf(opened.status)),
      reopenable_(S_ISREG(opened.status.st_mode)),
      first_length_(opened.status.st_size) {}

UNIXFileInfo::~UNIXFileInfo() {
  if (fd_ >= 0) CloseQuietly(fd_);
}

int UNIXFileInfo::Activate() {
  struct stat status;
  const int fd = OpenDescriptor(filename_.c_str(), flags_, 0, status, links_);
  if (fd < 0) return -1;
  // Going on in another file would mix what is known of the old one with the bytes of the new.
  bool good = IdentityOf(status) == identity_;
  if (!good) {
    errno = ESTALE;
  } else if (offset_ != 0) {
    good = ::lseek(fd, offset_, SEEK_SET) >= 0;
  }
  if (!good) {
    CloseQuietly(fd);
    return -1;
  }
  fd_ = fd;
  return 0;
}

int UNIXFileInfo::Deactivate() {
  const off_t offset = ::lseek(fd_, 0, SEEK_CUR);
  if (offset < 0) return -1;
  offset_ = offset;
  CloseQuietly(TakeDescriptor());
  return 0;
}

int UNIXFileInfo::TakeDescriptor() {
  const int fd = fd_;
  fd_ = -1;
  return fd;
}

}  // namespace vexa
