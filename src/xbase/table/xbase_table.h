// XBaseTable: a table file, its memo file when it has memo fields, and one current record.
//
// Record numbers are from 1; 0 is no record. The header in memory is a cache of the one on disk: it
// is read again, under its lock, before it is written.
//
// Locks are record locks on exactly the bytes that are read or written: bytes 0-31 to read the
// header, the record's own bytes to read or change it, all of the header to append and to write the
// header, the memo file's first block to store a text, the whole file to pack. They are taken in
// this order and never the other way round: index files, record, header, memo file.
//
// A pack puts a new file in the place of the old one. Hence, once a lock is held, the open file is
// compared with the one its path names, and opened again when it is another. A record that was
// current then may have another number, so changing it fails instead.
//
// A change goes in steps, so that changes of indexes can go with it (xbase/change):
//
//   Begin...      takes the lock of the record
//   LockHeader    takes the lock of the header and reads it
//   Stage...      stores memo texts and a new record, and puts the rest into a Change
//   Commit        carries the change out
//   EndChange     gives the locks back; TableChange does it at the end of a block
//
// Update, Append and UpdateDeleted are all of that for a table without indexes.
//
// A header that bears the mark of a change whose process is gone is refused until that change is
// finished: unfinished() tells that from other failures.
//
// A walk in the order of numbers reads records ahead (record_block.h). What it is given may be as
// old as kLongestTrust, but never older than anything else that this process asked outside.
//
// Operations return 1 or true; 0 or false with the message in error(), unless they say otherwise.
// None returns with a lock held, but for the steps of a change.

#ifndef VEXA_XBASE_TABLE_XBASE_TABLE_H_
#define VEXA_XBASE_TABLE_XBASE_TABLE_H_

#include <memory>
#include <string_view>
#include <vector>

#include "core/file.h"
#include "core/file_access.h"
#include "xbase/change/change.h"
#include "xbase/table/memo_file.h"
#include "xbase/table/record_block.h"
#include "xbase/table/table_header.h"
#include "xbase/table/xbase_field.h"

namespace vexa {

// Where a table is and what messages call it. Empty memo names are made from the data names.
struct XBaseTableNames {
  String datapath;
  String dataerrorpath;
  String memopath;
  String memoerrorpath;
};

// Values of a record, in the order of the fields.
using XBaseRow = std::vector<String>;

class XBaseTable {
 public:
  // `files` is borrowed and must outlive the table.
  explicit XBaseTable(FileManager& files);
  virtual ~XBaseTable();
  XBaseTable(const XBaseTable&) = delete;
  XBaseTable& operator=(const XBaseTable&) = delete;

  // Opens a table and its memo file with OpenMode bits. No record is current then.
  [[nodiscard]] int Open(const String& datapath, const String& dataerrorpath, int mode);
  // Makes a table of `rows`, in the place of any that is there, and opens it. Field names longer
  // than 10 bytes are cut; fields that make a record or header too long are refused before
  // anything is touched. Until it is complete nothing is seen of it.
  [[nodiscard]] int Create(const XBaseTableNames& names,
                           const std::vector<XBaseField::Declaration>& fields,
                           const std::vector<XBaseRow>& rows = {});
  // Closes both files and forgets the fields.
  void Close();

  // Makes record `n` current. A number outside of 1 to numrecords() fails with no message.
  [[nodiscard]] int Goto(int n);
  // Forgets the records that were read ahead: the next Goto reads what the file holds.
  void DropBlock() {
    block_.Drop();
    named_until_ = 0;
  }
  // Writes the current record back to its place.
  [[nodiscard]] int Update();
  // Writes the values of the fields as a new record at the end; it becomes the current one.
  [[nodiscard]] int Append();
  // Sets or clears the deletion mark of the current record.
  [[nodiscard]] int UpdateDeleted(int deleted);
  // Reads the header again, so that records appended by other processes can be reached.
  [[nodiscard]] bool Refresh();
  // How often the files were opened anew because others took their place. Record numbers from
  // before such a change mean nothing after it.
  [[nodiscard]] int generation() const { return generation_; }
  // Takes the deleted records out of the table, and memo texts that no record names out of the
  // memo file. No record is current then. On failure the table is as it was.
  [[nodiscard]] int Pack();

  // --- Changes in steps ---
  // Takes the lock of the current record. False when the table was replaced.
  [[nodiscard]] bool BeginUpdate();
  // Takes the header's lock and reads it. While a record is locked, false when the table was
  // replaced.
  [[nodiscard]] bool LockHeader();
  // REQUIRES, for these three: LockHeader; for the last two BeginUpdate before it.
  [[nodiscard]] bool StageAppend(Change& change);
  // REQUIRES: the record was read since it was locked.
  [[nodiscard]] bool StageUpdate(Change& change);
  [[nodiscard]] bool StageMark(Change& change, int deleted);
  [[nodiscard]] bool Commit(Change& change);
  // Takes the lock of the whole table, reads the header and gives the swap its number.
  [[nodiscard]] bool BeginPack(FileSwap& swap);
  // Writes the packed table beside the old one; then carries the swap out, together with those of
  // indexes that the caller put there.
  [[nodiscard]] bool StagePack(FileSwap& swap);
  [[nodiscard]] bool CommitPack(FileSwap& swap);
  void EndChange();

