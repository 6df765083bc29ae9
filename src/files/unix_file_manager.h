// UNIXFileManager: the file services on POSIX calls, and the budget of `maxfiles` descriptors.
//
// Every open File has one UNIXFileInfo in one of two lists: active (with a descriptor, most
// recently used first) or inactive (closed to save handles, most recently deactivated first).
// An inactive file is opened again, at its old offset, when it is used.
//
// The system drops all record locks a process holds on a file as soon as the process closes any
// descriptor of that file. Hence, while some File holds a record lock:
//   - no File of the same file is deactivated, under whatever name it was opened;
//   - when another File of the same file is closed, or Copy is done with it, its descriptor is
//     parked, and closed when the last lock on that file is gone.
// When only such files are left, the budget is exceeded rather than a lock lost. Parked descriptors
// count as handles.

#ifndef VEXA_FILES_UNIX_FILE_MANAGER_H_
#define VEXA_FILES_UNIX_FILE_MANAGER_H_

#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "core/file.h"
#include "core/string.h"
#include "files/descriptor.h"
#include "files/file_paths.h"
#include "files/record_lock.h"
#include "files/unix_file_info.h"
#include "vexa.h"

namespace vexa {

class UNIXFile;

class UNIXFileManager final : public FileManager {
 public:
  // `host` is borrowed and must outlive the manager, and so is `directories`, which others before
  // this one have used; null: its own.
  explicit UNIXFileManager(Vexa& host, KnownDirectories* directories = nullptr)
      : host_(host), known_directories_(directories == nullptr ? own_directories_ : *directories) {}
  // Closes what is still open; the Files then fail all operations, but must not outlive this.
  ~UNIXFileManager() override;
  UNIXFileManager(const UNIXFileManager&) = delete;
  UNIXFileManager& operator=(const UNIXFileManager&) = delete;

  [[nodiscard]] std::unique_ptr<File> Open(const String& path, int mode) override;
  [[nodiscard]] int Lock(const String& lockfile) override;
  [[nodiscard]] int Delete(const String& path) override;
  // Copies to a new file, which then takes the place of the target (links followed, permissions
  // kept). Where no file can be made or a rename would change more than the content, copies in
  // place: a target that this call created is removed again when that fails; one that existed is
  // then incomplete.
  [[nodiscard]] int Copy(const String& from, const String& to) override;
  [[nodiscard]] int Rename(const String& from, const String& to) override;
  [[nodiscard]] int TouchFile(const String& path) override;
  [[nodiscard]] bool Exists(const String& path) override;
  [[nodiscard]] bool MayWrite(const String& path) override;
  [[nodiscard]] int WriteBeside(const String& path, std::string_view data) override;
  [[nodiscard]] int WriteNew(const String& path, std::string_view data) override;
  [[nodiscard]] std::unique_ptr<File> MakeUnnamed(const String& path) override;
  // REQUIRES: `file` was made by MakeUnnamed of this manager.
  [[nodiscard]] int GiveName(File& file, String& path, String& suffix) override;
  [[nodiscard]] int RealPath(const String& path, String& real) override;
  [[nodiscard]] int SyncDirectory(const String& path) override;
  [[nodiscard]] int64_t Length(const String& path) override;
  [[nodiscard]] bool IsDirectory(const String& path) override;
  [[nodiscard]] int MakeDirectory(const String& path) override;
  [[nodiscard]] int RemoveDirectory(const String& path) override;
  [[nodiscard]] int ListDirectory(const String& path, std::vector<String>& names) override;
  [[nodiscard]] int MakeSymbolicLink(const String& target, const String& link) override;
  [[nodiscard]] int Mode(const String& path) override;
  [[nodiscard]] int ChangeMode(const String& path, int mode) override;
  [[nodiscard]] std::unique_ptr<File> MakeTemporary(String& path, String& suffix,
                                                    int mode) override;
  [[nodiscard]] String StripExtension(const String& path) const override;
  [[nodiscard]] String StripDirectory(const String& path) const override;
  [[nodiscard]] uid_t GetOwnerUID(const String& path) const override;
  [[nodiscard]] int FollowPath(String& path, int allow_links, int allow_other_owner) const override;
  [[nodiscard]] bool HasOpen(const String& path) const override;
  [[nodiscard]] const String& error() const override { return error_; }
  void Error(const String& message) { error_ = message; }

