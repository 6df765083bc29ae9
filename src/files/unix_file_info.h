// UNIXFileInfo: what the manager keeps for one opened File: the descriptor, or what it takes to
// open the file again.
//
// Active: fd() is a descriptor. Inactive: fd() is -1, and the offset is saved. Only the manager
// moves an info between the two.

#ifndef VEXA_FILES_UNIX_FILE_INFO_H_
#define VEXA_FILES_UNIX_FILE_INFO_H_

#include <sys/stat.h>

#include <cstdint>

#include "core/string.h"
#include "files/descriptor.h"
#include "files/record_lock.h"

namespace vexa {

class UNIXFile;

class UNIXFileInfo {
 public:
  // How a descriptor was opened.
  struct OpenedAs {
    int flags;  // POSIX flags
    LinkRule links;
    const struct stat& status;
  };
  // `fd` was opened for `filename`; it becomes this object's.
  UNIXFileInfo(const String& filename, int fd, const OpenedAs& opened);
  // Closes the descriptor when there is one.
  ~UNIXFileInfo();
  UNIXFileInfo(const UNIXFileInfo&) = delete;
  UNIXFileInfo& operator=(const UNIXFileInfo&) = delete;

  // The File it belongs to; not owned.
  UNIXFile* file = nullptr;
  // The record locks the File holds.
  ByteRanges locks;

  [[nodiscard]] const String& filename() const { return filename_; }
  // It cannot be opened again by its name, or must not be.
  void KeepOpen() { reopenable_ = false; }
  // The file got another name, by which it is found under the rule for links given.
  void Renamed(const String& filename, LinkRule links) {
    filename_ = filename;
    links_ = links;
  }
  [[nodiscard]] LinkRule links() const { return links_; }
  [[nodiscard]] int fd() const { return fd_; }
  [[nodiscard]] const FileIdentity& identity() const { return identity_; }
  // Whether a read that stopped at `offset` before it had all that was asked stopped at the end. So
  // it is in a regular file where nothing was left when it was opened either.
  [[nodiscard]] bool EndsAt(int64_t offset) const { return reopenable_ && offset >= first_length_; }
  // Whether it can be closed and opened again unnoticed: true of regular files only.
  [[nodiscard]] bool reopenable() const { return reopenable_; }

  // Opens the file again where it was left. Returns 0, or -1 with the reason in errno: ESTALE when
  // the path now names another file.
  [[nodiscard]] int Activate();
  // Notes the offset and closes the descriptor. Returns 0, or -1 and does nothing.
  int Deactivate();
  // Hands the descriptor over to the caller.
  [[nodiscard]] int TakeDescriptor();

 private:
  String filename_;
  int fd_;
  int flags_;
  LinkRule links_;
  int64_t offset_ = 0;
  FileIdentity identity_;
  bool reopenable_;
  int64_t first_length_;  // in bytes, when it was opened
};

}  // namespace vexa

#endif  // VEXA_FILES_UNIX_FILE_INFO_H_
