// Reading, writing and locking exact byte ranges of a File: what table, memo and index files share.

#ifndef VEXA_CORE_FILE_ACCESS_H_
#define VEXA_CORE_FILE_ACCESS_H_

#include <cstdint>

#include "core/file.h"

namespace vexa {

inline constexpr char kUnexpectedEnd[] = "Unexpected end of file";

// Reads `count` bytes at `offset` in one call. Returns true, or false with the cause in `reason`,
// which is kUnexpectedEnd when the file ends before them.
[[nodiscard]] bool ReadExactly(File& file, int64_t offset, char* buffer, int count, String& reason);
// Writes `count` bytes at `offset` in one call. Returns true, or false with the cause in `reason`.
[[nodiscard]] bool WriteExactly(File& file, int64_t offset, const char* data, int count,
                                String& reason);

// Of a path that FileManager::FollowsLink.
inline constexpr char kNoReplacementOfLinks[] = "A symbolic link cannot be replaced by a new file";

// Whether a write after `stamp` was taken must show in the next one: two writes within one tick of
// the system's clock leave the same time.
[[nodiscard]] bool IsOld(const FileStamp& stamp);

// How often a file may be replaced while its lock is waited for, before that is an error.
inline constexpr int kMostReplacements = 100;

// What became of a lock on the file that a path names.
enum class LockOutcome { Taken, Failed, Replaced };

// A record lock that is given back when it goes out of scope.
class RangeLock {
 public:
  RangeLock() = default;
  ~RangeLock() { Release(); }
  RangeLock(const RangeLock&) = delete;
  RangeLock& operator=(const RangeLock&) = delete;

  // Waits for the lock, giving back the one held before. Returns true, or false with the cause in
  // file.error().
  // REQUIRES: `file` stays open until the lock is given back.
  [[nodiscard]] bool Take(File& file, FileLockType type, int64_t start, int64_t length);
  // The same on the file that the path of `file` names now. While the lock was waited for another
  // file may have taken that place: then Replaced, without a lock, and the caller opens the path
  // again. When it fails the cause is in `reason`. For a shared lock the names are compared as is
  // good enough for readers.
  [[nodiscard]] LockOutcome TakeNamed(File& file, FileLockType type, int64_t start, int64_t length,
                                      String& reason);
  // Both for a shared lock, without waiting for it: false or Failed when others are in the way.
  [[nodiscard]] bool TryTake(File& file, int64_t start, int64_t length);
  [[nodiscard]] LockOutcome TryNamed(File& file, int64_t start, int64_t length, String& reason);
  // What was learnt of the file when its name was looked at.
  [[nodiscard]] const FileStamp& stamp() const { return stamp_; }
  void Release();
  [[nodiscard]] bool held() const { return file_ != nullptr; }

 private:
  [[nodiscard]] LockOutcome Compare(File& file, bool locked, NameCheck check, String& reason);

  File* file_ = nullptr;
  int64_t start_ = 0;
  int64_t length_ = 0;
  FileStamp stamp_;
};

}  // namespace vexa

#endif  // VEXA_CORE_FILE_ACCESS_H_
