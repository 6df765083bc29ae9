// The operations of UNIXFileManager that act on paths rather than open files.
//
// Where the site allows no links, each works on a descriptor of the directory, or of the file,
// which was opened without passing one (held_name.h, linkless_open.h).
//
// Each reports as the system does, with the reason in error(). What is opened here for a moment may
// be a file that is open elsewhere under a lock; so it is closed by CloseDescriptor, which keeps
// the descriptor then (see unix_file_manager.cpp). A file is never copied onto itself, whatever its
// names: the two are compared as files, not as paths.

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <string_view>
#include <utility>
#include <vector>

#include "core/late_function.h"
#include "core/linkless_open.h"
#include "core/number.h"
#include "files/descriptor.h"
#include "files/file_paths.h"
#include "files/held_name.h"
#include "files/unix_file.h"
#include "files/unix_file_manager.h"

namespace vexa {

namespace {

constexpr size_t kCopyBlock = 8192;

String WithoutTrailingSlash(const String& path) {
  return path.view().ends_with('/') ? path.before(path.length() - 1) : path;
}

// One slash where there are several, none at the end.
String WithoutSurplusSlashes(const String& path) {
  String result;
  result.Reserve(path.size());
  for (const char c : path.view()) {
    if (c != '/' || !result.view().ends_with('/')) result.Accumulate(c);
  }
  return result.size() > 1 ? WithoutTrailingSlash(result) : result;
}

// A path that leads to what `descriptor` has open, where the system gives such paths.
String PathOf(int descriptor) {
  return String::Concat({"/proc/self/fd/", PrintInteger(descriptor)});
}

// Gives the file that `descriptor` has open the name `name`.
int LinkTo(int descriptor, const HeldName& name, const char* text) {
  return ::linkat(AT_FDCWD, PathOf(descriptor).c_str(), name.directory(), text, AT_SYMLINK_FOLLOW);
}

}  // namespace

int UNIXFileManager::Status(const String& path, struct stat& status) {
  return Usable(path) ? Checked(LookAtPath(path.c_str(), 0, status, RuleFor(path))) : -1;
}

template <typename Act>
int UNIXFileManager::ActOn(const String& path, Act act) {
  if (!Usable(path)) return -1;
  const HeldName name(path, RuleFor(path));
  return Checked(name.good() ? act(name) : -1);
}

int UNIXFileManager::LookAt(const String& path, struct stat& status) {
  errno = EINVAL;
  if (!Usable(path)) return -1;
  return Checked(LookAtPath(path.c_str(), O_NOFOLLOW, status, RuleFor(path)));
}

bool UNIXFileManager::FollowsLink(const String& path) {
  struct stat status;
  return RuleFor(path) == LinkRule::Follow && Usable(path) && ::lstat(path.c_str(), &status) == 0 &&
         S_ISLNK(status.st_mode);
}

int UNIXFileManager::Delete(const String& path) {
  known_directories_.Forget();
  if (ActOn(path, [](const HeldName& name) { return name.Remove(); }) != 0) return -1;
  LogFile("FILEDELETED", path);
  return 0;
}

int UNIXFileManager::Copy(const String& from, const String& to) {
  if (!Usable(from) || !Usable(to) || FreeFileSpace(2) == 0) return -1;
  struct stat status;
  const int source = vexa::OpenDescriptor(from.c_str(), O_RDONLY, 0, status, RuleFor(from));
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

  const LinkRule links = RuleFor(to);
  struct stat status;
  const bool exists = LookAtPath(to.c_str(), 0, status, links) == 0;
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
  int target = vexa::OpenDescriptor(to.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600, status, links);
  if (target < 0 && errno == EEXIST) {
    created = false;
    target = vexa::OpenDescriptor(to.c_str(), O_WRONLY | O_CREAT, 0600, status, links);
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
  if (result != 0 && created) {
    const HeldName made(to, links);
    if (made.good()) (void)made.Remove();
  }
  return result;
}

template <typename Fill>
std::optional<int> UNIXFileManager::Replace(const String& path, Fill fill) {
  // A link that is followed leads to the file that is replaced.
  const LinkRule links = RuleFor(path);
  String real;
  if (links == LinkRule::Refuse || RealPath(path, real) < 0) real = path;
  if (!Usable(real)) return std::nullopt;
  const HeldName place(real, links);
  Former former;
  String name;
  if (!place.good() || !MayReplace(place, former)) return std::nullopt;
  const int descriptor = MakeBeside(place, name);
  if (descriptor < 0) return std::nullopt;
  std::optional<int> result = fill(descriptor);
  if (*result >= 0 && ((former.exists && ::fchmod(descriptor, former.permissions) != 0) ||
                       place.RenameFrom(place, name.c_str()) != 0)) {
    result = std::nullopt;
  }
  if (result.value_or(-1) < 0) (void)place.Remove(name.c_str());
  CloseQuietly(descriptor);
  return result;
}

int UNIXFileManager::WriteBeside(const String& path, std::string_view data) {
  const bool exists = LogsFiles() && Exists(path);
  const std::optional<int> result = Replace(path, [&](int descriptor) {
    return WriteFully(descriptor, data.data(), data.size()) < 0 ? Checked(-1) : 0;
  });
  if (result == 0 && !exists) LogFile("FILECREATED", path);
  return result.value_or(1);
}

int UNIXFileManager::WriteNew(const String& path, std::string_view data) {
  if (!Usable(path)) return -1;
  const HeldName place(path, RuleFor(path));
  if (!place.good()) return Checked(-1);
  // Without a name at first, where the system can; else under one that is renamed.
  String name;
  struct stat status;
  const int unnamed = OpenUnnamed(path, status);
  const int descriptor = unnamed >= 0 ? unnamed : MakeBeside(place, name);
  if (descriptor < 0) return -1;
  int result = Checked(WriteFully(descriptor, data.data(), data.size()) < 0 ? -1 : 0);
  if (result == 0) {
    result = unnamed >= 0 ? LinkTo(unnamed, place, place.text())
                          : LateFunction<"renameat2", decltype(::renameat2)>()(
                                place.directory(), name.c_str(), place.directory(), place.text(),
                                RENAME_NOREPLACE);
    const bool taken = result != 0 && errno == EEXIST;
    result = taken ? 1 : Checked(result);
  }
  if (unnamed < 0 && result != 0) (void)place.Remove(name.c_str());
  CloseQuietly(descriptor);
  if (result == 0) LogFile("FILECREATED", path);
  return result;
}

// A descriptor of a new file without a name, or -1.
int UNIXFileManager::OpenUnnamed(const String& path, struct stat& status) {
  const std::string_view text = path.view();
  const String directory = text.substr(0, text.rfind('/') + 1);
  // Without this directory the file could not be named later.
  if (!Usable(directory) || ::access("/proc/self/fd", X_OK) != 0 || FreeFileSpace(1) == 0) {
    return -1;
  }
  return vexa::OpenDescriptor(directory.c_str(), O_TMPFILE | O_RDWR, 0600, status, RuleFor(path));
}

std::unique_ptr<File> UNIXFileManager::MakeUnnamed(const String& path) {
  struct stat status;
  const int fd = OpenUnnamed(path, status);
  if (fd < 0) return nullptr;
  auto file = std::make_unique<UNIXFile>(*this);
  Adopt(file.get(), path, fd, {O_RDWR, RuleFor(path), status});
  file->info_->KeepOpen();
  return file;
}

template <typename Take>
int UNIXFileManager::TakeFreeName(std::string_view stem, String& name, String& suffix, Take take) {
  suffix.Reserve(suffix.size() + 8);  // Once the name is taken nothing may fail.
  for (unsigned counter = 1; counter <= 0x7FFFFFFF; ++counter) {
    char digits[9];
    std::snprintf(digits, sizeof(digits), "%08X", counter);
    name = String::Concat({stem, digits});
    if (take(name.c_str()) < 0) {
      if (errno == EEXIST) continue;
      return Checked(-1);
    }
    suffix.cat(digits);
    return 0;
  }
  error_ = "Unable to generate unique temporary filename";
  return -1;
}

int UNIXFileManager::MakeBeside(const HeldName& place, String& name) {
  if (FreeFileSpace(1) == 0) return -1;
  int fd = -1;
  String digits;
  const auto make = [&](const char* text) {
    struct stat status;
    return fd = place.Open(text, O_WRONLY | O_CREAT | O_EXCL, 0600, status);
  };
  return TakeFreeName(place.With("."), name, digits, make) == 0 ? fd : -1;
}

std::unique_ptr<File> UNIXFileManager::MakeTemporary(String& path, String& suffix, int mode) {
  if (!Usable(path) || FreeFileSpace(1) == 0) return nullptr;
  const int flags = OpenMode(mode | OpenCreate | OpenExclusive);
  const LinkRule links = RuleFor(path);
  struct stat status;
  String name;
  int fd = -1;
  const auto make = [&](const char* text) {
    return fd = vexa::OpenDescriptor(text, flags, 0600, status, links);
  };
  if (TakeFreeName(path, name, suffix, make) != 0) return nullptr;
  try {
    auto file = std::make_unique<UNIXFile>(*this);
    Adopt(file.get(), name, fd, {OpenMode(mode), links, status});
    LogFile("FILECREATED", name);
    path = name;
    return file;
  } catch (const std::bad_alloc&) {
    (void)HeldName(name, links).Remove();
    throw;
  }
}

int UNIXFileManager::GiveName(File& file, String& path, String& suffix) {
  const int fd = ActivateFile(static_cast<UNIXFile*>(&file));
  if (fd < 0) return -1;
  const LinkRule links = RuleFor(path);
  const HeldName place(path, links);
  if (!place.good()) return Checked(-1);
  String name;
  const size_t before = suffix.size();
  const auto link = [&](const char* text) { return LinkTo(fd, place, text); };
  if (TakeFreeName(place.text(), name, suffix, link) != 0) return -1;
  path.cat(suffix.view().substr(before));
  static_cast<UNIXFile&>(file).info_->Renamed(path, links);
  LogFile("FILECREATED", path);
  return 0;
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
  const LinkRule links = RuleFor(to);
  int result = -1;
  {
    const HeldName former(from, RuleFor(from));
    const HeldName name(to, links, &former);
    if (former.good() && name.good()) result = name.RenameFrom(former, former.text());
  }
  if (result == 0) {
    for (auto* list : {&active_, &inactive_}) {
      for (UNIXFileInfo& info : *list) {
        if (info.filename() == from) info.Renamed(to, links);
      }
    }
    LogFile("FILERENAMED", String::Concat({from, " -> ", to}));
    return 0;
  }
  if (errno != EXDEV) return Checked(-1);
  return Copy(from, to) == 0 ? Delete(from) : -1;
}

int UNIXFileManager::TouchFile(const String& path) {
  const auto touch = [](const HeldName& name) {
    const auto set_times = LateFunction<"utimensat", decltype(::utimensat)>();
    return set_times(name.directory(), name.BareText().c_str(), nullptr, name.flags());
  };
  return ActOn(path, touch) == 0 ? 1 : 0;
}

bool UNIXFileManager::Exists(const String& path) {
  if (!Usable(path)) return false;
  struct stat status;
  if (RuleFor(path) == LinkRule::Follow) return ::stat(path.c_str(), &status) == 0;
  const int found = OpenPath(path.c_str(), O_PATH, 0, LinkRule::Refuse);
  if (found >= 0) CloseQuietly(found);
  return found >= 0;
}

bool UNIXFileManager::MayWrite(const String& path) {
  if (!Usable(path)) return false;
  const HeldName name(path, RuleFor(path));
  return name.good() && ::faccessat(name.directory(), name.BareText().c_str(), W_OK,
                                    AT_EACCESS | name.flags()) == 0;
}

bool UNIXFileManager::MayReplace(const HeldName& place, Former& former) {
  constexpr mode_t kPermissionBits = 07777;
  struct stat status;
  former = {place.LookAt(place.BareText().c_str(), status) == 0, 0};
  // A link to nothing is no place.
  if (!former.exists) return errno == ENOENT;
  former.permissions = status.st_mode & kPermissionBits;
  return S_ISREG(status.st_mode) && status.st_nlink == 1 && status.st_uid == ::geteuid();
}

int UNIXFileManager::RealPath(const String& path, String& real) {
  if (RuleFor(path) == LinkRule::Refuse) {
    // There is none in it.
    struct stat status;
    if (Status(path, status) != 0) return -1;
    real = WithoutSurplusSlashes(path);
    return 0;
  }
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
  const int fd =
      vexa::OpenDescriptor(directory.c_str(), O_RDONLY | O_DIRECTORY, 0, status, RuleFor(path));
  if (fd < 0) return Checked(-1);
  const int result = Checked(RetryInterrupted([&] { return ::fsync(fd); }));
  CloseQuietly(fd);
  return result;
}

int64_t UNIXFileManager::Length(const String& path) {
  struct stat status;
  return Status(path, status) == 0 ? status.st_size : -1;
}

bool UNIXFileManager::IsDirectory(const String& path) {
  struct stat status;
  return Usable(path) && LookAtPath(path.c_str(), 0, status, RuleFor(path)) == 0 &&
         S_ISDIR(status.st_mode);
}

int UNIXFileManager::MakeDirectoryWith(const String& path, mode_t permissions) {
  known_directories_.Forget();
  return ActOn(WithoutTrailingSlash(path), [&](const HeldName& name) {
    return LateFunction<"mkdirat", decltype(::mkdirat)>()(name.directory(), name.text(),
                                                          permissions);
  });
}

int UNIXFileManager::RemoveDirectory(const String& path) {
  known_directories_.Forget();
  return ActOn(WithoutTrailingSlash(path), [](const HeldName& name) {
    return LateFunction<"unlinkat", decltype(::unlinkat)>()(name.directory(), name.text(),
                                                            AT_REMOVEDIR);
  });
}

int UNIXFileManager::ListDirectory(const String& path, std::vector<String>& names) {
  if (!Usable(path) || FreeFileSpace(1) == 0) return -1;
  const int opened = OpenPath(path.c_str(), O_RDONLY | O_NONBLOCK | O_DIRECTORY, 0, RuleFor(path));
  const auto close = [](DIR* directory) { ::closedir(directory); };
  const std::unique_ptr<DIR, decltype(close)> directory(
      opened < 0 ? nullptr : LateFunction<"fdopendir", decltype(::fdopendir)>()(opened), close);
  if (directory == nullptr) {
    if (opened >= 0) CloseQuietly(opened);
    return Checked(-1);
  }
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
  if (!Usable(target) || !Usable(link)) return -1;
  // The system's reason is not stored, on purpose: callers word this failure themselves.
  const HeldName name(link, RuleFor(link));
  return name.good() ? LateFunction<"symlinkat", decltype(::symlinkat)>()(
                           target.c_str(), name.directory(), name.text())
                     : -1;
}

int UNIXFileManager::Mode(const String& path) {
  struct stat status;
  return Status(path, status) == 0 ? static_cast<int>(status.st_mode) : -1;
}

// The call for a name follows links, so the file itself is held. One that cannot be read can be
// held only for its path, which the system takes where it shows this process its descriptors.
int UNIXFileManager::ChangeMode(const String& path, int mode) {
  if (!Usable(path)) return -1;
  const auto permissions = static_cast<mode_t>(mode);
  if (RuleFor(path) == LinkRule::Follow) return Checked(::chmod(path.c_str(), permissions));
  const int held = OpenPath(path.c_str(), O_PATH, 0, LinkRule::Refuse);
  if (held < 0) return Checked(-1);
  int result = ::chmod(PathOf(held).c_str(), permissions);
  const bool hidden = result != 0 && (errno == ENOENT || errno == ENOTDIR || errno == EACCES);
  CloseQuietly(held);
  if (!hidden) return Checked(result);
  struct stat status;
  const int fd = vexa::OpenDescriptor(path.c_str(), O_RDONLY, 0, status, LinkRule::Refuse);
  if (fd < 0) return Checked(-1);
  result = Checked(::fchmod(fd, permissions));
  (void)CloseDescriptor(fd, IdentityOf(status));
  return result;
}

String UNIXFileManager::StripExtension(const String& path) const {
  return vexa::StripExtension(path);
}

String UNIXFileManager::StripDirectory(const String& path) const {
  return vexa::StripDirectory(path);
}

uid_t UNIXFileManager::GetOwnerUID(const String& path) const { return vexa::GetOwnerUID(path); }

int UNIXFileManager::FollowPath(String& path, int allow_links, int allow_other_owner) const {
  bool ignored;
  return FollowPath(path, allow_links, allow_other_owner, ignored);
}

int UNIXFileManager::FollowPath(String& path, int allow_links, int allow_other_owner,
                                bool& seen) const {
  const int outcome =
      vexa::FollowPath(path, allow_links, allow_other_owner, known_directories_, seen);
  if (outcome == kPathGood) {
    link_rules_.Note(path, allow_links != 0 ? LinkRule::Follow : LinkRule::Refuse);
  }
  return outcome;
}

}  // namespace vexa
