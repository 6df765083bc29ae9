// The operations of UNIXFileManager that act on paths rather than open files.
//
// Each reports as the system does, with the reason in error(). What is opened here for a moment may
// be a file that is open elsewhere under a lock; so it is closed by CloseDescriptor, which keeps
// the descriptor then (see unix_file_manager.cpp). A file is never copied onto itself, whatever its
// names: the two are compared as files, not as paths.

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "core/late_function.h"
#include "core/number.h"
#include "files/descriptor.h"
#include "files/file_paths.h"
#include "files/unix_file.h"
#include "files/unix_file_manager.h"

namespace vexa {

namespace {

constexpr size_t kCopyBlock = 8192;

String WithoutTrailingSlash(const String& path) {
  return path.view().ends_with('/') ? path.before(path.length() - 1) : path;
}

}  // namespace

int UNIXFileManager::Delete(const String& path) {
  known_directories_.Forget();
  if (!Usable(path) || Checked(::unlink(path.c_str())) != 0) return -1;
  LogFile("FILEDELETED", path);
  return 0;
}

int UNIXFileManager::Copy(const String& from, const String& to) {
  if (!Usable(from) || !Usable(to) || FreeFileSpace(2) == 0) return -1;
  struct stat status;
  const int source = OpenDescriptor(from.c_str(), O_RDONLY, 0, status);
  if (source < 0) return Checked(-1);
  LogFile("FILEOPENED", from);
  const int result = CopyTo(to, source, IdentityOf(status));
  (void)CloseDescriptor(source, IdentityOf(status));
  return result;
}

int UNIXFileManager::CopyTo(const String& to, int source, const FileIdentity& source_identity) {
  // Reading comes first: a source that cannot be read must not cost the target its content.
  char block[kCopyBlock];
  ssize_t got = ReadFully(source, block, sizeof(block));
  if (got < 0) return Checked(-1);

  struct stat status;
  const bool exists = ::stat(to.c_str(), &status) == 0;
  if (exists && IdentityOf(status) == source_identity) {
    error_ = "Source and target are the same file";
    return -1;
  }
  const std::optional<int> replaced =
      Replace(to, [&](int descriptor) { return CopyBlocks(source, descriptor, block, got); });
  if (replaced == 0) LogFile(exists ? "FILEOPENED" : "FILECREATED", to);
  if (replaced) return *replaced;
  // What could be copied, but not be put in place, is read again.
  got = ::lseek(source, 0, SEEK_SET) == 0 ? ReadFully(source, block, sizeof(block)) : got;
  if (got < 0) return Checked(-1);
  bool created = true;
  int target = OpenDescriptor(to.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600, status);
  if (target < 0 && errno == EEXIST) {
    created = false;
    target = OpenDescriptor(to.c_str(), O_WRONLY | O_CREAT, 0600, status);
  }
  if (target < 0) return Checked(-1);
  LogFile(created ? "FILECREATED" : "FILEOPENED", to);
  const FileIdentity identity = IdentityOf(status);
  int result = 0;
  if (identity == source_identity) {
    error_ = "Source and target are the same file";
    result = -1;
  } else if (S_ISREG(status.st_mode)) {
    result = Checked(RetryInterrupted([&] { return ::ftruncate(target, 0); }));
  }
  if (result == 0) result = CopyBlocks(source, target, block, got);
  // Some file systems tell only now that the disk is full.
  if (CloseDescriptor(target, identity) != 0 && errno != EINTR && result == 0) {
    result = Checked(-1);
  }
  if (result != 0 && created) (void)::unlink(to.c_str());
  return result;
}

template <typename Fill>
std::optional<int> UNIXFileManager::Replace(const String& path, Fill fill) {
  constexpr int kPermissionBits = 07777;
  String real;
  if (!MayReplace(path, real)) return std::nullopt;
  struct stat former;
  const bool exists = ::stat(real.c_str(), &former) == 0;
  String name = real + ".";
  String digits;
  // The log knows the file that the page named, not how it came about.
  quiet_ = true;
  const std::unique_ptr<File> made = MakeTemporary(name, digits, OpenWrite);
  quiet_ = false;
  if (made == nullptr) return std::nullopt;
  const int descriptor = ActivateFile(static_cast<UNIXFile*>(made.get()));
  std::optional<int> result = descriptor < 0 ? -1 : fill(descriptor);
  if (*result >= 0 && ((exists && ::fchmod(descriptor, former.st_mode & kPermissionBits) != 0) ||
                       ::rename(name.c_str(), real.c_str()) != 0)) {
    result = std::nullopt;
  }
  if (result.value_or(-1) < 0) (void)::unlink(name.c_str());
  return result;
}

int UNIXFileManager::WriteBeside(const String& path, std::string_view data) {
  const bool exists = Exists(path);
  const std::optional<int> result = Replace(path, [&](int descriptor) {
    return WriteFully(descriptor, data.data(), data.size()) < 0 ? Checked(-1) : 0;
  });
  if (result == 0 && !exists) LogFile("FILECREATED", path);
  return result.value_or(1);
}

int UNIXFileManager::WriteNew(const String& path, std::string_view data) {
  if (!Usable(path)) return -1;
  // Without a name at first, where the system can; else under one that is renamed.
  std::unique_ptr<File> made = MakeUnnamed(path);
  const bool unnamed = made != nullptr;
  String name = path + ".";
  String digits;
  quiet_ = true;
  if (!unnamed) made = MakeTemporary(name, digits, OpenWrite);
  quiet_ = false;
  if (made == nullptr) return -1;
  const int descriptor = ActivateFile(static_cast<UNIXFile*>(made.get()));
  int result = descriptor < 0 ? -1 : 0;
  if (result == 0) result = Checked(WriteFully(descriptor, data.data(), data.size()) < 0 ? -1 : 0);
  if (result == 0) {
    const String source = String::Concat({"/proc/self/fd/", PrintInteger(descriptor)});
    result = unnamed ? ::linkat(AT_FDCWD, source.c_str(), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW)
                     : LateFunction<"renameat2", decltype(::renameat2)>()(
                           AT_FDCWD, name.c_str(), AT_FDCWD, path.c_str(), RENAME_NOREPLACE);
    const bool taken = result != 0 && errno == EEXIST;
    result = taken ? 1 : Checked(result);
  }
  if (!unnamed && result != 0) (void)::unlink(name.c_str());
  if (result == 0) LogFile("FILECREATED", path);
  return result;
}

std::unique_ptr<File> UNIXFileManager::MakeUnnamed(const String& path) {
  const std::string_view text = path.view();
  const String directory = text.substr(0, text.rfind('/') + 1);
  // Without this directory the file could not be named later.
  if (!Usable(directory) || ::access("/proc/self/fd", X_OK) != 0 || FreeFileSpace(1) == 0) {
    return nullptr;
  }
  struct stat status;
  const int fd = OpenDescriptor(directory.c_str(), O_TMPFILE | O_RDWR, 0600, status);
  if (fd < 0) return nullptr;
  auto file = std::make_unique<UNIXFile>(*this);
  Adopt(file.get(), path, fd, {O_RDWR, status});
  file->info_->KeepOpen();
  return file;
}

int UNIXFileManager::GiveName(File& file, String& path, String& suffix) {
  const int fd = ActivateFile(static_cast<UNIXFile*>(&file));
  if (fd < 0) return -1;
  const String source = String::Concat({"/proc/self/fd/", PrintInteger(fd)});
  for (unsigned counter = 1; counter <= 0x7FFFFFFF; ++counter) {
    char digits[9];
    std::snprintf(digits, sizeof(digits), "%08X", counter);
    const String name = String::Concat({path.view(), digits});
    if (::linkat(AT_FDCWD, source.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) != 0) {
      if (errno == EEXIST) continue;
      return Checked(-1);
    }
    static_cast<UNIXFile&>(file).info_->Renamed(name);
    LogFile("FILECREATED", name);
    path = name;
    suffix.cat(digits);
    return 0;
  }
  error_ = "Unable to generate unique temporary filename";
  return -1;
}

int UNIXFileManager::CopyBlocks(int source, int target, char* block, ssize_t got) {
  while (got > 0) {
    // A source may grow as fast as it is copied, or have no end.
    if (host_.timedout()) {
      error_ = "Timed out while copying";
      return -1;
    }
    if (WriteFully(target, block, static_cast<size_t>(got)) < 0) return Checked(-1);
    got = ReadFully(source, block, kCopyBlock);
  }
  return Checked(static_cast<int>(got));
}

int UNIXFileManager::Rename(const String& from, const String& to) {
  known_directories_.Forget();
  if (!Usable(from) || !Usable(to)) return -1;
  if (::rename(from.c_str(), to.c_str()) == 0) {
    for (auto* list : {&active_, &inactive_}) {
      for (UNIXFileInfo& info : *list) {
        if (info.filename() == from) info.Renamed(to);
      }
    }
    LogFile("FILERENAMED", String::Concat({from, " -> ", to}));
    return 0;
  }
  if (errno != EXDEV) return Checked(-1);
  return Copy(from, to) == 0 ? Delete(from) : -1;
}

int UNIXFileManager::TouchFile(const String& path) {
  return Usable(path) && Checked(::utime(path.c_str(), nullptr)) == 0 ? 1 : 0;
}

bool UNIXFileManager::Exists(const String& path) {
  struct stat status;
  return Usable(path) && ::stat(path.c_str(), &status) == 0;
}

bool UNIXFileManager::MayWrite(const String& path) {
  return Usable(path) && ::faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) == 0;
}