  // Whether the last operation failed because the table bears the mark of an unfinished change.
  [[nodiscard]] bool unfinished() const { return unfinished_; }
  void ForgetUnfinished() { unfinished_ = false; }
  void SetDurability(Durability durability) { durability_ = durability; }
  // The path without links; the journal stands beside it.
  [[nodiscard]] const String& realpath();

  // The memo file's operations, for the memo fields. WriteMemoBlock returns the number of the block
  // that `text` begins in, or -1.
  [[nodiscard]] int ReadMemoHeader();
  [[nodiscard]] int WriteMemoHeader();
  [[nodiscard]] int ReadMemoBlock(int block, String& text);
  // How many texts could not be read so far. Who asks for a field's text is not told.
  [[nodiscard]] int lost_texts() const { return lost_texts_; }
  [[nodiscard]] int WriteMemoBlock(std::string_view text);
  // Store the message that a memo field is too narrow for a block number, or that its text went
  // with the old file. Return false.
  bool MemoNumberTooLong(const String& field);
  bool MemoTextLost(const String& field);

  // Those of every field.
  void SwapOriginal();
  void SetOriginal();

  [[nodiscard]] int version() const { return header_.version; }
  [[nodiscard]] int lastupdate_year() const { return header_.lastupdate_year; }
  [[nodiscard]] int lastupdate_month() const { return header_.lastupdate_month; }
  [[nodiscard]] int lastupdate_day() const { return header_.lastupdate_day; }
  [[nodiscard]] int numrecords() const { return header_.numrecords; }
  [[nodiscard]] int headerlength() const { return header_.headerlength; }
  [[nodiscard]] int recordlength() const { return header_.recordlength; }
  [[nodiscard]] int recordnum() const { return recordnum_; }
  [[nodiscard]] int deleted() const { return deleted_; }
  [[nodiscard]] int firstfreeblock() const { return memo_ ? memo_->firstfreeblock() : 1; }
  [[nodiscard]] const std::vector<std::unique_ptr<XBaseField>>& fields() const { return fields_; }
  // The field of that name (letter case ignored), or null.
  [[nodiscard]] XBaseField* FindField(std::string_view name) const;
  [[nodiscard]] bool is_open() const { return file_ != nullptr; }
  [[nodiscard]] const String& datapath() const { return names_.datapath; }
  [[nodiscard]] const String& dataerrorpath() const { return names_.dataerrorpath; }
  [[nodiscard]] const String& memopath() const { return names_.memopath; }
  [[nodiscard]] const String& memoerrorpath() const { return names_.memoerrorpath; }
  [[nodiscard]] const String& error() const { return error_; }

 private:
  // What opening the files of a table gives.
  struct Opened {
    std::unique_ptr<File> file;
    std::unique_ptr<MemoFile> memo;
    TableHeader header;
    std::vector<FieldDescriptor> fields;
  };
  // The files of a pack or creation under way, beside those whose places they are to take.
  struct NewFiles;

  // Messages. Each returns false.
  bool Fail(std::string_view action, std::string_view reason);
  bool FailLock(FileLockType type, std::string_view reason);
  bool FailMemo();
  // The table was replaced while a record was locked.
  bool FailReplaced();

  // Opens the files and reads the header and descriptors, all under the header lock.
  [[nodiscard]] bool OpenFiles(Opened& opened);
  [[nodiscard]] bool ReadStructure(Opened& opened);
  [[nodiscard]] bool OpenMemo(Opened& opened);
  // Opens the files anew after they were replaced. No record is current then.
  [[nodiscard]] bool Reopen();
  // Takes over other files of the same structure.
  void Exchange(std::unique_ptr<File> file, std::unique_ptr<MemoFile> memo);
  [[nodiscard]] bool MakeFields(const std::vector<FieldDescriptor>& descriptors);

