// RecordReader: reads the records of a table in whatever order, as bytes, while it holds the whole
// table under a shared lock. For the checker, which must see all of a table at one moment.
//
// Operations return true; false with the message in error().

#ifndef VEXA_XBASE_CHECK_RECORD_READER_H_
#define VEXA_XBASE_CHECK_RECORD_READER_H_

#include <memory>
#include <string_view>
#include <vector>

#include "core/file_access.h"
#include "xbase/table/memo_file.h"
#include "xbase/table/table_header.h"

namespace vexa {

class RecordReader {
 public:
  // `files` is borrowed and must outlive the reader.
  explicit RecordReader(FileManager& files) : files_(files) {}

  // Opens and locks the table and its memo file, and reads the header.
  [[nodiscard]] bool Open(const String& path);
  // Records that count and are wholly in the file.
  [[nodiscard]] int RecordsInFile();
  // Reads record `n`, from 1.
  [[nodiscard]] bool Read(int n);
  // Of the record last read: its deletion mark, and the bytes of a field.
  [[nodiscard]] char mark() const { return record_[0]; }
  [[nodiscard]] std::string_view Bytes(size_t field) const {
    return {record_.data() + offsets_[field], static_cast<size_t>(fields_[field].length)};
  }

  [[nodiscard]] const TableHeader& header() const { return header_; }
  [[nodiscard]] const std::vector<FieldDescriptor>& fields() const { return fields_; }
  [[nodiscard]] File& file() { return *file_; }
  // Null for a table without memo fields.
  [[nodiscard]] MemoFile* memo() { return memo_.get(); }
  [[nodiscard]] const String& error() const { return error_; }

 private:
  bool Fail(std::string_view text);
  [[nodiscard]] bool ReadDescriptors();
  [[nodiscard]] bool OpenMemo(const String& path);

  FileManager& files_;
  std::unique_ptr<File> file_;
  std::unique_ptr<MemoFile> memo_;
  RangeLock lock_;  // on file_; declared behind it, so given back first
  TableHeader header_;
  std::vector<FieldDescriptor> fields_;
  std::vector<size_t> offsets_;  // of each field in the record
  std::vector<char> record_;
  String error_;
};

}  // namespace vexa

#endif  // VEXA_XBASE_CHECK_RECORD_READER_H_
