// Locking a table over several operations; see table_lock.h.

#include "xbase/table/table_lock.h"

namespace vexa {

namespace {

// How often the table may be replaced while its lock is waited for, before that is an error.
constexpr int kMostReplacements = 100;

}  // namespace

int TableLock::Take(const XBaseTable& table, int64_t start, int64_t length) {
  Release();
  for (int i = 0; i < kMostReplacements; ++i) {
    if (file_ == nullptr) file_ = files_.Open(table.datapath(), OpenRead | OpenWrite);
    if (file_ == nullptr) {
      error_ = String::Concat({"Error opening '", table.dataerrorpath(), "': ", files_.error()});
      return 0;
    }
    if (lock_.Take(*file_, FileLockType::Exclusive, start, length) == 0) {
      error_ = String::Concat(
          {"Error locking '", table.dataerrorpath(), "' for write: ", file_->error()});
      return 0;
    }
    if (file_->StillNamed() > 0) return 1;
    Close();
  }
  error_ = String::Concat({"Error locking '", table.dataerrorpath(),
                           "' for write: The table is replaced again and again"});
  return 0;
}

int TableLock::TakeHeader(const XBaseTable& table) { return Take(table, 0, table.headerlength()); }

int TableLock::TakeRecord(const XBaseTable& table, int number) {
  const int64_t offset =
      table.headerlength() + static_cast<int64_t>(number - 1) * table.recordlength();
  return Take(table, offset, table.recordlength());
}

void TableLock::Close() {
  Release();
  file_.reset();
}

}  // namespace vexa
