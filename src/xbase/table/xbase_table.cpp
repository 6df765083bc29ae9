// Reading, writing and appending records; see xbase_table.h. Opening and creating are in
// table_open.cpp, packing in table_pack.cpp.

#include "xbase/table/xbase_table.h"

#include <cstring>
#include <utility>

#include "core/text.h"

namespace vexa {

namespace {

// How often a file may be replaced while its lock is waited for, before that is an error.
constexpr int kMostReplacements = 100;

}  // namespace

// --- Messages --------------------------------------------------------------------------------

int XBaseTable::Fail(std::string_view action, std::string_view reason) {
  error_ = String::Concat({"Error ", action, " '", names_.dataerrorpath, "': ", reason});
  return 0;
}

int XBaseTable::FailLock(std::string_view purpose) {
  error_ = String::Concat(
      {"Error locking '", names_.dataerrorpath, "' for ", purpose, ": ", file_->error()});
  return 0;
}

int XBaseTable::FailMemo() {
  error_ = memo_->error();
  return 0;
}

int XBaseTable::FailReplaced() {
  if (Reopen() == 0) return 0;
  return Fail("writing to", "The table was replaced by another process");
}

int XBaseTable::MemoTextLost(const String& field) {
  return Fail("writing to", String::Concat({"The text of field '", field,
                                            "' could not be read before the table was replaced"}));
}

int XBaseTable::MemoNumberTooLong(const String& field) {
  return Fail("writing to",
              String::Concat({"The field '", field, "' is too short for a memo block number"}));
}

// --- Header ----------------------------------------------------------------------------------

int XBaseTable::ReadHeader() {
  char bytes[kTableHeaderSize];
  String reason;
  if (ReadExactly(*file_, 0, bytes, kTableHeaderSize, reason) == 0) {
    return Fail("reading from", reason);
  }
  TableHeader header;
  if (DecodeTableHeader(bytes, header) != HeaderState::Good ||
      header.headerlength != header_.headerlength || header.recordlength != header_.recordlength) {
    return Fail("reading from", "The structure of the table has changed");
  }
  if (memo_ != nullptr) header.version = kVersionWithMemo;
  header_ = header;
  return 1;
}

int XBaseTable::WriteHeader() {
  header_.SetToday();
  char bytes[kTableHeaderSize];
  header_.Encode(bytes);
  String reason;
  if (WriteExactly(*file_, 0, bytes, kTableHeaderSize, reason) == 0) {
    return Fail("writing to", reason);
  }
  return 1;
}

int XBaseTable::LockStart(RangeLock& lock, FileLockType type, int64_t length) {
  for (int i = 0; i < kMostReplacements; ++i) {
    const int locked = lock.Take(*file_, type, 0, length);
    if (locked == 0) FailLock(type == FileLockType::Shared ? "read" : "write");
    const int named = file_->StillNamed();
    if (named > 0) return locked;
    if (named < 0) return locked == 0 ? 0 : Fail("reading from", file_->error());
    lock.Release();
    if (Reopen() == 0) return 0;
  }
  return Fail("reading from", "The table is replaced again and again");
}

int XBaseTable::Refresh() {
  if (file_ == nullptr) return 0;
  RangeLock lock;
  return LockStart(lock, FileLockType::Shared, kTableHeaderSize) != 0 ? ReadHeader() : 0;
}

int XBaseTable::TouchHeader() {
  RangeLock lock;
  if (LockStart(lock, FileLockType::Exclusive, header_.headerlength) == 0) return 0;
  return ReadHeader() != 0 ? WriteHeader() : 0;
}

// --- Records ---------------------------------------------------------------------------------

int XBaseTable::Goto(int n) {
  for (int i = 0; i < kMostReplacements; ++i) {
    if (file_ == nullptr || n < 1 || n > header_.numrecords) {
      error_.clear();
      return 0;
    }
    RangeLock lock;
    const int64_t offset = header_.RecordOffset(n);
    const int locked = lock.Take(*file_, FileLockType::Shared, offset, header_.recordlength) != 0
                           ? 1
                           : FailLock("read");
    if (file_->StillNamed() == 0) {
      lock.Release();
      if (Reopen() == 0) return 0;
      continue;
    }
    if (locked == 0) return 0;
    String reason;
    if (ReadExactly(*file_, offset, record_.data(), header_.recordlength, reason) == 0) {
      return Fail("reading from", reason);
    }
    deleted_ = record_[0] == kDeletedMark ? 1 : 0;
    const auto* bytes = reinterpret_cast<const unsigned char*>(record_.data()) + 1;
    for (const auto& field : fields_) {
      field->Read(bytes);
      bytes += field->length();
    }
    recordnum_ = n;
    return 1;
  }
  return Fail("reading from", "The table is replaced again and again");
}

int XBaseTable::LockCurrentRecord(RangeLock& lock) {
  if (file_ == nullptr || recordnum_ == 0) {
    return Fail("writing to", "There is no current record");
  }
  const int64_t offset = header_.RecordOffset(recordnum_);
  const int locked = lock.Take(*file_, FileLockType::Exclusive, offset, header_.recordlength) != 0
                         ? 1
                         : FailLock("write");
  if (file_->StillNamed() != 0) return locked;
  lock.Release();
  return FailReplaced();
}

int XBaseTable::BuildRecord(char mark) {
  bool needs_block = false;
  for (const auto& field : fields_) needs_block = needs_block || field->NeedsMemoBlock();
  // From here to the last text, so that every number is that of the block its text goes to.
  if (needs_block && memo_->LockForWriting() == 0) return FailMemo();
  record_[0] = mark;
  auto* bytes = reinterpret_cast<unsigned char*>(record_.data()) + 1;
  int result = 1;
  for (const auto& field : fields_) {
    result = field->Write(bytes);
    if (result == 0) break;
    bytes += field->length();
  }
  if (needs_block) memo_->Unlock();
  return result;
}

int XBaseTable::Update() {
  {
    RangeLock lock;
    if (LockCurrentRecord(lock) == 0) return 0;
    if (BuildRecord(deleted_ != 0 ? kDeletedMark : kLiveMark) == 0) return 0;
    String reason;
    if (WriteExactly(*file_, header_.RecordOffset(recordnum_), record_.data(), header_.recordlength,
                     reason) == 0) {
      return Fail("writing to", reason);
    }
  }
  return TouchHeader();
}

int XBaseTable::CheckEnd(int64_t offset) {
  const int64_t length = file_->Length();
  if (length < 0) return Fail("reading from", file_->error());
  // An append that died has left at most one record.
  bool fits = length >= offset && length <= offset + header_.recordlength + 1;
  if (length > offset && !fits) {
    char mark;
    String reason;
    if (ReadExactly(*file_, offset, &mark, 1, reason) == 0) return Fail("reading from", reason);
    fits = mark == kEndOfTable;  // What follows it is nobody's.
  }
  return fits ? 1 : Fail("writing to", "The number of records does not fit the file's size");
}

int XBaseTable::Append() {
  if (file_ == nullptr) return 0;
  RangeLock lock;
  if (LockStart(lock, FileLockType::Exclusive, header_.headerlength) == 0) return 0;
  if (ReadHeader() == 0) return 0;
  if (header_.numrecords == INT32_MAX) return Fail("writing to", "The table is full");
  const int64_t offset = header_.RecordOffset(header_.numrecords + 1);
  if (CheckEnd(offset) == 0 || BuildRecord(kLiveMark) == 0) return 0;
  record_[static_cast<size_t>(header_.recordlength)] = kEndOfTable;
  String reason;
  if (WriteExactly(*file_, offset, record_.data(), header_.recordlength + 1, reason) == 0) {
    return Fail("writing to", reason);
  }
  // The count comes last: a record counts from the moment it is whole.
  ++header_.numrecords;
  if (WriteHeader() == 0) {
    --header_.numrecords;
    return 0;
  }
  recordnum_ = header_.numrecords;
  deleted_ = 0;
  return 1;
}

int XBaseTable::RemoveLast() {
  recordnum_ = 0;
  deleted_ = 0;
  RangeLock lock;
  if (LockStart(lock, FileLockType::Exclusive, header_.headerlength) == 0) return 0;
  if (ReadHeader() == 0) return 0;
  if (header_.numrecords == 0) return Fail("writing to", "There is no record to take out");
  --header_.numrecords;
  if (WriteHeader() == 0) return 0;
  String reason;
  const int64_t offset = header_.RecordOffset(header_.numrecords + 1);
  if (WriteExactly(*file_, offset, &kEndOfTable, 1, reason) == 0) return Fail("writing to", reason);
  return 1;
}

int XBaseTable::UpdateDeleted(int deleted) {
  {
    RangeLock lock;
    if (LockCurrentRecord(lock) == 0) return 0;
    const char mark = deleted != 0 ? kDeletedMark : kLiveMark;
    String reason;
    if (WriteExactly(*file_, header_.RecordOffset(recordnum_), &mark, 1, reason) == 0) {
      return Fail("writing to", reason);
    }
    deleted_ = deleted != 0 ? 1 : 0;
  }
  return TouchHeader();
}

// --- Memo texts and fields -------------------------------------------------------------------

int XBaseTable::ReadMemoHeader() {
  if (memo_ == nullptr) return 0;
  return memo_->ReadHeader() != 0 ? 1 : FailMemo();
}

int XBaseTable::WriteMemoHeader() {
  if (memo_ == nullptr) return 0;
  return memo_->WriteHeader() != 0 ? 1 : FailMemo();
}

int XBaseTable::ReadMemoBlock(int block, String& text) {
  if (memo_ == nullptr) return 0;
  return memo_->ReadBlock(block, text) != 0 ? 1 : FailMemo();
}

int XBaseTable::WriteMemoBlock(std::string_view text) {
  if (memo_ == nullptr) return -1;
  const int block = memo_->WriteBlock(text);
  if (block < 0) FailMemo();
  return block;
}

void XBaseTable::SwapOriginal() {
  for (const auto& field : fields_) field->SwapOriginal();
}

void XBaseTable::SetOriginal() {
  for (const auto& field : fields_) field->SetOriginal();
}

XBaseField* XBaseTable::FindField(std::string_view name) const {
  for (const auto& field : fields_) {
    if (EqualsIgnoreCase(field->name(), name)) return field.get();
  }
  return nullptr;
}

}  // namespace vexa
