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
#include "files/held_name.h"
#include "files/link_rules.h"
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
  [[nodiscard]] int OpenDescriptor(const String& path, int flags, mode_t permissions) override;
  [[nodiscard]] int LookAt(const String& path, struct stat& status) override;
  [[nodiscard]] bool FollowsLink(const String& path) override;
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
  [[nodiscard]] int MakeDirectoryWith(const String& path, mode_t permissions) override;
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
  // Fills `status` with what `path` leads to. 0, or -1 with the message stored.
  [[nodiscard]] int Status(const String& path, struct stat& status);
  void Error(const String& message) { error_ = message; }

  // FollowPath, which tells besides whether it saw that something is there. When it did not, there
  // may be all the same.
  [[nodiscard]] int FollowPath(String& path, int allow_links, int allow_other_owner,
                               bool& seen) const;
  // From now on the roots of the sandbox say which operations follow links.
  void SetLinkRules(const LinkRules::Roots& roots) { link_rules_.Set(roots); }
  // `path` was checked for links by `rule` before.
  void NoteLinkRule(const String& path, LinkRule rule) { link_rules_.Note(path, rule); }
  // The POSIX flags of OpenMode bits.
  [[nodiscard]] static int OpenMode(int mode);
  // Makes room for `count` descriptors within the budget. 1, or 0 when `maxfiles` is less.
  [[nodiscard]] int FreeFileSpace(int count);
  // The open files that have a descriptor now.
  [[nodiscard]] int active_files() const { return static_cast<int>(active_.size()); }

 private:
  friend class UNIXFile;

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
  void Adopt(UNIXFile* file, const String& path, int fd, const UNIXFileInfo::OpenedAs& opened);
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

  // What stands where a new file is to be put.
  struct Former {
    bool exists;
    mode_t permissions;
  };
  // Whether a new file may be renamed to `place`: nothing is there, or a regular file with one name
  // that belongs to this process.
  [[nodiscard]] static bool MayReplace(const HeldName& place, Former& former);
  // Calls `take` with `stem` and the lowest eight-digit number behind it that does not make it fail
  // with EEXIST. 0 with `name` set and the digits behind `suffix`, or -1 with the message stored.
  template <typename Take>
  [[nodiscard]] int TakeFreeName(std::string_view stem, String& name, String& suffix, Take take);
  // Makes such a file beside `place`; its descriptor, or -1. Logs nothing.
  [[nodiscard]] int MakeBeside(const HeldName& place, String& name);
  // Makes a file beside the one `path` leads to, has `fill` write to its descriptor, and renames
  // it. What `fill` returns when that is negative; nothing when no such file can be made.
  template <typename Fill>
  [[nodiscard]] std::optional<int> Replace(const String& path, Fill fill);
  // A descriptor of a new file on the file system of `path` that has no name, or -1.
  [[nodiscard]] int OpenUnnamed(const String& path, struct stat& status);
  // Copies from the open `source` to the file `to`. 0, or -1 with the message stored.
  [[nodiscard]] int CopyTo(const String& to, int source, const FileIdentity& source_identity);
  // The same for an open `target`; `block` holds the first `got` bytes of the source.
  [[nodiscard]] int CopyBlocks(int source, int target, char* block, ssize_t got);

  // Whether operations on `path` follow links.
  [[nodiscard]] LinkRule RuleFor(const String& path) const { return link_rules_.For(path); }
  // Calls `act` with `path` as a HeldName. Its result when it is 0, else -1 with the message
  // stored.
  template <typename Act>
  [[nodiscard]] int ActOn(const String& path, Act act);

  // Whether the activity log wants to know of files.
  [[nodiscard]] bool LogsFiles() const;
  void LogFile(std::string_view event, std::string_view detail);

  // 0 when `result` is 0; else stores the system's message and returns -1.
  [[nodiscard]] int Checked(int result);
  // Whether `path` can be given to the system; else stores a message.
  [[nodiscard]] bool Usable(const String& path);

  Vexa& host_;
  mutable LinkRules link_rules_;
  mutable KnownDirectories own_directories_;
  KnownDirectories& known_directories_;
  String error_;
  std::list<UNIXFileInfo> active_;
  std::list<UNIXFileInfo> inactive_;
  std::vector<Parked> parked_;
};

}  // namespace vexa

#endif  // VEXA_FILES_UNIX_FILE_MANAGER_H_
