// Record locks as the kernel has them: ranges of bytes that one process locks against all others.
//
// The kernel keeps record locks for the whole process and tells nobody which are there, so each
// File keeps its own account, a ByteRanges. Ranges never overlap; as with the kernel's locks,
// adding a range replaces what was known about its bytes.

#ifndef VEXA_FILES_RECORD_LOCK_H_
#define VEXA_FILES_RECORD_LOCK_H_

#include <cstdint>
#include <vector>

#include "core/file.h"
#include "vexa.h"

namespace vexa {

// The bytes [start, end).
struct ByteRange {
  int64_t start;
  int64_t end;
  FileLockType type;
};

class ByteRanges {
 public:
  // The bytes a lock of `length` bytes from `start` covers; length 0 reaches as far as files can.
  [[nodiscard]] static ByteRange Covered(int64_t start, int64_t length, FileLockType type) {
    const bool open_end = length == 0 || length > INT64_MAX - start;
    return {start, open_end ? INT64_MAX : start + length, type};
  }

  void Add(const ByteRange& range);
  // Forgets the bytes of `range`, whatever their type.
  void Remove(const ByteRange& range);
  void Clear() { ranges_.clear(); }
  [[nodiscard]] bool empty() const { return ranges_.empty(); }
  [[nodiscard]] const std::vector<ByteRange>& ranges() const { return ranges_; }

 private:
  // Whether no two ranges share a byte and none is empty.
  [[nodiscard]] bool Disjoint() const;

  std::vector<ByteRange> ranges_;
};

// Whether a lock that others are in the way of is waited for.
enum class LockWait { None, UntilFree };

// Takes the lock `range` on the open file `fd`, waiting at most until `host` has timed out. Returns
// 0, or -1 with the reason in errno: EINTR when the time was up; EACCES or EAGAIN without waiting.
[[nodiscard]] int TakeRecordLock(Vexa& host, int fd, const ByteRange& range, LockWait wait);
// Unlocks the bytes of `range`. Returns 0, or -1 with the reason in errno.
[[nodiscard]] int DropRecordLock(int fd, const ByteRange& range);

}  // namespace vexa

#endif  // VEXA_FILES_RECORD_LOCK_H_
