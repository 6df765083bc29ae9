// IndexChecker: checks the tree of an index file, and its keys against the table; see
// table_check.h.

#ifndef VEXA_XBASE_CHECK_INDEX_CHECK_H_
#define VEXA_XBASE_CHECK_INDEX_CHECK_H_

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "core/file_access.h"
#include "xbase/check/check_report.h"
#include "xbase/check/record_reader.h"
#include "xbase/index/index_page.h"

namespace vexa {

class IndexChecker {
 public:
  // Both are borrowed.
  IndexChecker(FileManager& files, CheckReport& report) : files_(files), report_(report) {}

  // Opens and locks the index and reads its header. False when there is nothing to check.
  bool Open(const String& path);
  // Walks through the tree. `table` may be null, when the table could not be read.
  void Check(RecordReader* table);
  // Keys found by Check.
  [[nodiscard]] int64_t entries() const { return entries_; }

 private:
  void Walk();
  // Reads page `number` onto the stack; false when it is not worth going on there.
  bool Enter(uint32_t number);
  void CheckShapeOfPage(const ZDXIndexPage& page);
  void CheckEntry(std::string_view key, uint32_t recordnum);
  void CheckOrder(std::string_view key);
  void CheckRecord(std::string_view key, uint32_t recordnum);
  void FindKeyField();
  // The key that the record of the table has. REQUIRES: the record is read, key_field_ is set.
  bool ExpectedKey(String& key);
  void ReportMissing();

  FileManager& files_;
  CheckReport& report_;
  std::unique_ptr<File> file_;
  RangeLock lock_;  // on file_; declared behind it, so given back first
  ZDXIndexHeader header_;
  uint32_t pages_in_file_ = 0;
  std::vector<bool> reached_;  // by page number
  ZDXIndexPageStack stack_;
  size_t leaf_depth_ = 0;  // 0 until the first leaf
  int64_t entries_ = 0;

  RecordReader* table_ = nullptr;
  int key_field_ = -1;       // the field that is the key; -1 when it is an expression
  std::vector<bool> named_;  // by record number
  bool has_last_key_ = false;
  String last_key_;
  int64_t disorder_ = 0;
};

}  // namespace vexa

#endif  // VEXA_XBASE_CHECK_INDEX_CHECK_H_
