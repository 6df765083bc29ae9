// XBaseIndexBuilder: makes a whole index at once from the keys of all records.
//
// The keys are sorted once and the pages written in order, leaves first. They go to a new file
// beside the index's path, which takes that name when it is complete: a failed creation leaves no
// file, a failed rebuild leaves the old one, and readers see one or the other.
//
//   XBaseIndexBuilder builder(files, spec);
//   for each record: builder.Add(recordnum, key);
//   if (!builder.Write(path, errorpath) || !builder.Install()) report(builder.error());
//
// Equal keys stand in falling record order, as inserting the records one by one would leave them.

#ifndef VEXA_XBASE_INDEX_INDEX_BUILDER_H_
#define VEXA_XBASE_INDEX_INDEX_BUILDER_H_

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/file.h"
#include "xbase/index/index_file.h"

namespace vexa {

class XBaseIndexBuilder {
 public:
  // `files` is borrowed and must outlive the builder.
  XBaseIndexBuilder(FileManager& files, ZDXIndexSpec spec);
  // Removes the new file unless it was installed.
  ~XBaseIndexBuilder();
  XBaseIndexBuilder(const XBaseIndexBuilder&) = delete;
  XBaseIndexBuilder& operator=(const XBaseIndexBuilder&) = delete;

  // Takes a key. It is cut to what an entry holds, and at a NUL.
  void Add(uint32_t recordnum, std::string_view key);
  // Writes the index to a new file beside `path`. True, or false with the message in error(), which
  // is that of inserting when the index is unique and a key occurs twice.
  [[nodiscard]] bool Write(const String& path, const String& errorpath);
  // The same as a part of change `number`.
  [[nodiscard]] bool Write(const String& path, const String& errorpath, uint64_t number);
  // Puts the new file in the place of `path`. True, or false with the message in error().
  // REQUIRES: Write succeeded; the caller holds the exclusive lock of an index that is open there.
  [[nodiscard]] bool Install();
  // For a change that puts the file in place itself: where it is, and that it is there no more.
  [[nodiscard]] const String& newpath() const { return newpath_; }
  void Installed() { newpath_.clear(); }
  // The file, open for reading and writing, under whatever name it has.
  [[nodiscard]] std::unique_ptr<File> TakeFile() { return std::move(file_); }

  [[nodiscard]] const String& error() const { return error_; }

 private:
  // A key, with its place in `text_`.
  struct Key {
    size_t offset;
    uint32_t length;
    uint32_t recordnum;
    uint64_t head;  // its first 8 bytes, so that most comparisons look no further
    double number;  // its value, when it compares as one
  };
  // One level of the tree: its keys in order, and the pages between and beside them (none for the
  // leaves).
  struct Level {
    std::vector<Key> keys;
    std::vector<uint32_t> children;
  };

  [[nodiscard]] std::string_view Text(const Key& key) const {
    return std::string_view(text_).substr(key.offset, key.length);
  }
  [[nodiscard]] int CompareTexts(const Key& a, const Key& b) const;
  [[nodiscard]] int CompareNumbers(const Key& a, const Key& b) const;
  [[nodiscard]] bool Descending() const { return (spec_.flags & kIndexDescending) != 0; }
  // Brings the keys of one kind into order; `compare` is CompareTexts or CompareNumbers. 0 when the
  // index is unique and a key occurs twice.
  template <typename Compare>
  [[nodiscard]] bool Sort(std::vector<Key>& keys, Compare compare);
  // All keys in order; both kinds are sorted already.
  [[nodiscard]] std::vector<Key> Merged();
  [[nodiscard]] bool WriteTree(File& file, std::vector<Key> keys);
  // Writes the pages of a level from page `number` on; `above` becomes the level above.
  [[nodiscard]] bool WriteLevel(File& file, const Level& level, uint32_t& number, Level& above);
  [[nodiscard]] bool WriteHeader(File& file, const ZDXIndexHeader& header);
  bool Fail(std::string_view action, std::string_view reason);

  FileManager& files_;
  ZDXIndexSpec spec_;
  std::string text_;          // all keys, one behind the other
  std::vector<Key> numbers_;  // keys that compare as numbers
  std::vector<Key> texts_;
  String path_;
  String errorpath_;
  String newpath_;  // empty when there is no new file
  std::unique_ptr<File> file_;
  String error_;
};

}  // namespace vexa

#endif  // VEXA_XBASE_INDEX_INDEX_BUILDER_H_
