// TableLock: an exclusive lock on bytes of a table file that lasts over several operations on the
// table, so that what they read is still true when they write.
//
// It is taken through a File of its own. The locks that the operations themselves take and give
// back are accounted for by the table's File and leave this one alone.
//
// The order of locks is that of the table (xbase_table.h): after those of the indexes.

#ifndef VEXA_XBASE_TABLE_TABLE_LOCK_H_
#define VEXA_XBASE_TABLE_TABLE_LOCK_H_

#include <cstdint>
#include <memory>

#include "core/file.h"
#include "core/file_access.h"
#include "xbase/table/xbase_table.h"

namespace vexa {

class TableLock {
 public:
  // `files` is borrowed and must outlive the lock.
  explicit TableLock(FileManager& files) : files_(files) {}

  // Waits for `length` bytes from `start` (length 0: all) of the file that is now at the path of
  // `table`. 1, or 0 with the message in error().
  [[nodiscard]] int Take(const XBaseTable& table, int64_t start, int64_t length);
  // Takes the lock that keeps other processes from appending, or from changing record `number`.
  [[nodiscard]] int TakeHeader(const XBaseTable& table);
  [[nodiscard]] int TakeRecord(const XBaseTable& table, int number);
  void Release() { lock_.Release(); }
  // Whether the locked file has lost its path to another one.
  [[nodiscard]] bool Replaced() { return file_ != nullptr && file_->StillNamed() == 0; }
  // Gives the lock back and closes the file, which is kept open for the next lock.
  void Close();

  [[nodiscard]] const String& error() const { return error_; }

 private:
  FileManager& files_;
  std::unique_ptr<File> file_;
  RangeLock lock_;  // on file_; declared behind it, so given back first
  String error_;
};

// Gives a TableLock back at the end of a block.
class HeldTableLock {
 public:
  explicit HeldTableLock(TableLock& lock) : lock_(lock) {}
  ~HeldTableLock() { lock_.Release(); }
  HeldTableLock(const HeldTableLock&) = delete;
  HeldTableLock& operator=(const HeldTableLock&) = delete;

 private:
  TableLock& lock_;
};

}  // namespace vexa

#endif  // VEXA_XBASE_TABLE_TABLE_LOCK_H_