  // Whether FollowPath found that directory a moment ago.
  [[nodiscard]] bool KnowsDirectory(const String& path) const;
  // The POSIX flags of OpenMode bits.
  [[nodiscard]] static int OpenMode(int mode);
  // Makes room for `count` descriptors within the budget. 1, or 0 when `maxfiles` is less.
  [[nodiscard]] int FreeFileSpace(int count);
  // The open files that have a descriptor now.
  [[nodiscard]] int active_files() const { return static_cast<int>(active_.size()); }

 private:
  friend class UNIXFile;

  // How a descriptor was opened.
  struct OpenedAs {
    int flags;
    const struct stat& status;
  };
  // A descriptor that must not be closed yet.
  struct Parked {
    FileIdentity identity;
    int fd;
  };

  [[nodiscard]] Vexa& host() { return host_; }

  // For UNIXFile. Returns the descriptor of a new info at the front of the active list, or -1.
  [[nodiscard]] int open(UNIXFile* file, const String& path, int flags, mode_t permissions);
  // The descriptor of an open file, opened again when needed, or -1.
  [[nodiscard]] int ActivateFile(UNIXFile* file);
  // Puts a freshly opened descriptor at the front of the active list.
  void Adopt(UNIXFile* file, const String& path, int fd, OpenedAs opened);
  void CloseFile(UNIXFile* file);
  // Take and release record locks on an active file. 0, or -1 with the reason in errno.
  [[nodiscard]] int LockRange(UNIXFileInfo& info, const ByteRange& range, LockWait wait);
  [[nodiscard]] int ReleaseRange(UNIXFileInfo& info, const ByteRange& range);

  // Whether any File holds a record lock on the file.
  [[nodiscard]] bool HoldsLocks(const FileIdentity& identity) const;
  // Closes `fd`, or parks it. Returns what close returns.
  int CloseDescriptor(int fd, const FileIdentity& identity);
  void CloseParked(const FileIdentity& identity);
  // Deactivates the least recently used file that may be; false when there is none.
  bool DeactivateOne();

  // Whether a new file may be renamed to where `path` leads: nothing is there, or a regular file
  // with one name that belongs to this process. `real` is that place.
  [[nodiscard]] bool MayReplace(const String& path, String& real);
  // Makes a file beside the one `path` leads to, has `fill` write to its descriptor, and renames
  // it. What `fill` returns when that is negative; nothing when no such file can be made.
  template <typename Fill>
  [[nodiscard]] std::optional<int> Replace(const String& path, Fill fill);
  // Copies from the open `source` to the file `to`. 0, or -1 with the message stored.
  [[nodiscard]] int CopyTo(const String& to, int source, const FileIdentity& source_identity);
  // The same for an open `target`; `block` holds the first `got` bytes of the source.
  [[nodiscard]] int CopyBlocks(int source, int target, char* block, ssize_t got);

  // Whether the activity log wants to know of files.
  [[nodiscard]] bool LogsFiles() const;
  void LogFile(std::string_view event, std::string_view detail);

  // 0 when `result` is 0; else stores the system's message and returns -1.
  [[nodiscard]] int Checked(int result);
  // Whether `path` can be given to the system; else stores a message.
  [[nodiscard]] bool Usable(const String& path);

  Vexa& host_;
  bool quiet_ = false;  // what is done now is not told to the activity log
  mutable KnownDirectories own_directories_;
  KnownDirectories& known_directories_;
  String error_;
  std::list<UNIXFileInfo> active_;
  std::list<UNIXFileInfo> inactive_;
  std::vector<Parked> parked_;
};

}  // namespace vexa

#endif  // VEXA_FILES_UNIX_FILE_MANAGER_H_
