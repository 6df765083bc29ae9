// Checking a table and its memo file; see table_check.h. Indexes are checked in index_check.cpp.

#include "xbase/check/table_check.h"

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "core/byte_order.h"
#include "core/text.h"
#include "xbase/change/journal.h"
#include "xbase/check/check_report.h"
#include "xbase/check/index_check.h"
#include "xbase/check/record_reader.h"
#include "xbase/table/memo_file.h"

namespace vexa {

namespace {

// The bytes of the memo file that a text takes, its end included.
struct Extent {
  int64_t start;
  int64_t end;
  int recordnum;
};

class TableChecker {
 public:
  TableChecker(FileManager& files, CheckReport& report) : files_(files), report_(report) {}

  // The locks are kept until the checker is destroyed. False when there is nothing to check.
  bool Open(const String& path);
  void Check();
  RecordReader* reader() { return reader_.get(); }

 private:
  void CheckMark();
  void CheckSize();
  void CheckRecords();
  void CheckMemoNumber(int recordnum, std::string_view number);
  void CheckMemoHeader();
  void CheckExtents();

  FileManager& files_;
  CheckReport& report_;
  String path_;
  std::unique_ptr<RecordReader> reader_;
  int64_t memo_length_ = 0;
  std::vector<Extent> extents_;
};

bool TableChecker::Open(const String& path) {
  path_ = path;
  reader_ = std::make_unique<RecordReader>(files_);
  if (reader_->Open(path)) return true;
  report_.Fault(reader_->error());
  reader_.reset();
  return false;
}

void TableChecker::Check() {
  CheckMark();
  CheckSize();
  if (reader_->memo() != nullptr) CheckMemoHeader();
  CheckRecords();
  CheckExtents();
}

void TableChecker::CheckMark() {
  if (reader_->header().mark == 0) return;
  String real;
  JournalContent content;
  String ignored;
  if (files_.RealPath(path_, real) < 0) real = path_;
  const JournalState state = ReadJournal(files_, real, content, ignored);
  if (state == JournalState::Unreadable ||
      (state == JournalState::Found && content.number == reader_->header().mark)) {
    report_.Fault("a change was not finished; the next request completes it");
  } else {
    report_.Note("bytes 20 to 27 of the header are not zero, but the journal does not know them");
  }
}

void TableChecker::CheckSize() {
  const TableHeader& header = reader_->header();
  const int64_t length = reader_->file().Length();
  const int64_t needed = header.RecordOffset(header.numrecords + 1);
  if (length < needed) {
    report_.Fault("the header counts ", header.numrecords,
                  " records, but the file ends before the last of them");
  }
  // An append that died may have left one record behind those that count.
  if (length > needed + header.recordlength + 1) {
    report_.Fault("the file goes on ", length - needed, " bytes behind its last record");
  }
}

void TableChecker::CheckMemoHeader() {
  MemoFile& memo = *reader_->memo();
  memo_length_ = memo.file().Length();
  const int64_t blocks = (memo_length_ + kMemoBlockSize - 1) / kMemoBlockSize;
  if (memo.firstfreeblock() < 1) report_.Fault("the memo file's next free block is its header");
  // More blocks than the header counts are what an append that died leaves.
  if (memo.firstfreeblock() > blocks) {
    report_.Fault("the memo file ends before its next free block ", memo.firstfreeblock(), "");
  }
}

void TableChecker::CheckRecords() {
  const int count = reader_->RecordsInFile();
  for (int n = 1; n <= count; ++n) {
    if (!reader_->Read(n)) {
      report_.Fault(reader_->error());
      return;
    }
    const char mark = reader_->mark();
    if (mark != kLiveMark && mark != kDeletedMark) {
      report_.Fault("record ", n, " has no valid deletion mark");
    }
    for (size_t i = 0; i < reader_->fields().size(); ++i) {
      if (reader_->fields()[i].letter == 'M') CheckMemoNumber(n, reader_->Bytes(i));
    }
  }
}

void TableChecker::CheckMemoNumber(int recordnum, std::string_view number) {
  number = Stripped(number);
  for (char c : number) {
    if (IsDigit(c)) continue;
    report_.Fault("record ", recordnum, " has a memo block number that is no number");
    return;
  }
  const int block = ReadInteger(number);
  if (block == 0) return;
  String text;
  if (!reader_->memo()->ReadBlock(block, text)) {
    report_.Fault("record ", recordnum, " names a memo block that cannot be read");
    return;
  }
  const int64_t start = int64_t{block} * kMemoBlockSize;
  const int64_t end = start + text.length() + 1;
  if (end > memo_length_) {
    report_.Fault("record ", recordnum, " has a memo text that does not end");
  }
  if (block >= reader_->memo()->firstfreeblock()) {
    report_.Fault("record ", recordnum, " names a memo block that counts as free");
  }
  extents_.push_back({start, end, recordnum});
}

void TableChecker::CheckExtents() {
  std::sort(extents_.begin(), extents_.end(), [](const Extent& a, const Extent& b) {
    return a.start != b.start ? a.start < b.start : a.recordnum < b.recordnum;
  });
  for (size_t i = 1; i < extents_.size(); ++i) {
    // Records may share a text, but not begin inside another.
    if (extents_[i].start != extents_[i - 1].start && extents_[i].start < extents_[i - 1].end) {
      report_.Fault("record ", extents_[i].recordnum, " has a memo text inside that of another");
    }
  }
}

}  // namespace

int CheckTable(FileManager& files, const String& table, std::span<const String> indexes,
               Output& out) {
  CheckReport report(out);
  // Locks are taken in the order that writers take them: indexes first.
  std::vector<std::unique_ptr<IndexChecker>> index_checkers;
  for (const String& path : indexes) {
    report.Begin(path);
    auto checker = std::make_unique<IndexChecker>(files, report);
    if (!checker->Open(path)) checker.reset();
    index_checkers.push_back(std::move(checker));
  }
  report.Begin(table);
  TableChecker checker(files, report);
  const bool opened = checker.Open(table);
  if (opened) {
    checker.Check();
    report.End(PrintInteger(checker.reader()->header().numrecords) + " records");
  }
  for (size_t i = 0; i < indexes.size(); ++i) {
    if (index_checkers[i] == nullptr) continue;
    report.Begin(indexes[i]);
    index_checkers[i]->Check(opened ? checker.reader() : nullptr);
    report.End(PrintInteger(index_checkers[i]->entries()) + " keys");
  }
  return report.total() == 0 ? 0 : 1;
}

}  // namespace vexa