bool UNIXFileManager::MayReplace(const String& path, String& real) {
  if (RealPath(path, real) < 0) {
    // A link to nothing is no place.
    struct stat status;
    real = path;
    return Usable(path) && ::lstat(path.c_str(), &status) != 0 && errno == ENOENT;
  }
  struct stat status;
  return ::stat(real.c_str(), &status) == 0 && S_ISREG(status.st_mode) && status.st_nlink == 1 &&
         status.st_uid == ::geteuid();
}

int UNIXFileManager::RealPath(const String& path, String& real) {
  if (!Usable(path)) return -1;
  const auto release = [](char* text) { std::free(text); };
  const std::unique_ptr<char, decltype(release)> found(::realpath(path.c_str(), nullptr), release);
  if (found == nullptr) return Checked(-1);
  real = std::string_view(found.get());
  return 0;
}

int UNIXFileManager::SyncDirectory(const String& path) {
  const std::string_view text = path.view();
  const size_t slash = text.rfind('/');
  const String directory = slash == std::string_view::npos ? "." : text.substr(0, slash + 1);
  if (!Usable(directory)) return -1;
  struct stat status;
  const int fd = OpenDescriptor(directory.c_str(), O_RDONLY | O_DIRECTORY, 0, status);
  if (fd < 0) return Checked(-1);
  const int result = Checked(RetryInterrupted([&] { return ::fsync(fd); }));
  CloseQuietly(fd);
  return result;
}

