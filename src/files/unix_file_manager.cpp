// The handle budget and what protects record locks from it; see unix_file_manager.h. The
// operations on paths are in unix_file_operations.cpp.
//
//   active_   open files with a descriptor, the last used first
//   parked_   descriptors that nobody uses any more, kept because closing them would drop locks
//
// POSIX drops all record locks of a file when any descriptor of it is closed by the process. So a
// file with a lock is never deactivated, and a descriptor of a file on which any File holds a lock
// is parked instead of closed. When only such files are left, the budget is exceeded.

#include "files/unix_file_manager.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "core/number.h"
#include "core/outside.h"
#include "files/named_lock.h"
#include "files/unix_file.h"

namespace vexa {

UNIXFileManager::~UNIXFileManager() {
  for (UNIXFileInfo& info : active_) info.file->Closed();
  for (UNIXFileInfo& info : inactive_) info.file->Closed();
  for (const Parked& parked : parked_) CloseQuietly(parked.fd);
}

std::unique_ptr<File> UNIXFileManager::Open(const String& path, int mode) {
  auto file = std::make_unique<UNIXFile>(*this);
  if (file->Open(path, mode) == 0) {
    error_ = file->error();
    return nullptr;
  }
  return file;
}

int UNIXFileManager::OpenMode(int mode) {
  int flags = O_RDONLY;
  if ((mode & OpenWrite) != 0) flags = (mode & OpenRead) != 0 ? O_RDWR : O_WRONLY;
  if ((mode & OpenCreate) != 0) flags |= O_CREAT;
  if ((mode & OpenTruncate) != 0) flags |= O_TRUNC;
  if ((mode & OpenAppend) != 0) flags |= O_APPEND;
  if ((mode & OpenExclusive) != 0) flags |= O_EXCL;
  return flags;
}

int UNIXFileManager::open(UNIXFile* file, const String& path, int flags, mode_t permissions) {
  if (!Usable(path) || FreeFileSpace(1) == 0) return -1;
  const bool creates = (flags & O_CREAT) != 0 && LogsFiles() && !Exists(path);
  const LinkRule links = RuleFor(path);
  struct stat status;
  const int fd = vexa::OpenDescriptor(path.c_str(), flags, permissions, status, links);
  if (fd < 0) return Checked(-1);
  Adopt(file, path, fd, {flags, links, status});
  LogFile(creates ? "FILECREATED" : "FILEOPENED", path);
  return fd;
}

void UNIXFileManager::Adopt(UNIXFile* file, const String& path, int fd,
                            const UNIXFileInfo::OpenedAs& opened) {
  active_.emplace_front(path, fd, opened);
  active_.front().file = file;
  file->info_ = active_.begin();
  file->open_ = true;
}

int UNIXFileManager::OpenDescriptor(const String& path, int flags, mode_t permissions) {
  if (!Usable(path)) {
    errno = EINVAL;
    return -1;
  }
  struct stat status;
  const int fd = vexa::OpenDescriptor(path.c_str(), flags, permissions, status, RuleFor(path));
  return fd < 0 ? Checked(-1) : fd;
}

int UNIXFileManager::FreeFileSpace(int count) {
  const int limit = host_.config().maxfiles;
  if (limit == 0) return 1;
  if (limit < count) {
    error_ = String::Concat({"Simultaneous request for ", PrintInteger(count),
                             " file handles exceeds the 'maxfiles' configuration directive."});
    return 0;
  }
  const auto room = static_cast<size_t>(limit - count);
  while (active_.size() + parked_.size() > room && DeactivateOne()) {
  }
  return 1;
}

bool UNIXFileManager::DeactivateOne() {
  for (auto info = active_.end(); info != active_.begin();) {
    --info;
    if (!info->reopenable() || HoldsLocks(info->identity()) || info->Deactivate() != 0) continue;
    inactive_.splice(inactive_.begin(), active_, info);
    return true;
  }
  return false;
}

int UNIXFileManager::ActivateFile(UNIXFile* file) {
  const auto info = file->info_;
  if (info->fd() >= 0) {
    active_.splice(active_.begin(), active_, info);
    return info->fd();
  }
  if (FreeFileSpace(1) == 0 || Checked(info->Activate()) != 0) return -1;
  active_.splice(active_.begin(), inactive_, info);
  return info->fd();
}

void UNIXFileManager::CloseFile(UNIXFile* file) {
  const auto info = file->info_;
  if (info->fd() < 0) {
    inactive_.erase(info);
    return;
  }
  const ByteRanges held = std::exchange(info->locks, ByteRanges());
  if (HoldsLocks(info->identity())) {
    for (const ByteRange& range : held.ranges()) (void)ReleaseRange(*info, range);
  }
  (void)CloseDescriptor(info->TakeDescriptor(), info->identity());
  active_.erase(info);
}

int UNIXFileManager::LockRange(UNIXFileInfo& info, const ByteRange& range, LockWait wait) {
  // A shared lock would weaken the exclusive one that another File holds on the same bytes.
  ByteRanges wanted;
  wanted.Add(range);
  if (range.type == FileLockType::Shared) {
    for (const UNIXFileInfo& other : active_) {
      if (&other == &info || !(other.identity() == info.identity())) continue;
      for (const ByteRange& held : other.locks.ranges()) {
        if (held.type == FileLockType::Exclusive) wanted.Remove(held);
      }
    }
  }
  for (size_t i = 0; i < wanted.ranges().size(); ++i) {
    if (TakeRecordLock(host_, info.fd(), wanted.ranges()[i], wait) == 0) continue;
    const int reason = errno;
    while (i-- > 0) (void)ReleaseRange(info, wanted.ranges()[i]);
    errno = reason;
    return -1;
  }
  info.locks.Add(range);
  return 0;
}

// Destructors come here: it takes no memory. What other Files of the file hold stays locked.
int UNIXFileManager::ReleaseRange(UNIXFileInfo& info, const ByteRange& range) {
  info.locks.Remove(range);
  int result = 0;
  for (int64_t at = range.start; at < range.end;) {
    int64_t held_to = at;
    ByteRange piece = {at, range.end, range.type};
    for (const UNIXFileInfo& other : active_) {
      if (&other == &info || !(other.identity() == info.identity())) continue;
      for (const ByteRange& held : other.locks.ranges()) {
        if (held.start > at) piece.end = std::min(piece.end, held.start);
        if (held.start <= at) held_to = std::max(held_to, held.end);
      }
    }
    if (held_to == at && DropRecordLock(info.fd(), piece) != 0) result = -1;
    at = held_to > at ? held_to : piece.end;
  }
  if (!parked_.empty() && !HoldsLocks(info.identity())) CloseParked(info.identity());
  return result;
}

bool UNIXFileManager::HoldsLocks(const FileIdentity& identity) const {
  return std::any_of(active_.begin(), active_.end(), [&](const UNIXFileInfo& info) {
    return !info.locks.empty() && info.identity() == identity;
  });
}

bool UNIXFileManager::HasOpen(const String& path) const {
  struct stat status;
  if (LookAtPath(path.c_str(), 0, status, RuleFor(path)) != 0) return false;
  const auto is_it = [identity = IdentityOf(status)](const auto& held) { return held == identity; };
  const auto is_file = [&](const UNIXFileInfo& info) { return is_it(info.identity()); };
  return std::any_of(active_.begin(), active_.end(), is_file) ||
         std::any_of(inactive_.begin(), inactive_.end(), is_file) ||
         std::any_of(parked_.begin(), parked_.end(),
                     [&](const Parked& parked) { return is_it(parked.identity); });
}

int UNIXFileManager::CloseDescriptor(int fd, const FileIdentity& identity) {
  if (HoldsLocks(identity)) {
    parked_.push_back({identity, fd});
    return 0;
  }
  CloseParked(identity);
  return ::close(fd);
}

void UNIXFileManager::CloseParked(const FileIdentity& identity) {
  std::erase_if(parked_, [&](const Parked& parked) {
    if (!(parked.identity == identity)) return false;
    CloseQuietly(parked.fd);
    return true;
  });
}

int UNIXFileManager::Lock(const String& lockfile) {
  if (!Usable(lockfile) || FreeFileSpace(1) == 0) return -1;
  const int result = TakeNamedLock(host_, lockfile, RuleFor(lockfile), error_);
  if (result == 1) LogFile("FILECREATED", lockfile);
  return result;
}

bool UNIXFileManager::LogsFiles() const {
  return host_.config().loglevel >= static_cast<int>(LogLevel::Files);
}

void UNIXFileManager::LogFile(std::string_view event, std::string_view detail) {
  if (LogsFiles()) host_.logfile().Write(LogLevel::Files, event, detail);
}

int UNIXFileManager::Checked(int result) {
  if (result == 0) return 0;
  const int reason = errno;
  error_ = host_.lasterror();
  errno = reason;
  return -1;
}

bool UNIXFileManager::Usable(const String& path) {
  LookOutside();
  if (!ContainsNul(path)) return true;
  error_ = kNulMessage;
  return false;
}

}  // namespace vexa
