// ZDXIndexPage: one page of an index tree in memory, as the bytes the file holds.
//
//   offset                    width          content
//   0                         4              n, the number of keys
//   4 + i * keyrecordsize     4              child page i: the keys before key i (0 in a leaf)
//   8 + i * keyrecordsize     4              record number of key i
//   12 + i * keyrecordsize    keysize        key i, NUL-terminated
//
// Child page n stands where entry n would begin. Page 1 with the one key "abc" of record 7 begins
// 01 00 00 00, 00 00 00 00, 07 00 00 00, 61 62 63 00. Bytes behind child page n are zero in pages
// that this code writes.
//
// In memory a page has room for one entry more than fits on the disk, so that a page may overflow
// before it is split. Entry numbers are from 0 and not checked: they are at most numentries(),
// which is checked when a page is read.

#ifndef VEXA_XBASE_INDEX_INDEX_PAGE_H_
#define VEXA_XBASE_INDEX_INDEX_PAGE_H_

#include <cassert>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "core/byte_order.h"
#include "core/file.h"
#include "xbase/change/gathered_writes.h"
#include "xbase/index/index_header.h"

namespace vexa {

// What an entry is without its place in the tree.
struct ZDXIndexEntry {
  uint32_t recordnum = 0;
  String key;
};

class ZDXIndexPage {
 public:
  // Makes it the empty page `number`.
  void Clear(uint32_t number, const ZDXIndexShape& shape);
  // Reads page `number`, through `gathered` unless that is null. 1; 0 with the cause in `reason`
  // when the file could not be read; -1 with the whole message in `reason` when the page is
  // damaged, and it is empty then.
  [[nodiscard]] int ReadPage(File& file, GatheredWrites* gathered, uint32_t number,
                             const ZDXIndexShape& shape, String& reason);
  // 1, or 0 with the cause in `reason`.
  [[nodiscard]] int WritePage(File& file, String& reason) const;
  // Appends children, record numbers and keys of a page's bytes to `to`. False when it is a leaf,
  // or damaged.
  [[nodiscard]] static bool Pack(const char* bytes, const ZDXIndexShape& shape, std::string& to);
  // Makes it the page of what Pack appended.
  void Unpack(uint32_t number, const ZDXIndexShape& shape, const char* from);
  // What the file holds of it, and where.
  [[nodiscard]] std::string_view bytes() const { return {bytes_.data(), shape_.pagesize}; }
  [[nodiscard]] int64_t offset() const { return static_cast<int64_t>(number_) * shape_.pagesize; }

  [[nodiscard]] uint32_t number() const { return number_; }
  [[nodiscard]] uint32_t numentries() const { return numentries_; }
  [[nodiscard]] uint32_t childpage(uint32_t i) const { return Get32(Entry(i)); }
  [[nodiscard]] uint32_t recordnum(uint32_t i) const { return Get32(Entry(i) + 4); }
  // Stays valid until the page changes.
  [[nodiscard]] std::string_view key(uint32_t i) const;
  [[nodiscard]] ZDXIndexEntry entry(uint32_t i) const;
  // Also clears everything behind the child page that is now the last.
  void Setnumentries(uint32_t count);
  void Setchildpage(uint32_t i, uint32_t page) { Put32(Entry(i), page); }
  void Setrecordnum(uint32_t i, uint32_t recordnum) { Put32(Entry(i) + 4, recordnum); }
  // Cuts the key to what fits.
  void Setkey(uint32_t i, std::string_view key);
  void Setentry(uint32_t i, const ZDXIndexEntry& entry);

  // Makes `entry` key i with `child` as its right neighbour.
  void Insert(uint32_t i, uint32_t child, const ZDXIndexEntry& entry);
  // Makes `entry` key i with `child` as its left neighbour.
  void InsertBefore(uint32_t i, uint32_t child, const ZDXIndexEntry& entry);
  // Removes key i together with its left neighbour.
  void Delete(uint32_t i);

  // Whether both hold the same bytes.
  [[nodiscard]] bool SameContent(const ZDXIndexPage& other) const;

  // The entry that a walk stands on, or the child that it went down into. Moved by the walk.
  uint32_t cursor = 0;
  // When it was read; see KeptPages. 0 when it need not be what the file holds.
  uint32_t epoch = 0;

 private:
  // Makes it page `number`, with room for its bytes.
  void Become(uint32_t number, const ZDXIndexShape& shape);
  [[nodiscard]] char* Entry(uint32_t i) {
    assert(i <= numentries_ + 1);
    return bytes_.data() + 4 + size_t{i} * shape_.keyrecordsize;
  }
  [[nodiscard]] const char* Entry(uint32_t i) const {
    assert(i <= numentries_ + 1);
    return bytes_.data() + 4 + size_t{i} * shape_.keyrecordsize;
  }
  [[nodiscard]] size_t BytesInMemory() const;

  uint32_t number_ = 0;
  uint32_t numentries_ = 0;
  ZDXIndexShape shape_;
  std::vector<char> bytes_;
};

// ZDXIndexPageStack: the pages from the root (at the bottom, level 0) to the current one. Pages
// that were popped keep their memory for the next walk.
class ZDXIndexPageStack {
 public:
  // Deeper trees do not exist: every level but the last at least doubles the number of pages.
  static constexpr size_t kMostLevels = 64;

  void Clear() { depth_ = 0; }
  // Takes pages off, or puts back those that were popped last.
  void SetDepth(size_t depth) {
    assert(depth <= pages_.size());
    depth_ = depth;
  }
  // A page on top, to be filled by the caller. Pages stay where they are in memory.
  ZDXIndexPage& Push();
  void Pop() {
    assert(depth_ > 0);
    --depth_;
  }
  [[nodiscard]] bool empty() const { return depth_ == 0; }
  [[nodiscard]] size_t depth() const { return depth_; }
  [[nodiscard]] ZDXIndexPage& Top() { return At(depth_ - 1); }
  [[nodiscard]] const ZDXIndexPage& Top() const {
    assert(depth_ > 0);
    return pages_[depth_ - 1];
  }
  [[nodiscard]] ZDXIndexPage& At(size_t level) {
    assert(level < depth_);
    return pages_[level];
  }
  // Whether page `number` is on the stack already, or the tree is deeper than any can be.
  [[nodiscard]] bool CheckForRecursion(uint32_t number) const;

 private:
  std::vector<ZDXIndexPage> pages_;
  size_t depth_ = 0;
};

}  // namespace vexa

#endif  // VEXA_XBASE_INDEX_INDEX_PAGE_H_
