// Reading and changing records; see xbase_table.h. Opening and creating are in table_open.cpp,
// packing in table_pack.cpp.
//
//   Header     LockStart locks the file that the path names now, opening the table anew when that
//              is another; ReadHeader takes the count and refuses a mark
//   Reading    Goto locks the record's bytes; for a record over the border of two pages it looks at
//              the header too, because a killed process may have left half of it
//   Steps      BeginUpdate (record), LockHeader (header), Stage... (memo file), Commit
//   At once    Update, Append, UpdateDeleted: the steps in a row, the locks given back at the end
//
// A staged append stands in the file, and memo texts in theirs, before anything names them: until
// Commit they are nobody's. An append that is taken back gets the end of file mark written over its
// first byte. All else that a change writes waits in its Change.

#include "xbase/table/xbase_table.h"

#include <algorithm>
#include <cassert>
#include <cstring>
#include <utility>

#include "core/outside.h"
#include "core/text.h"
#include "xbase/table/new_files.h"

namespace vexa {

namespace {

// What the system copies in one go; see change.cpp.
constexpr int64_t kBlock = 4096;

constexpr char kReplaced[] = "The table was replaced by another process";
constexpr char kReplacedAgain[] = "The table is replaced again and again";

}  // namespace

// --- Messages --------------------------------------------------------------------------------

bool XBaseTable::Fail(std::string_view action, std::string_view reason) {
  error_ = String::Concat({"Error ", action, " '", names_.dataerrorpath, "': ", reason});
  return false;
}

bool XBaseTable::FailLock(FileLockType type, std::string_view reason) {
  const std::string_view purpose = type == FileLockType::Shared ? "read" : "write";
  error_ =
      String::Concat({"Error locking '", names_.dataerrorpath, "' for ", purpose, ": ", reason});
  return false;
}

bool XBaseTable::FailMemo() {
  error_ = memo_->error();
  return false;
}

bool XBaseTable::FailReplaced() {
  EndChange();
  return Reopen() && Fail("writing to", kReplaced);
}

bool XBaseTable::MemoTextLost(const String& field) {
  return Fail("writing to", String::Concat({"The text of field '", field,
                                            "' could not be read before the table was replaced"}));
}

bool XBaseTable::MemoNumberTooLong(const String& field) {
  return Fail("writing to",
              String::Concat({"The field '", field, "' is too short for a memo block number"}));
}

// --- Header ----------------------------------------------------------------------------------

const String& XBaseTable::realpath() {
  if (realpath_.empty() && files_.RealPath(names_.datapath, realpath_) < 0) {
    realpath_ = names_.datapath;
  }
  return realpath_;
}

bool XBaseTable::IsMarked(uint64_t mark) {
  if (mark == 0 || mark == void_mark_) return false;
  JournalContent content;
  String ignored;
  const JournalState state = ReadJournal(files_, realpath(), content, ignored);
  if (state == JournalState::Missing || (state == JournalState::Found && content.number != mark)) {
    void_mark_ = mark;
    return false;
  }
  unfinished_ = true;
  (void)Fail("reading from", kUnfinishedChange);
  return true;
}

bool XBaseTable::ReadHeader() {
  header_bytes_.resize(kTableHeaderSize);
  String reason;
  if (!ReadExactly(*file_, 0, header_bytes_.data(), kTableHeaderSize, reason)) {
    return Fail("reading from", reason);
  }
  TableHeader header;
  if (DecodeTableHeader(header_bytes_.data(), header) != HeaderState::Good ||
      header.headerlength != header_.headerlength || header.recordlength != header_.recordlength) {
    return Fail("reading from", "The structure of the table has changed");
  }
  if (IsMarked(header.mark)) return false;
  if (memo_ != nullptr) header.version = kVersionWithMemo;
  header_ = header;
  return true;
}

bool XBaseTable::LockStart(RangeLock& lock, FileLockType type, int64_t length) {
  String reason;
  for (int i = 0; i < kMostReplacements; ++i) {
    switch (lock.TakeNamed(*file_, type, 0, length, reason)) {
      case LockOutcome::Taken:
        header_stamp_ = IsOld(lock.stamp()) ? lock.stamp() : FileStamp();
        return true;
      case LockOutcome::Failed:
        return FailLock(type, reason);
      case LockOutcome::Replaced:
        if (record_lock_.held()) return FailReplaced();
        if (!Reopen()) return false;
    }
  }
  return Fail("reading from", kReplacedAgain);
}

bool XBaseTable::Refresh() {
  if (file_ == nullptr) return false;
  // Nobody else can have changed it.
  if (header_lock_.held() || all_lock_.held()) return true;
  RangeLock lock;
  return LockStart(lock, FileLockType::Shared, kTableHeaderSize) && ReadHeader();
}

// --- Reading ---------------------------------------------------------------------------------

// A write over a border is not one for the system: a process that was killed may have left half of
// it. Then the header bears a mark, but for records alone nobody reads the header; so here it is
// read, unless nobody wrote to the file since it was read last.
XBaseTable::Reading XBaseTable::CheckBorder(const FileStamp* stamp) {
  if (stamp != nullptr && *stamp == header_stamp_) return Reading::Whole;
  char bytes[kTableHeaderSize];
  String reason;
  if (!ReadExactly(*file_, 0, bytes, kTableHeaderSize, reason)) {
    (void)Fail("reading from", reason);
    return Reading::Failed;
  }
  const uint64_t mark = MarkOfTable({bytes, sizeof bytes});
  if (mark != 0 && mark != void_mark_) return Reading::Again;
  if (stamp != nullptr && IsOld(*stamp)) header_stamp_ = *stamp;
  return Reading::Whole;
}

bool XBaseTable::TrustsName() const {
  return named_looks_ == looks_outside - looks_in_vain && SteadyTime() < named_until_;
}

// Nobody waits for the lock of records that are only read ahead: a walk is held up by the record it
// comes to, not by those that follow.
XBaseTable::Reading XBaseTable::LockBlock(RangeLock& lock, RecordBlock::Span& span,
                                          const FileStamp*& stamp) {
  const auto start = [&] { return header_.RecordOffset(span.first); };
  const auto length = [&] { return static_cast<int64_t>(span.count) * header_.recordlength; };
  stamp = nullptr;
  if (span.count == 1 && TrustsName() && lock.TryTake(*file_, start(), length())) {
    return Reading::Whole;
  }
  named_until_ = SteadyTime() + kLongestTrust;
  String reason;
  LockOutcome outcome = LockOutcome::Failed;
  if (span.count > 1) outcome = lock.TryNamed(*file_, start(), length(), reason);
  if (outcome == LockOutcome::Failed) {
    span = {span.wanted, 1, span.wanted};
    outcome = lock.TakeNamed(*file_, FileLockType::Shared, start(), length(), reason);
  }
  if (outcome == LockOutcome::Taken) {
    stamp = &lock.stamp();
    return Reading::Whole;
  }
  named_until_ = 0;
  if (outcome == LockOutcome::Replaced) return Reopen() ? Reading::Again : Reading::Failed;
  (void)FailLock(FileLockType::Shared, reason);
  return Reading::Failed;
}

XBaseTable::Reading XBaseTable::FetchBlock(int n) {
  RecordBlock::Span span = block_.Plan(n, header_.numrecords, header_.recordlength);
  RangeLock lock;
  const FileStamp* stamp;
  const Reading locked = LockBlock(lock, span, stamp);
  if (locked != Reading::Whole) return locked;
  const int64_t offset = header_.RecordOffset(span.first);
  const int length = span.count * header_.recordlength;
  String reason;
  if (!ReadExactly(*file_, offset, block_.Begin(span, header_.recordlength), length, reason)) {
    block_.Drop();
    // A file that ends too soon may still have the record that is wanted.
    if (span.count > 1) return Reading::Again;
    (void)Fail("reading from", reason);
    return Reading::Failed;
  }
  if (offset / kBlock != (offset + length - 1) / kBlock) {
    const Reading reading = CheckBorder(stamp);
    if (reading != Reading::Whole) {
      block_.Drop();
      // Under the header's lock a mark is not that of a change under way.
      lock.Release();
      return reading == Reading::Again && Refresh() ? Reading::Again : Reading::Failed;
    }
  }
  lock.Release();
  block_.End();
  named_looks_ = looks_outside - looks_in_vain;
  return Reading::Whole;
}

void XBaseTable::TakeRecord(int n, const char* bytes) {
  if (bytes != stored_.data()) std::memcpy(stored_.data(), bytes, stored_.size());
  deleted_ = stored_[0] == kDeletedMark ? 1 : 0;
  const auto* field_bytes = reinterpret_cast<const unsigned char*>(stored_.data()) + 1;
  for (const auto& field : fields_) {
    field->Read(field_bytes);
    field_bytes += field->length();
  }
  recordnum_ = n;
}

bool XBaseTable::ReadRecord(int n) {
  for (int i = 0; i < kMostReplacements; ++i) {
    if (file_ == nullptr || n < 1 || n > header_.numrecords) {
      error_.clear();
      return false;
    }
    stored_is_current_ = false;
    if (Holds(n)) {
      String reason;
      if (!ReadExactly(*file_, header_.RecordOffset(n), record_.data(), header_.recordlength,
                       reason)) {
        return Fail("reading from", reason);
      }
      TakeRecord(n, record_.data());
      stored_is_current_ = true;
      return true;
    }
    const char* bytes = block_.Find(n);
    if (bytes == nullptr) {
      const Reading reading = FetchBlock(n);
      if (reading == Reading::Failed) return false;
      if (reading == Reading::Again) continue;
      bytes = block_.At(n);
    }
    TakeRecord(n, bytes);
    return true;
  }
  return Fail("reading from", kReplacedAgain);
}

int XBaseTable::Goto(int n) { return ReadRecord(n) ? 1 : 0; }

// --- Changes in steps ------------------------------------------------------------------------

bool XBaseTable::BeginUpdate() {
  assert(!record_lock_.held() && !header_lock_.held());
  if (file_ == nullptr || recordnum_ == 0) {
    return Fail("writing to", "There is no current record");
  }
  String reason;
  stored_is_current_ = false;
  switch (record_lock_.TakeNamed(*file_, FileLockType::Exclusive, header_.RecordOffset(recordnum_),
                                 header_.recordlength, reason)) {
    case LockOutcome::Taken:
      return true;
    case LockOutcome::Failed:
      return FailLock(FileLockType::Exclusive, reason);
    case LockOutcome::Replaced:
      break;
  }
  return FailReplaced();
}

bool XBaseTable::LockHeader() {
  if (file_ == nullptr) return false;
  assert(!header_lock_.held());
  return LockStart(header_lock_, FileLockType::Exclusive, header_.headerlength) && ReadHeader();
}

void XBaseTable::EndChange() {
  if (memo_ != nullptr) memo_->Unlock();
  header_lock_.Release();
  record_lock_.Release();
  new_files_.reset();
  all_lock_.Release();
  stored_is_current_ = false;
}

bool XBaseTable::BuildRecord(char mark) {
  bool needs_block = false;
  for (const auto& field : fields_) needs_block = needs_block || field->NeedsMemoBlock();
  // From here to the end of the change, so that every number is that of the block its text goes to.
  if (needs_block) {
    switch (memo_->LockForWriting()) {
      case LockOutcome::Taken:
        break;
      case LockOutcome::Failed:
        return FailMemo();
      case LockOutcome::Replaced:
        return FailReplaced();
    }
  }
  record_[0] = mark;
  auto* bytes = reinterpret_cast<unsigned char*>(record_.data()) + 1;
  for (const auto& field : fields_) {
    if (field->Write(bytes) == 0) return false;
    bytes += field->length();
  }
  return true;
}

void XBaseTable::DescribeHeader(Change& change, int numrecords) {
  TableHeader header = header_;
  header.SetToday();
  header.numrecords = numrecords;
  header.mark = 0;
  change.table.file = file_.get();
  change.table.path = realpath();
  change.table.errorname = names_.dataerrorpath;
  // A mark that is none must not come back.
  change.table.former = MarkedTable(header_bytes_, 0);
  change.table.header.resize(kTableHeaderSize);
  header.Encode(change.table.header.data());
  if (memo_ != nullptr) change.written_before.push_back(&memo_->file());
  change.written_before.push_back(file_.get());
}

bool XBaseTable::CheckEnd(int64_t offset) {
  // As the lock was taken: nobody else makes the file longer while it is held.
  const int64_t length = header_lock_.stamp().length;
  // An append that died has left at most one record.
  bool fits = length >= offset && length <= offset + header_.recordlength + 1;
  if (length > offset && !fits) {
    char mark;
    String reason;
    if (!ReadExactly(*file_, offset, &mark, 1, reason)) return Fail("reading from", reason);
    fits = mark == kEndOfTable;  // What follows it is nobody's.
  }
  return fits || Fail("writing to", "The number of records does not fit the file's size");
}

bool XBaseTable::StageAppend(Change& change) {
  assert(header_lock_.held());
  if (header_.numrecords == INT32_MAX) return Fail("writing to", "The table is full");
  const int64_t offset = header_.RecordOffset(header_.numrecords + 1);
  if (!CheckEnd(offset) || !BuildRecord(kLiveMark)) return false;
  record_[static_cast<size_t>(header_.recordlength)] = kEndOfTable;
  String reason;
  if (!WriteExactly(*file_, offset, record_.data(), header_.recordlength + 1, reason)) {
    String ignored;
    (void)WriteExactly(*file_, offset, &kEndOfTable, 1, ignored);
    return Fail("writing to", reason);
  }
  DescribeHeader(change, header_.numrecords + 1);
  return true;
}

bool XBaseTable::StageUpdate(Change& change) {
  assert(header_lock_.held() && record_lock_.held() && stored_is_current_);
  if (!BuildRecord(deleted_ != 0 ? kDeletedMark : kLiveMark)) return false;
  // Only what became different is written, so that most updates touch one page.
  const auto [first, ignored] = std::mismatch(stored_.begin(), stored_.end(), record_.begin());
  if (first != stored_.end()) {
    const auto begin = static_cast<size_t>(first - stored_.begin());
    size_t end = stored_.size();
    while (stored_[end - 1] == record_[end - 1]) --end;
    change.writes.Write(*file_, header_.RecordOffset(recordnum_) + static_cast<int64_t>(begin),
                        {record_.data() + begin, end - begin},
                        {stored_.data() + begin, end - begin});
  }
  DescribeHeader(change, header_.numrecords);
  return true;
}

bool XBaseTable::StageMark(Change& change, int deleted) {
  assert(header_lock_.held() && record_lock_.held());
  const char mark = deleted != 0 ? kDeletedMark : kLiveMark;
  // One byte is written or not: there is nothing to take back.
  change.writes.Write(*file_, header_.RecordOffset(recordnum_), {&mark, 1});
  DescribeHeader(change, header_.numrecords);
  return true;
}

// A record that was written behind those that count, but was not to be: readers that go by the end
// mark alone must not see it.
void XBaseTable::MarkEnd(int numrecords, const Change& change) {
  TableHeader wanted;
  String ignored;
  if (DecodeTableHeader(change.table.header.data(), wanted) != HeaderState::Good ||
      wanted.numrecords == numrecords) {
    return;
  }
  (void)WriteExactly(*file_, header_.RecordOffset(numrecords + 1), &kEndOfTable, 1, ignored);
}

bool XBaseTable::Commit(Change& change) {
  assert(header_lock_.held());
  const int former = header_.numrecords;
  const ChangeOutcome outcome = change.Commit(journal_, durability_, error_);
  if (outcome == ChangeOutcome::Undone) MarkEnd(former, change);
  if (outcome != ChangeOutcome::Done) return false;
  (void)DecodeTableHeader(change.table.header.data(), header_);
  if (memo_ != nullptr) header_.version = kVersionWithMemo;
  if (header_.numrecords > former) {
    recordnum_ = header_.numrecords;
    deleted_ = 0;
  }
  return true;
}

// --- Changes at once -------------------------------------------------------------------------

bool XBaseTable::ReadStored() {
  for (const auto& field : fields_) field->Hold();
  String reason;
  if (!ReadExactly(*file_, header_.RecordOffset(recordnum_), stored_.data(), header_.recordlength,
                   reason)) {
    return Fail("reading from", reason);
  }
  stored_is_current_ = true;
  return true;
}

int XBaseTable::Update() {
  const TableChange ending(*this);
  if (!BeginUpdate() || !ReadStored()) return 0;
  Change change;
  return LockHeader() && StageUpdate(change) && Commit(change) ? 1 : 0;
}

int XBaseTable::Append() {
  const TableChange ending(*this);
  Change change;
  return LockHeader() && StageAppend(change) && Commit(change) ? 1 : 0;
}

int XBaseTable::UpdateDeleted(int deleted) {
  const TableChange ending(*this);
  Change change;
  if (!BeginUpdate() || !LockHeader() || !StageMark(change, deleted) || !Commit(change)) return 0;
  deleted_ = deleted != 0 ? 1 : 0;
  return 1;
}

// --- Memo texts and fields -------------------------------------------------------------------

int XBaseTable::ReadMemoHeader() {
  if (memo_ == nullptr) return 0;
  return memo_->ReadHeader() || FailMemo() ? 1 : 0;
}

int XBaseTable::WriteMemoHeader() {
  if (memo_ == nullptr) return 0;
  return memo_->WriteHeader() || FailMemo() ? 1 : 0;
}

int XBaseTable::ReadMemoBlock(int block, String& text) {
  if (memo_ == nullptr) return 0;
  if (memo_->ReadBlock(block, text)) return 1;
  ++lost_texts_;
  (void)FailMemo();
  return 0;
}

int XBaseTable::WriteMemoBlock(std::string_view text) {
  if (memo_ == nullptr) return -1;
  const int block = memo_->WriteBlock(text);
  if (block < 0) (void)FailMemo();
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
