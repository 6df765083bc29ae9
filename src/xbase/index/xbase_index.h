// XBaseIndex: an open index of a database. It names the index and passes on the failures of its
// ZDXIndexFile; the key expression is kept as text, for the database to parse and evaluate.
//
// Operations return 1 or true, or else 0 or false with the message in error(). Record numbers are 0
// at either end.

#ifndef VEXA_XBASE_INDEX_XBASE_INDEX_H_
#define VEXA_XBASE_INDEX_XBASE_INDEX_H_

#include <memory>
#include <string_view>

#include "xbase/index/index_file.h"

namespace vexa {

class XBaseIndex {
 public:
  // `files` is borrowed and must outlive the index.
  explicit XBaseIndex(FileManager& files) : files_(files), file_(files) {}

  // Opens the index at `path` for reading and writing, or for reading only when the system does
  // not allow more. `name` is what scripts call it, `errorpath` what messages do.
  [[nodiscard]] int Open(const String& name, const String& path, const String& errorpath);
  // Makes an empty index and opens it; see ZDXIndexFile. `name` is `errorpath`.
  [[nodiscard]] int Create(const String& path, const String& errorpath, const ZDXIndexSpec& spec);
  [[nodiscard]] int Create(std::unique_ptr<File> file, const String& path, const String& errorpath,
                           const ZDXIndexSpec& spec);
  void Close() { file_.Close(); }
  // The file has been renamed to `path`.
  void Renamed(const String& path) {
    SetNames(name_, path, errorpath_);
    file_.Renamed(path);
  }

  [[nodiscard]] int First(uint32_t& recordnum) { return Passed(file_._First(recordnum)); }
  [[nodiscard]] int Last(uint32_t& recordnum) { return Passed(file_._Last(recordnum)); }
  [[nodiscard]] int Next(uint32_t& recordnum) { return Passed(file_._Next(recordnum)); }
  [[nodiscard]] int Prev(uint32_t& recordnum) { return Passed(file_._Prev(recordnum)); }
  // With `exact`, goes to the first entry that is not less than `key`: whether it is equal,
  // CursorEquals tells.
  [[nodiscard]] int Find(std::string_view key, int exact, uint32_t& recordnum) {
    return Passed(file_._Find(key, exact, recordnum));
  }
  [[nodiscard]] int Seek(std::string_view key, uint32_t recordnum, bool& found) {
    return Passed(file_._Seek(key, recordnum, found));
  }
  [[nodiscard]] bool CursorEquals(std::string_view key) const { return file_.CursorEquals(key); }
  [[nodiscard]] String CursorKey() const { return file_.CursorKey(); }

  [[nodiscard]] int Insert(uint32_t recordnum, std::string_view key) {
    return Passed(file_.Insert(recordnum, key));
  }
  [[nodiscard]] int Delete(uint32_t recordnum, std::string_view key) {
    return Passed(file_.Delete(recordnum, key));
  }
  // Returns true, or false with the message of Insert when the index is unique and holds `key` for
  // another record than this.
  [[nodiscard]] bool CheckUnique(std::string_view key, uint32_t recordnum) {
    return Passed(file_.CheckUnique(key, recordnum));
  }

  [[nodiscard]] const String& KeyExpression() const { return file_.keyexpression(); }
  [[nodiscard]] uint32_t Flags() const { return file_.flags(); }
  [[nodiscard]] const ZDXIndexShape& Shape() const { return file_.header().shape; }
  [[nodiscard]] const String& name() const { return name_; }
  [[nodiscard]] const String& filepath() const { return filepath_; }
  // The path without links, by which all who lock several indexes order them.
  [[nodiscard]] const String& realpath();
  [[nodiscard]] const String& errorpath() const { return errorpath_; }
  [[nodiscard]] const String& error() const { return error_; }
  [[nodiscard]] ZDXIndexFile& file() { return file_; }

 private:
  friend class XBaseIndexLock;

  // Keeps the message of a failure.
  bool Passed(bool succeeded) {
    if (!succeeded) error_ = file_.error();
    return succeeded;
  }
  int Passed(int result) { return Passed(result != 0) ? 1 : 0; }
  void SetNames(const String& name, const String& path, const String& errorpath);

  FileManager& files_;
  String name_;
  String filepath_;
  String realpath_;  // empty until it is asked for
  String errorpath_;
  String error_;
  ZDXIndexFile file_;
};

// Holds an index's exclusive lock over several operations, for as long as it lives. A program that
// locks more than one index takes them in one order everywhere, before any lock on the table.
class XBaseIndexLock {
 public:
  XBaseIndexLock() = default;
  ~XBaseIndexLock() { Release(); }
  XBaseIndexLock(XBaseIndexLock&& other) noexcept : index_(other.index_) { other.index_ = nullptr; }
  XBaseIndexLock& operator=(XBaseIndexLock&&) = delete;
  XBaseIndexLock(const XBaseIndexLock&) = delete;
  XBaseIndexLock& operator=(const XBaseIndexLock&) = delete;

  // Waits for the lock. Returns true, or false with the message in index.error().
  // REQUIRES: `index` outlives the lock; no other XBaseIndexLock holds it.
  [[nodiscard]] bool Take(XBaseIndex& index,
                          ZDXIndexFile::Marks marks = ZDXIndexFile::Marks::Refused) {
    Release();
    if (!index.Passed(index.file_.LockExclusive(marks))) return false;
    index_ = &index;
    return true;
  }
  void Release() {
    if (index_ != nullptr) index_->file_.Unlock();
    index_ = nullptr;
  }

 private:
  XBaseIndex* index_ = nullptr;
};

}  // namespace vexa

#endif  // VEXA_XBASE_INDEX_XBASE_INDEX_H_