int64_t UNIXFileManager::Length(const String& path) {
  struct stat status;
  if (!Usable(path) || Checked(::stat(path.c_str(), &status)) != 0) return -1;
  return status.st_size;
}

bool UNIXFileManager::IsDirectory(const String& path) {
  struct stat status;
  return Usable(path) && ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

int UNIXFileManager::MakeDirectory(const String& path) {
  known_directories_.Forget();
  return Usable(path) ? Checked(::mkdir(WithoutTrailingSlash(path).c_str(), 0700)) : -1;
}

int UNIXFileManager::RemoveDirectory(const String& path) {
  known_directories_.Forget();
  return Usable(path) ? Checked(::rmdir(WithoutTrailingSlash(path).c_str())) : -1;
}

int UNIXFileManager::ListDirectory(const String& path, std::vector<String>& names) {
  if (!Usable(path) || FreeFileSpace(1) == 0) return -1;
  const auto close = [](DIR* directory) { ::closedir(directory); };
  const std::unique_ptr<DIR, decltype(close)> directory(::opendir(path.c_str()), close);
  if (directory == nullptr) return Checked(-1);
  std::vector<String> found;
  for (;;) {
    errno = 0;
    const dirent* entry = ::readdir(directory.get());
    if (entry == nullptr && errno != 0) return Checked(-1);
    if (entry == nullptr) break;
    const std::string_view name(entry->d_name);
    if (name != "." && name != "..") found.emplace_back(name);
  }
  std::sort(found.begin(), found.end(),
            [](const String& a, const String& b) { return a.view() < b.view(); });
  names = std::move(found);
  return 0;
}

int UNIXFileManager::MakeSymbolicLink(const String& target, const String& link) {
  known_directories_.Forget();
  // The system's reason is not stored, on purpose: callers word this failure themselves.
  return Usable(target) && Usable(link) ? ::symlink(target.c_str(), link.c_str()) : -1;
}

int UNIXFileManager::Mode(const String& path) {
  struct stat status;
  if (!Usable(path) || Checked(::stat(path.c_str(), &status)) != 0) return -1;
  return static_cast<int>(status.st_mode);
}

int UNIXFileManager::ChangeMode(const String& path, int mode) {
  return Usable(path) ? Checked(::chmod(path.c_str(), static_cast<mode_t>(mode))) : -1;
}

String UNIXFileManager::StripExtension(const String& path) const {
  return vexa::StripExtension(path);
}

String UNIXFileManager::StripDirectory(const String& path) const {
  return vexa::StripDirectory(path);
}

uid_t UNIXFileManager::GetOwnerUID(const String& path) const { return vexa::GetOwnerUID(path); }

bool UNIXFileManager::KnowsDirectory(const String& path) const {
  const std::string_view text = path;
  return known_directories_.Knows(text.substr(0, text.find_last_not_of('/') + 1));
}

int UNIXFileManager::FollowPath(String& path, int allow_links, int allow_other_owner) const {
  return vexa::FollowPath(path, allow_links, allow_other_owner, known_directories_);
}

}  // namespace vexa