  [[nodiscard]] bool ReadHeader();
  // Whether `mark` is one: not zero, and known to the journal. Sets the message then.
  [[nodiscard]] bool IsMarked(uint64_t mark);
  // Takes `lock` on `length` bytes from 0 of the file that the path names now.
  [[nodiscard]] bool LockStart(RangeLock& lock, FileLockType type, int64_t length);
  [[nodiscard]] bool Holds(int n) const {
    return all_lock_.held() || (record_lock_.held() && n == recordnum_);
  }
  // What came of looking for bytes of records.
  enum class Reading { Whole, Again, Failed };
  // What Goto does.
  [[nodiscard]] bool ReadRecord(int n);
  // Reads record `n`, and those that a walk asks for next, into the block.
  [[nodiscard]] Reading FetchBlock(int n);
  // Locks the records of `span`, or only the one that is wanted. `stamp` is what was learnt of the
  // file, null when it was not asked.
  [[nodiscard]] Reading LockBlock(RangeLock& lock, RecordBlock::Span& span,
                                  const FileStamp*& stamp);
  // Whether the path was asked a short time ago, and nothing new was learnt since.
  [[nodiscard]] bool TrustsName() const;
  // Makes the record of these bytes the current one.
  void TakeRecord(int n, const char* bytes);
  // Reads the bytes of the locked record into stored_.
  [[nodiscard]] bool ReadStored();
  // Whether records that were read over the border of two pages may be half of one change.
  // `stamp` is null when the file was not asked for it.
  [[nodiscard]] Reading CheckBorder(const FileStamp* stamp);
  // Puts what the change makes of the header into it.
  void DescribeHeader(Change& change, int numrecords);
  void MarkEnd(int numrecords, const Change& change);
  // Fails when a record at `offset` would leave a gap, or lie over records that do not count.
  [[nodiscard]] bool CheckEnd(int64_t offset);
  // Puts mark and field values into record_, storing changed memo texts first.
  [[nodiscard]] bool BuildRecord(char mark);

  // table_pack.cpp: new files
  [[nodiscard]] bool MakeNewFiles(bool with_memo, uint64_t number, std::string_view action);
  bool FailNewMemo();
  [[nodiscard]] bool WriteNewHeader(uint64_t mark);
  [[nodiscard]] bool SyncNewFiles();
  void DescribeSwap(FileSwap& swap, File& former, const std::string& header);
  [[nodiscard]] bool CarryOut(FileSwap& swap);
  void AdoptNewFiles();
  // table_pack.cpp: packing
  [[nodiscard]] bool CheckNoLinks();
  template <typename Visit>
  [[nodiscard]] bool ForRecords(Visit visit);
  template <typename Visit>
  [[nodiscard]] bool ForMemos(char* record, Visit visit);
  [[nodiscard]] bool CopyLiveRecords();
  [[nodiscard]] bool CollectBlocks();
  [[nodiscard]] bool CopyMemos(char* record);
  // table_open.cpp: creating
  // Checks the declared fields and makes the header and descriptors of a table that has them.
  [[nodiscard]] bool Declare(const std::vector<XBaseField::Declaration>& fields,
                             std::vector<FieldDescriptor>& descriptors);
  [[nodiscard]] bool WriteStructure();
  [[nodiscard]] bool WriteRows(const std::vector<XBaseRow>& rows);
  [[nodiscard]] bool Install();
  [[nodiscard]] bool InstallNew();

  FileManager& files_;
  int mode_ = 0;
  XBaseTableNames names_;
  std::unique_ptr<File> file_;
  std::unique_ptr<MemoFile> memo_;  // only when the version is kVersionWithMemo
  TableHeader header_;
  int recordnum_ = 0;
  int generation_ = 0;
  int deleted_ = 0;  // the current record's mark, 0 or 1
  std::vector<std::unique_ptr<XBaseField>> fields_;
  RecordBlock block_;
  // Until when, a SteadyTime, and at which count of looks that told something, the path is known to
  // name the file.
  int64_t named_until_ = 0;
  uint64_t named_looks_ = 0;
  // The bytes of a record on their way out, and one more for the end of file mark.
  std::vector<char> record_;
  // The record as it was read last; the fields take their values from it.
  std::vector<char> stored_;
  // What `stored_` was read from may have been changed since, unless the record is locked.
  bool stored_is_current_ = false;
  String realpath_;  // empty until it is asked for
  Journal journal_;
  Durability durability_ = Durability::None;
  std::string header_bytes_;  // the header as the file holds it
  uint64_t void_mark_ = 0;    // a mark that is none: the journal does not know it
  bool unfinished_ = false;
  int lost_texts_ = 0;
  // A stamp of the file for which its header bears no mark; none is there at first.
  FileStamp header_stamp_;
  // Locks of the change under way, on file_; declared behind it, so given back first.
  RangeLock record_lock_;
  RangeLock header_lock_;
  RangeLock all_lock_;
  std::unique_ptr<NewFiles> new_files_;
  String error_;
};

// Gives the locks of a change back at the end of a block.
class TableChange {
 public:
  explicit TableChange(XBaseTable& table) : table_(table) {}
  ~TableChange() { table_.EndChange(); }
  TableChange(const TableChange&) = delete;
  TableChange& operator=(const TableChange&) = delete;

 private:
  XBaseTable& table_;
};

}  // namespace vexa

#endif  // VEXA_XBASE_TABLE_XBASE_TABLE_H_
