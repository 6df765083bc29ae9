// File and FileManager: what everybody above the core knows of files. The file services of a
// request implement them; tests put files in memory behind them.

#ifndef VEXA_CORE_FILE_H_
#define VEXA_CORE_FILE_H_

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "core/string.h"

namespace vexa {

// Bits of the mode a file is opened with.
enum OpenMode : int {
  OpenRead = 1,
  OpenWrite = 2,
  OpenCreate = 4,
  OpenTruncate = 8,
  OpenAppend = 16,
  OpenExclusive = 32,
};

enum class FileLockType { Shared = 0, Exclusive = 1 };

// How a file is compared with the one that its path names. ByLink is for readers: a file that has
// one name, and had the right one a moment ago, is asked only whether it still has a name.
enum class NameCheck { ByPath, ByLink };

// What tells without reading a file whether somebody wrote to it.
struct FileStamp {
  int64_t modified = 0;  // nanoseconds since 1970
  int64_t length = 0;    // bytes
  friend bool operator==(const FileStamp& a, const FileStamp& b) = default;
};

// An open file, made by FileManager::Open. Its descriptor may be closed and reopened behind the
// scenes to keep the handle budget; offsets and sizes are in bytes. Operations return a negative
// value on failure, with the message in error(). Destroying a File closes it; that must happen
// before its manager is destroyed.
class File {
 public:
  virtual ~File() = default;
  // Up to `count` bytes into `buffer`; returns the number read, 0 at the end of the file.
  [[nodiscard]] virtual int Read(char* buffer, int count) = 0;
  [[nodiscard]] virtual int Write(const char* data, int count) = 0;
  // Moves to `offset` from the start; returns the new offset.
  [[nodiscard]] virtual int64_t Seek(int64_t offset) = 0;
  [[nodiscard]] virtual int64_t Tell() = 0;
  [[nodiscard]] virtual int64_t Length() = 0;
  // Waits for a record lock on `length` bytes from `start` (length 0: to the end of the file).
  // Returns 0, or a negative value.
  [[nodiscard]] virtual int Lock(FileLockType type, int64_t start, int64_t length) = 0;
  // The same without waiting: 1 when it was taken, 0 when others hold what is in its way.
  [[nodiscard]] virtual int TryLock(FileLockType type, int64_t start, int64_t length) = 0;
  virtual int Release(int64_t start, int64_t length) = 0;
  // Reads or writes at `offset` without moving the file's own offset: one system call each.
  // Return as Read and Write do.
  [[nodiscard]] virtual int ReadAt(int64_t offset, char* buffer, int count) = 0;
  [[nodiscard]] virtual int WriteAt(int64_t offset, const char* data, int count) = 0;
  // Cuts or extends the file to `length` bytes. Returns 0, or a negative value.
  [[nodiscard]] virtual int Truncate(int64_t length) = 0;
  // Waits until what was written is on the disk. Returns 0, or a negative value.
  [[nodiscard]] virtual int Sync() = 0;
  // Sets the times of this very file to now, also when its path names another one meanwhile.
  // Returns 0, or a negative value.
  [[nodiscard]] virtual int Touch() = 0;
  // Whether the path it was opened with still names this file: 1 yes, 0 no (it was replaced or
  // removed), negative when that cannot be told. `stamp` is that of the file the path names.
  [[nodiscard]] virtual int StillNamed(NameCheck check, FileStamp& stamp) = 0;
  [[nodiscard]] int StillNamed() {
    FileStamp ignored;
    return StillNamed(NameCheck::ByPath, ignored);
  }
  // From now on it stays this very file, whatever its path names when handles run short.
  virtual void KeepOpen() = 0;
  // What the system knows of this very file, whatever its path names meanwhile. 0, or a negative
  // value.
  [[nodiscard]] virtual int Status(struct stat& status) = 0;
  [[nodiscard]] virtual const String& error() const = 0;
};

// The file services of a request. All paths are finished paths, as ResolvePath gives them. Where
// the site allows no links, no operation passes one, also one that was put there behind the
// resolving: the operation then fails. Pipes and devices are not opened.
// Operations that return int give a negative value on failure, with the message in error().
class FileManager {
 public:
  virtual ~FileManager() = default;
  // Opens `path` with OpenMode bits; null on failure.
  [[nodiscard]] virtual std::unique_ptr<File> Open(const String& path, int mode) = 0;
  // Opens `path` with POSIX flags for a library that works on descriptors of its own. The caller
  // closes it. It lies outside the handle budget, and closing it drops the record locks that this
  // process has on the file. Returns -1 on failure, with the reason in errno besides.
  [[nodiscard]] virtual int OpenDescriptor(const String& path, int flags, mode_t permissions) = 0;
  // What the system knows of `path` itself: of a link, not of what it leads to. 0, or negative with
  // the reason in errno besides.
  [[nodiscard]] virtual int LookAt(const String& path, struct stat& status) = 0;
  // Whether `path` itself is a symbolic link that the operations here follow. Putting a new file in
  // its place would leave the file it leads to behind, with the old content.
  [[nodiscard]] virtual bool FollowsLink(const String& path) = 0;
  // Takes the cross-process lock named by the path `lockfile`; it is given back by deleting that
  // file. 1 taken, 0 timed out, -1 error, -2 deadlock.
  [[nodiscard]] virtual int Lock(const String& lockfile) = 0;
  [[nodiscard]] virtual int Delete(const String& path) = 0;
  // Copies a file over `to`. A file is never copied onto itself.
  [[nodiscard]] virtual int Copy(const String& from, const String& to) = 0;
  // Files that are open as `from` are open as `to` afterwards.
  [[nodiscard]] virtual int Rename(const String& from, const String& to) = 0;
  // Sets the times of `path` to now. 1, or 0 on failure.
  [[nodiscard]] virtual int TouchFile(const String& path) = 0;
  [[nodiscard]] virtual bool Exists(const String& path) = 0;
  // Whether the system lets this process write to the file that is at `path`.
  [[nodiscard]] virtual bool MayWrite(const String& path) = 0;
  // Makes a file of `data` and lets it take the place of `path` (links followed, permissions kept).
  // 0; -1 on failure, with the former file in place; 1 when no such file can be made there, or it
  // would change more than the content.
  [[nodiscard]] virtual int WriteBeside(const String& path, std::string_view data) = 0;
  // Makes a file of `data` that only its owner may read, under a name that nothing has yet: whole
  // or not at all. 0; 1 when something, be it a link to nothing, has that name; negative on
  // failure.
  [[nodiscard]] virtual int WriteNew(const String& path, std::string_view data) = 0;
  // Makes a file without a name on the file system of `path`, which goes with the process unless it
  // is given a name; null when the system cannot.
  [[nodiscard]] virtual std::unique_ptr<File> MakeUnnamed(const String& path) = 0;
  // Names such a file as MakeTemporary would. 0, or negative on failure.
  [[nodiscard]] virtual int GiveName(File& file, String& path, String& suffix) = 0;
  // The path of the same file without links. 0, or negative when there is no such file.
  [[nodiscard]] virtual int RealPath(const String& path, String& real) = 0;
  // Waits until the names in the directory of `path` are on the disk.
  [[nodiscard]] virtual int SyncDirectory(const String& path) = 0;
  [[nodiscard]] virtual int64_t Length(const String& path) = 0;
  [[nodiscard]] virtual bool IsDirectory(const String& path) = 0;
  // Makes a directory of the page's own, or one with `permissions`, less the umask.
  [[nodiscard]] int MakeDirectory(const String& path) { return MakeDirectoryWith(path, 0700); }
  [[nodiscard]] virtual int MakeDirectoryWith(const String& path, mode_t permissions) = 0;
  [[nodiscard]] virtual int RemoveDirectory(const String& path) = 0;
  // The names in a directory without "." and "..", sorted by bytes. 0, or negative on failure.
  [[nodiscard]] virtual int ListDirectory(const String& path, std::vector<String>& names) = 0;
  [[nodiscard]] virtual int MakeSymbolicLink(const String& target, const String& link) = 0;
  // The st_mode value of `path`.
  [[nodiscard]] virtual int Mode(const String& path) = 0;
  [[nodiscard]] virtual int ChangeMode(const String& path, int mode) = 0;
  // Creates the file named `path` followed by the lowest free eight-digit number, appends those
  // digits to `path` and `suffix`, and opens it; null on failure.
  [[nodiscard]] virtual std::unique_ptr<File> MakeTemporary(String& path, String& suffix,
                                                            int mode) = 0;
  [[nodiscard]] virtual String StripExtension(const String& path) const = 0;
  [[nodiscard]] virtual String StripDirectory(const String& path) const = 0;
  // The owner of `path` itself, not of what a link leads to; (uid_t)-1 on failure.
  [[nodiscard]] virtual uid_t GetOwnerUID(const String& path) const = 0;
  // Takes "." and ".." out of `path` and checks its links. 0 when it is good (`path` is then
  // replaced by the result), 1 a link that is not allowed, 2 a link to another owner's file,
  // 3 a link to something that does not exist.
  [[nodiscard]] virtual int FollowPath(String& path, int allow_links,
                                       int allow_other_owner) const = 0;
  // Whether any open file is the one at `path`, under whatever name.
  [[nodiscard]] virtual bool HasOpen(const String& /*path*/) const { return false; }
  [[nodiscard]] virtual const String& error() const = 0;
};

}  // namespace vexa

#endif  // VEXA_CORE_FILE_H_
