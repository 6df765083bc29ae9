// Record locks as the kernel has them: ranges of bytes that one process locks against all others.

#ifndef VEXA_FILES_RECORD_LOCK_H_
#define VEXA_FILES_RECORD_LOCK_H_

#include "files/byte_ranges.h"
#include "vexa.h"

namespace vexa {

// Waits for the lock `range` on the open file `fd`, at most until `host` has timed out. Returns 0,
// or -1 with the reason in errno: EINTR when the time was up.
[[nodiscard]] int TakeRecordLock(Vexa& host, int fd, const ByteRange& range);
// Unlocks the bytes of `range`. Returns 0, or -1 with the reason in errno.
[[nodiscard]] int DropRecordLock(int fd, const ByteRange& range);

}  // namespace vexa

#endif  // VEXA_FILES_RECORD_LOCK_H_
