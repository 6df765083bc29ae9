// XBaseTable: a table file, its memo file when it has memo fields, and one current record.
//
// Record numbers are from 1; 0 is no record. The header in memory is a cache of the one on disk: it
// is read again, under its lock, before it is written.
//
// Locks are record locks on exactly the bytes that are read or written: bytes 0-31 to read the
// header, the record's own bytes to read or change it, all of the header to append and to write the
// header, the memo file's first block to store a text, the whole file to pack. They are taken in
// this order and never the other way round: index files, record or header, memo file.
//
// A pack puts a new file in the place of the old one. Hence, once a lock is held, the open file is
// compared with the one its path names, and opened again when it is another. A record that was
// current then may have another number, so changing it fails instead.
//
// Operations return 1, or 0 with the message in error(), unless they say otherwise. No operation
// returns with a lock held.

#ifndef VEXA_XBASE_TABLE_XBASE_TABLE_H_
#define VEXA_XBASE_TABLE_XBASE_TABLE_H_

#include <memory>
#include <string_view>
#include <vector>

#include "core/file.h"
#include "core/file_access.h"
#include "xbase/table/memo_file.h"
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

class XBaseTable {
 public:
  // `files` is borrowed and must outlive the table.
  explicit XBaseTable(FileManager& files) : files_(files) {}
  virtual ~XBaseTable() { Close(); }
  XBaseTable(const XBaseTable&) = delete;
  XBaseTable& operator=(const XBaseTable&) = delete;

  // Opens a table and its memo file with OpenMode bits. No record is current then.
  [[nodiscard]] int Open(const String& datapath, const String& dataerrorpath, int mode);
  // Makes an empty table, in the place of any that is there, and opens it. Field names longer
  // than 10 bytes are cut; fields that make a record or header too long are refused before
  // anything is touched.
  [[nodiscard]] int Create(const XBaseTableNames& names,
                           const std::vector<XBaseField::Declaration>& fields);
  // Closes both files and forgets the fields.
  void Close();

  // Makes record `n` current. A number outside of 1 to numrecords() fails with no message.
  [[nodiscard]] int Goto(int n);
  // Writes the current record back to its place.
  [[nodiscard]] int Update();
  // Writes the values of the fields as a new record at the end; it becomes the current one.
  [[nodiscard]] int Append();
  // Takes the last record out again, which was just appended. No record is current then.
  // REQUIRES: the caller has kept other processes from appending since.
  [[nodiscard]] int RemoveLast();
  // Sets or clears the deletion mark of the current record.
  [[nodiscard]] int UpdateDeleted(int deleted);
  // Reads the header again, so that records appended by other processes can be reached.
  [[nodiscard]] int Refresh();
  // How often the files were opened anew because others took their place. Record numbers from
  // before such a change mean nothing after it.
  [[nodiscard]] int generation() const { return generation_; }
  // Takes the deleted records out of the table, and memo texts that no record names out of the
  // memo file. No record is current then. On failure the table is as it was.
  // REQUIRES: the caller holds the locks of the table's open indexes, and builds them anew.
  [[nodiscard]] int Pack();

  // The memo file's operations, for the memo fields. WriteMemoBlock returns the number of the block
  // that `text` begins in, or -1.
  [[nodiscard]] int ReadMemoHeader();
  [[nodiscard]] int WriteMemoHeader();
  [[nodiscard]] int ReadMemoBlock(int block, String& text);
  [[nodiscard]] int WriteMemoBlock(std::string_view text);
  // Store the message that a memo field is too narrow for a block number, or that its text went
  // with the old file. Return 0.
  int MemoNumberTooLong(const String& field);
  int MemoTextLost(const String& field);

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
  // A file of a pack under way: the new table or memo file beside the old one.
  struct PackFiles;

  // Messages. Each returns 0.
  int Fail(std::string_view action, std::string_view reason);
  int FailLock(std::string_view purpose);
  int FailMemo();
  int FailReplaced();

  [[nodiscard]] String DerivedMemoName(const String& dataname) const;
  // Opens the files and reads the header and descriptors, all under the header lock.
  [[nodiscard]] int OpenFiles(Opened& opened);
  [[nodiscard]] int ReadStructure(Opened& opened);
  [[nodiscard]] int OpenMemo(Opened& opened);
  // Opens the files anew after they were replaced. No record is current then.
  [[nodiscard]] int Reopen();
  [[nodiscard]] int MakeFields(const std::vector<FieldDescriptor>& descriptors);
  [[nodiscard]] int WriteStructure();

  [[nodiscard]] int ReadHeader();
  [[nodiscard]] int WriteHeader();
  // Takes `lock` on `length` bytes from 0 of the file that the path names now.
  [[nodiscard]] int LockStart(RangeLock& lock, FileLockType type, int64_t length);
  // Takes `lock` on the current record for writing; fails when the table was replaced.
  [[nodiscard]] int LockCurrentRecord(RangeLock& lock);
  // Reads the header again and writes it with today's date.
  [[nodiscard]] int TouchHeader();
  // Fails when a record at `offset` would leave a gap, or lie over records that do not count.
  [[nodiscard]] int CheckEnd(int64_t offset);
  // Puts mark and field values into record_, storing changed memo texts first.
  [[nodiscard]] int BuildRecord(char mark);

  // Pack, in table_pack.cpp.
  // Does what a pack that died left undone; `memopath` becomes the path of the memo file.
  void FinishPack(String& memopath);
  [[nodiscard]] int CheckNoLinks();
  [[nodiscard]] int MakePackFiles(PackFiles& pack);
  [[nodiscard]] int CopyLiveRecords(PackFiles& pack);
  [[nodiscard]] int CopyMemos(char* record, PackFiles& pack);
  [[nodiscard]] int SwapIn(PackFiles& pack);
  void RemovePackFiles();

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
  // The bytes of a record on their way in or out, and one more for the end of file mark.
  std::vector<char> record_;
  String error_;
};

}  // namespace vexa

#endif  // VEXA_XBASE_TABLE_XBASE_TABLE_H_
