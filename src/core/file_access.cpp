// Exact reads and writes, and locks with a scope; see file_access.h.

#include "core/file_access.h"

#include <time.h>

#include "core/outside.h"

namespace vexa {

bool ReadExactly(File& file, int64_t offset, char* buffer, int count, String& reason) {
  const int got = file.ReadAt(offset, buffer, count);
  if (got == count) return true;
  reason = got < 0 ? file.error() : String(kUnexpectedEnd);
  return false;
}

bool WriteExactly(File& file, int64_t offset, const char* data, int count, String& reason) {
  const int put = file.WriteAt(offset, data, count);
  if (put == count) return true;
  reason = put < 0 ? file.error() : String("The disk took only a part of it");
  return false;
}

bool IsOld(const FileStamp& stamp) {
  constexpr int64_t kNanoseconds = 1'000'000'000;
  constexpr int64_t kLongestTick = 20'000'000;
  struct timespec now;
  if (::clock_gettime(CLOCK_REALTIME, &now) != 0) return false;
  return int64_t{now.tv_sec} * kNanoseconds + now.tv_nsec - stamp.modified > kLongestTick;
}

int64_t SteadyTime() {
  constexpr int64_t kNanoseconds = 1'000'000'000;
  struct timespec now;
  // A clock that cannot be read makes everything old.
  if (::clock_gettime(CLOCK_MONOTONIC, &now) != 0) return INT64_MAX / 2;
  return int64_t{now.tv_sec} * kNanoseconds + now.tv_nsec;
}

bool RangeLock::Take(File& file, FileLockType type, int64_t start, int64_t length) {
  Release();
  if (file.Lock(type, start, length) < 0) return false;
  file_ = &file;
  start_ = start;
  length_ = length;
  return true;
}

LockOutcome RangeLock::TakeNamed(File& file, FileLockType type, int64_t start, int64_t length,
                                 String& reason) {
  const bool locked = Take(file, type, start, length);
  if (!locked) reason = file.error();
  const bool reads = type == FileLockType::Shared;
  return Compare(file, locked, reads ? NameCheck::ByLink : NameCheck::ByPath, reason);
}

bool RangeLock::TryTake(File& file, int64_t start, int64_t length) {
  Release();
  if (file.TryLock(FileLockType::Shared, start, length) <= 0) return false;
  file_ = &file;
  start_ = start;
  length_ = length;
  return true;
}

LockOutcome RangeLock::TryNamed(File& file, int64_t start, int64_t length, String& reason) {
  if (!TryTake(file, start, length)) return LockOutcome::Failed;
  return Compare(file, true, NameCheck::ByLink, reason);
}

LockOutcome RangeLock::Compare(File& file, bool locked, NameCheck check, String& reason) {
  const int named = file.StillNamed(check, stamp_);
  if (named > 0 && locked) return LockOutcome::Taken;
  Release();
  if (named == 0) return LockOutcome::Replaced;
  if (locked) reason = file.error();
  return LockOutcome::Failed;
}

void RangeLock::Release() {
  if (file_ != nullptr) file_->Release(start_, length_);
  file_ = nullptr;
}

}  // namespace vexa
