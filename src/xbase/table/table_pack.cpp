// Making new files beside a table and putting them in place, and packing: the live records and
// their memo texts go to new files, which then take the places of the old ones. Several files
// cannot be swapped at one stroke, so a swap is a change with a journal (xbase/change).
//
// The old file is locked as a whole, the new one too before it gets its name; so nobody reads a
// table between the steps unless the packing process died there.

#include <algorithm>
#include <cassert>
#include <cstring>
#include <utility>

#include "core/number.h"
#include "xbase/table/new_files.h"
#include "xbase/table/xbase_table.h"

namespace vexa {

namespace {

constexpr int kNewFileMode = OpenRead | OpenWrite | OpenCreate | OpenExclusive;
constexpr int kPermissionBits = 07777;
constexpr int kCopyBuffer = 65536;

}  // namespace

// --- New files -------------------------------------------------------------------------------

bool XBaseTable::MakeNewFiles(bool with_memo, uint64_t number, std::string_view action) {
  new_files_ = std::make_unique<NewFiles>(files_);
  NewFiles& made = *new_files_;
  made.number = number;
  const auto make = [&](const String& path, String& newpath) {
    const String name = NewFileName(path, number);
    auto file = files_.Open(name, kNewFileMode);
    if (file == nullptr) return file;
    newpath = name;
    const int mode = files_.Exists(path) ? files_.Mode(path) : -1;
    if (mode >= 0) (void)files_.ChangeMode(name, mode & kPermissionBits);
    return file;
  };
  made.file = make(realpath(), made.datapath);
  if (made.file == nullptr) return Fail(action, files_.error());
  if (!made.lock.Take(*made.file, FileLockType::Exclusive, 0, 0)) {
    return Fail(action, made.file->error());
  }
  if (!with_memo) return true;
  auto memo = make(names_.memopath, made.memopath);
  if (memo == nullptr) {
    error_ = String::Concat({"Error ", action, " '", names_.memoerrorpath, "': ", files_.error()});
    return false;
  }
  made.memo = std::make_unique<MemoFile>(std::move(memo), names_.memoerrorpath);
  if (made.memo->WriteHeader() && made.memo->LockForWriting() == LockOutcome::Taken) {
    return true;
  }
  return FailNewMemo();
}

bool XBaseTable::FailNewMemo() {
  error_ = new_files_->memo->error();
  return false;
}

bool XBaseTable::WriteNewHeader(uint64_t mark) {
  TableHeader& header = new_files_->header;
  header.SetToday();
  header.mark = mark;
  char bytes[kTableHeaderSize];
  header.Encode(bytes);
  String reason;
  if (WriteExactly(*new_files_->file, 0, bytes, kTableHeaderSize, reason)) return true;
  return Fail("writing to", reason);
}

bool XBaseTable::SyncNewFiles() {
  NewFiles& made = *new_files_;
  if (made.file->Sync() < 0) return Fail("writing to", made.file->error());
  if (made.memo == nullptr || made.memo->file().Sync() == 0) return true;
  return Fail("writing to", made.memo->file().error());
}

// Puts the new files into a swap, before those that are there already.
void XBaseTable::DescribeSwap(FileSwap& swap, File& former, const std::string& header) {
  NewFiles& made = *new_files_;
  std::vector<FileSwap::Swap> own{{made.datapath, realpath(), names_.dataerrorpath}};
  if (made.memo != nullptr) own.push_back({made.memopath, names_.memopath, names_.memoerrorpath});
  swap.swaps.insert(swap.swaps.begin(), own.begin(), own.end());
  swap.number = made.number;
  swap.table.file = &former;
  swap.table.path = realpath();
  swap.table.errorname = names_.dataerrorpath;
  swap.table.former = MarkedTable(header, 0);
  swap.new_table = made.file.get();
}

// Carries a described swap out. What is in place then is what this table has open.
bool XBaseTable::CarryOut(FileSwap& swap) {
  if (!WriteNewHeader(swap.NeedsMark() ? swap.number : 0) || !SyncNewFiles()) return false;
  TableHeader header = new_files_->header;
  header.mark = 0;
  swap.new_header.resize(kTableHeaderSize);
  header.Encode(swap.new_header.data());
  bool happened;
  const bool done = swap.Commit(journal_, durability_, happened, error_);
  const String message = error_;
  if (happened) AdoptNewFiles();
  error_ = message;
  return done;
}

void XBaseTable::AdoptNewFiles() {
  NewFiles& made = *new_files_;
  made.Installed();
  if (made.memo != nullptr) made.memo->Unlock();
  header_ = made.header;
  header_.mark = 0;
  all_lock_.Release();
  // Others wait for the lock of the new file until the change ends.
  Exchange(std::move(made.file), std::move(made.memo));
}

// --- Packing ---------------------------------------------------------------------------------

bool XBaseTable::CheckNoLinks() {
  const bool links = files_.FollowsLink(names_.datapath) || files_.FollowsLink(names_.memopath);
  return !links || Fail("writing to", kNoReplacementOfLinks);
}

bool XBaseTable::BeginPack(FileSwap& swap) {
  if (file_ == nullptr || !CheckNoLinks()) return false;
  if (!LockStart(all_lock_, FileLockType::Exclusive, 0) || !ReadHeader()) return false;
  if (memo_ != nullptr) {
    const LockOutcome outcome = memo_->LockForWriting();
    if (outcome == LockOutcome::Failed) return FailMemo();
    if (outcome == LockOutcome::Replaced) return FailReplaced();
  }
  if (NewChangeNumber(swap.number)) return true;
  return Fail("writing to", "The system gives no random numbers");
}

bool XBaseTable::StagePack(FileSwap& swap) {
  assert(all_lock_.held());
  return MakeNewFiles(memo_ != nullptr, swap.number, "writing to") && CollectBlocks() &&
         CopyLiveRecords();
}

bool XBaseTable::CommitPack(FileSwap& swap) {
  DescribeSwap(swap, *file_, header_bytes_);
  return CarryOut(swap);
}

int XBaseTable::Pack() {
  const TableChange ending(*this);
  FileSwap swap(files_);
  return BeginPack(swap) && StagePack(swap) && CommitPack(swap) ? 1 : 0;
}

// A buffer of records, read in their order; `visit` is given each and returns false to end.
template <typename Visit>
bool XBaseTable::ForRecords(Visit visit) {
  const int at_once = std::max(1, kCopyBuffer / header_.recordlength);
  const auto record_size = static_cast<size_t>(header_.recordlength);
  std::vector<char> records(static_cast<size_t>(at_once) * record_size + 1);
  String reason;
  for (int first = 1; first <= header_.numrecords;) {
    const int count = std::min(at_once, header_.numrecords - first + 1);
    if (!ReadExactly(*file_, header_.RecordOffset(first), records.data(),
                     count * header_.recordlength, reason)) {
      return Fail("reading from", reason);
    }
    if (!visit(records.data(), count)) return false;
    first += count;
  }
  return true;
}

template <typename Visit>
bool XBaseTable::ForMemos(char* record, Visit visit) {
  char* bytes = record + 1;
  for (const auto& field : fields_) {
    char* const here = bytes;
    bytes += field->length();
    if (field->type() != XBaseFieldType::MEMO) continue;
    if (!visit(*field, here)) return false;
  }
  return true;
}

// Where the texts begin that records name, deleted ones too: none of them reaches into the next.
bool XBaseTable::CollectBlocks() {
  if (memo_ == nullptr) return true;
  std::vector<int>& blocks = new_files_->blocks;
  const auto note = [&](const XBaseField& field, const char* bytes) {
    const auto width = static_cast<size_t>(field.length());
    blocks.push_back(ReadInteger(std::string_view(bytes, width)));
    return true;
  };
  const bool read = ForRecords([&](char* records, int count) {
    for (int i = 0; i < count; ++i) (void)ForMemos(records + i * header_.recordlength, note);
    return true;
  });
  std::sort(blocks.begin(), blocks.end());
  return read;
}

bool XBaseTable::CopyLiveRecords() {
  NewFiles& made = *new_files_;
  String reason;
  std::vector<char> start(static_cast<size_t>(header_.headerlength));
  if (!ReadExactly(*file_, 0, start.data(), header_.headerlength, reason)) {
    return Fail("reading from", reason);
  }
  if (!WriteExactly(*made.file, 0, start.data(), header_.headerlength, reason)) {
    return Fail("writing to", reason);
  }
  made.header = header_;
  made.header.numrecords = 0;
  const auto record_size = static_cast<size_t>(header_.recordlength);
  return ForRecords([&](char* records, int count) {
    char* to = records;
    for (int i = 0; i < count; ++i) {
      char* record = records + static_cast<size_t>(i) * record_size;
      if (record[0] == kDeletedMark) continue;
      if (to != record) std::memcpy(to, record, record_size);
      if (made.memo != nullptr && !CopyMemos(to)) return false;
      to += record_size;
    }
    const auto size = static_cast<int>(to - records);
    *to = kEndOfTable;  // The next records begin over it.
    const int64_t offset = made.header.RecordOffset(made.header.numrecords + 1);
    if (size > 0 && !WriteExactly(*made.file, offset, records, size + 1, reason)) {
      return Fail("writing to", reason);
    }
    made.header.numrecords += size / header_.recordlength;
    return true;
  });
}

bool XBaseTable::CopyMemos(char* record) {
  NewFiles& made = *new_files_;
  return ForMemos(record, [&](const XBaseField& field, char* here) {
    const auto width = static_cast<size_t>(field.length());
    const int old_block = ReadInteger(std::string_view(here, width));
    if (old_block == 0) return true;
    const auto next = std::upper_bound(made.blocks.begin(), made.blocks.end(), old_block);
    std::string bytes;
    // One text that cannot be read stops the pack: it would be lost for good.
    if (!memo_->ReadStored(old_block, next == made.blocks.end() ? INT32_MAX : *next, bytes)) {
      return FailMemo();
    }
    String number;
    if (!bytes.empty()) {
      const int block = made.memo->WriteBlock(bytes);
      if (block < 0) return FailNewMemo();
      number = PrintInteger(block);
    }
    if (number.size() > width) return MemoNumberTooLong(field.name());
    std::memset(here, ' ', width);
    std::memcpy(here + (width - number.size()), number.data(), number.size());
    return true;
  });
}

}  // namespace vexa
