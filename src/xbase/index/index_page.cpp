// Pages in memory and the path through them; see index_page.h.

#include "xbase/index/index_page.h"

#include <algorithm>
#include <cstring>

#include "core/file_access.h"

namespace vexa {

namespace {

constexpr char kTooManyEntries[] =
    "File is corrupt (the number of entries is larger than the maximum entries possible).";

}  // namespace

size_t ZDXIndexPage::BytesInMemory() const {
  // One entry beyond those that fit, and its child page behind it.
  return std::max<size_t>(shape_.pagesize,
                          4 + (size_t{shape_.EntriesThatFit()} + 2) * shape_.keyrecordsize);
}

void ZDXIndexPage::Clear(uint32_t number, const ZDXIndexShape& shape) {
  Become(number, shape);
  std::fill(bytes_.begin(), bytes_.end(), '\0');
}

void ZDXIndexPage::Become(uint32_t number, const ZDXIndexShape& shape) {
  number_ = number;
  numentries_ = 0;
  cursor = 0;
  epoch = 0;
  shape_ = shape;
  bytes_.resize(BytesInMemory());
}

int ZDXIndexPage::ReadPage(File& file, GatheredWrites* gathered, uint32_t number,
                           const ZDXIndexShape& shape, String& reason) {
  Become(number, shape);
  const bool read = gathered != nullptr
                        ? gathered->Read(file, offset(), bytes_.data(), shape.pagesize, reason)
                        : ReadExactly(file, offset(), bytes_.data(), shape.pagesize, reason);
  if (!read) return 0;
  std::fill(bytes_.begin() + shape.pagesize, bytes_.end(), '\0');
  const uint32_t count = Get32(bytes_.data());
  if (count > shape.EntriesThatFit()) {
    reason = kTooManyEntries;
    return -1;
  }
  numentries_ = count;
  return 1;
}

// Packed, an entry is its first bytes, the length of its key in two bytes, and the key; in front
// stands the number of entries, behind them the last child page.
bool ZDXIndexPage::Pack(const char* bytes, const ZDXIndexShape& shape, std::string& to) {
  const uint32_t count = Get32(bytes);
  const bool fits = 8 + uint64_t{count} * shape.keyrecordsize <= shape.pagesize;
  if (!fits || Get32(bytes + 4) == 0) return false;
  const size_t before = to.size();
  to.resize(before + 8 + size_t{count} * (shape.keyrecordsize + 2));
  char* at = to.data() + before;
  std::memcpy(at, bytes, 4);
  at += 4;
  const char* entry = bytes + 4;
  for (uint32_t i = 0; i < count; ++i, entry += shape.keyrecordsize) {
    const size_t length = ::strnlen(entry + kEntryPrefix, shape.keysize());
    std::memcpy(at, entry, kEntryPrefix);
    Put16(at + kEntryPrefix, static_cast<uint16_t>(length));
    at += kEntryPrefix + 2;
    std::memcpy(at, entry + kEntryPrefix, length);
    at += length;
  }
  std::memcpy(at, entry, 4);
  to.resize(static_cast<size_t>(at + 4 - to.data()));
  return true;
}

void ZDXIndexPage::Unpack(uint32_t number, const ZDXIndexShape& shape, const char* from) {
  Become(number, shape);
  std::fill(bytes_.begin(), bytes_.end(), '\0');
  std::memcpy(bytes_.data(), from, 4);
  numentries_ = Get32(from);
  from += 4;
  for (uint32_t i = 0; i < numentries_; ++i) {
    const size_t length = Get16(from + kEntryPrefix);
    std::memcpy(Entry(i), from, kEntryPrefix);
    from += kEntryPrefix + 2;
    std::memcpy(Entry(i) + kEntryPrefix, from, length);
    from += length;
  }
  std::memcpy(Entry(numentries_), from, 4);
}

int ZDXIndexPage::WritePage(File& file, String& reason) const {
  return WriteExactly(file, offset(), bytes_.data(), shape_.pagesize, reason) ? 1 : 0;
}

std::string_view ZDXIndexPage::key(uint32_t i) const {
  const char* text = Entry(i) + kEntryPrefix;
  return {text, ::strnlen(text, shape_.keysize())};
}

ZDXIndexEntry ZDXIndexPage::entry(uint32_t i) const { return {recordnum(i), key(i)}; }

void ZDXIndexPage::Setnumentries(uint32_t count) {
  numentries_ = count;
  Put32(bytes_.data(), count);
  std::fill(Entry(count) + 4, bytes_.data() + bytes_.size(), '\0');
}

void ZDXIndexPage::Setkey(uint32_t i, std::string_view key) {
  char* to = Entry(i) + kEntryPrefix;
  const size_t length = std::min<size_t>(key.size(), shape_.keysize() - 1);
  std::memset(to, 0, shape_.keysize());
  if (length > 0) std::memcpy(to, key.data(), length);
}

void ZDXIndexPage::Setentry(uint32_t i, const ZDXIndexEntry& entry) {
  Setrecordnum(i, entry.recordnum);
  Setkey(i, entry.key);
}

void ZDXIndexPage::InsertBefore(uint32_t i, uint32_t child, const ZDXIndexEntry& entry) {
  const size_t tail = size_t{numentries_ - i} * shape_.keyrecordsize + 4;
  std::memmove(Entry(i + 1), Entry(i), tail);
  ++numentries_;
  Put32(bytes_.data(), numentries_);
  Setchildpage(i, child);
  Setentry(i, entry);
}

void ZDXIndexPage::Insert(uint32_t i, uint32_t child, const ZDXIndexEntry& entry) {
  const uint32_t left = childpage(i);
  InsertBefore(i, left, entry);
  Setchildpage(i + 1, child);
}

void ZDXIndexPage::Delete(uint32_t i) {
  const size_t tail = size_t{numentries_ - i - 1} * shape_.keyrecordsize + 4;
  std::memmove(Entry(i), Entry(i + 1), tail);
  Setnumentries(numentries_ - 1);
}

bool ZDXIndexPage::SameContent(const ZDXIndexPage& other) const {
  return shape_ == other.shape_ && bytes_ == other.bytes_;
}

ZDXIndexPage& ZDXIndexPageStack::Push() {
  pages_.reserve(kMostLevels);
  if (depth_ == pages_.size()) pages_.emplace_back();
  return pages_[depth_++];
}

bool ZDXIndexPageStack::CheckForRecursion(uint32_t number) const {
  if (depth_ >= kMostLevels) return true;
  for (size_t level = 0; level < depth_; ++level) {
    if (pages_[level].number() == number) return true;
  }
  return false;
}

}  // namespace vexa
