// UNIXFile: a File on POSIX calls. Every operation first asks its manager for the descriptor,
// which the handle budget may have closed.
//
// Record locks belong to the process, not to the File that asked for them: two Files of one file
// do not shut each other out. Each keeps account of its own locks, so that releasing or closing
// one never gives up what the other holds; what both hold stays as strict as the stricter asked.

#ifndef VEXA_FILES_UNIX_FILE_H_
#define VEXA_FILES_UNIX_FILE_H_

#include <sys/types.h>

#include <cstdint>
#include <list>

#include "core/file.h"
#include "core/string.h"
#include "files/unix_file_info.h"

namespace vexa {

class UNIXFileManager;

class UNIXFile final : public File {
 public:
  explicit UNIXFile(UNIXFileManager& manager) : manager_(manager) {}
  ~UNIXFile() override { Close(); }
  UNIXFile(const UNIXFile&) = delete;
  UNIXFile& operator=(const UNIXFile&) = delete;

  // Opens `path` with OpenMode bits, closing what was open. 1, or 0 on failure.
  int Open(const String& path, int mode);
  // Closes the file and gives up its locks. Returns 1.
  int Close();
  // The manager has closed the file and forgotten it.
  void Closed() { open_ = false; }

  [[nodiscard]] int Read(char* buffer, int count) override;
  [[nodiscard]] int Write(const char* data, int count) override;
  [[nodiscard]] int64_t Seek(int64_t offset) override;
  [[nodiscard]] int64_t Tell() override;
  [[nodiscard]] int64_t Length() override;
  [[nodiscard]] int Lock(FileLockType type, int64_t start, int64_t length) override;
  [[nodiscard]] int TryLock(FileLockType type, int64_t start, int64_t length) override;
  int Release(int64_t start, int64_t length) override;
  [[nodiscard]] int ReadAt(int64_t offset, char* buffer, int count) override;
  [[nodiscard]] int WriteAt(int64_t offset, const char* data, int count) override;
  [[nodiscard]] int Truncate(int64_t length) override;
  [[nodiscard]] int Sync() override;
  [[nodiscard]] int Touch() override;
  using File::StillNamed;
  [[nodiscard]] int StillNamed(NameCheck check, FileStamp& stamp) override;
  void KeepOpen() override;
  [[nodiscard]] int Status(struct stat& status) override;
  [[nodiscard]] const String& error() const override { return error_; }
  void Error(const String& message) { error_ = message; }

 private:
  friend class UNIXFileManager;

  [[nodiscard]] bool Activate(int& fd);
  [[nodiscard]] bool MetLink() const;
  [[nodiscard]] int Fail();
  [[nodiscard]] int Fail(int reason);

  UNIXFileManager& manager_;
  bool open_ = false;
  // Where the manager keeps the info of an open file. Stays valid when the info changes lists.
  std::list<UNIXFileInfo>::iterator info_;
  // Until when its path, which was found to name it, need not be asked again; a SteadyTime.
  int64_t named_until_ = 0;
  String error_;
};

}  // namespace vexa

#endif  // VEXA_FILES_UNIX_FILE_H_
