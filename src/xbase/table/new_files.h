// The files of a table that is being made or packed, beside the places they are to take. What did
// not get there is removed again.

#ifndef VEXA_XBASE_TABLE_NEW_FILES_H_
#define VEXA_XBASE_TABLE_NEW_FILES_H_

#include <memory>
#include <vector>

#include "core/file_access.h"
#include "xbase/table/memo_file.h"
#include "xbase/table/table_header.h"
#include "xbase/table/xbase_table.h"

namespace vexa {

struct XBaseTable::NewFiles {
  explicit NewFiles(FileManager& manager) : files(manager) {}
  ~NewFiles() {
    lock.Release();
    file.reset();
    memo.reset();
    if (!memopath.empty()) (void)files.Delete(memopath);
    if (!datapath.empty()) (void)files.Delete(datapath);
  }
  NewFiles(const NewFiles&) = delete;
  NewFiles& operator=(const NewFiles&) = delete;

  // They have other names now.
  void Installed() {
    memopath.clear();
    datapath.clear();
  }

  FileManager& files;
  uint64_t number = 0;  // of the change, part of the names
  String datapath;      // empty when there is no such file any more
  String memopath;
  std::unique_ptr<File> file;
  std::unique_ptr<MemoFile> memo;  // null for a table without memo fields
  RangeLock lock;                  // on `file`, all of it: nobody reads it before it is complete
  TableHeader header;
  std::vector<int> blocks;  // of the old memo file that records name, in order
};

}  // namespace vexa

#endif  // VEXA_XBASE_TABLE_NEW_FILES_H_
