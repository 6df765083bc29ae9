// Reading, writing and locking exact byte ranges of a File: what table, memo and index files share.

#ifndef VEXA_CORE_FILE_ACCESS_H_
#define VEXA_CORE_FILE_ACCESS_H_

#include <cstdint>

#include "core/file.h"

namespace vexa {

inline constexpr char kUnexpectedEnd[] = "Unexpected end of file";

// Reads `count` bytes at `offset` in one call. 1, or 0 with the cause in `reason`, which is
// kUnexpectedEnd when the file ends before them.
[[nodiscard]] int ReadExactly(File& file, int64_t offset, char* buffer, int count, String& reason);
// Writes `count` bytes at `offset` in one call. 1, or 0 with the cause in `reason`.
[[nodiscard]] int WriteExactly(File& file, int64_t offset, const char* data, int count,
                               String& reason);

// Whether `path` itself is a symbolic link. Putting a new file in its place would leave the file it
// leads to behind, with the old content.
[[nodiscard]] bool IsSymbolicLink(const String& path);
inline constexpr char kNoReplacementOfLinks[] = "A symbolic link cannot be replaced by a new file";

// A record lock that is given back when it goes out of scope.
class RangeLock {
 public:
  RangeLock() = default;
  ~RangeLock() { Release(); }
  RangeLock(const RangeLock&) = delete;
  RangeLock& operator=(const RangeLock&) = delete;

  // Waits for the lock, giving back the one held before. 1, or 0 with the cause in file.error().
  // REQUIRES: `file` stays open until the lock is given back.
  [[nodiscard]] int Take(File& file, FileLockType type, int64_t start, int64_t length);
  void Release();
  [[nodiscard]] bool held() const { return file_ != nullptr; }

 private:
  File* file_ = nullptr;
  int64_t start_ = 0;
  int64_t length_ = 0;
};

}  // namespace vexa

#endif  // VEXA_CORE_FILE_ACCESS_H_
