// The header of an index file: 427 bytes at the start of page 0.
//
//   offset  width  content
//   0       4      "ZDXI"
//   4       1      version, 3
//   5       4      update count: insertions so far
//   9       4      number of pages, page 0 included
//   13      4      root page
//   17      2      order: the largest number of keys a page may keep
//   19      2      page size in bytes
//   21      2      bytes an entry takes: child page, record number, key
//   23      4      flags
//   27      400    text of the key expression, NUL-terminated
//
// Behind it, at 427, stand the eight bytes of the mark of an unfinished change, zero at rest
// (xbase/change/journal.h). They are no part of what is encoded here.
//
// A new index begins 5A 44 58 49 03 00 00 00 00 02 00 00 00 01 00 00 00 08 00 00 04 6C 00: two
// pages, root 1, order 8, pages of 1024 and entries of 108 bytes.

#ifndef VEXA_XBASE_INDEX_INDEX_HEADER_H_
#define VEXA_XBASE_INDEX_INDEX_HEADER_H_

#include <cstdint>

#include "core/string.h"

namespace vexa {

inline constexpr int kIndexHeaderSize = 427;
inline constexpr int kLongestKeyExpression = 399;
inline constexpr uint8_t kIndexVersion = 3;
// Bytes of an entry before its key: child page and record number.
inline constexpr uint32_t kEntryPrefix = 8;

// Flags of an index.
inline constexpr uint32_t kIndexUnique = 1;      // a key may occur once
inline constexpr uint32_t kIndexDescending = 2;  // the highest key comes first
inline constexpr uint32_t kIndexString = 4;      // keys are never compared as numbers

// The sizes that shape a tree. Files are made with these; tests use smaller ones.
struct ZDXIndexShape {
  uint16_t order = 8;
  uint16_t pagesize = 1024;
  uint16_t keyrecordsize = 108;

  // Entries that fit into a page.
  [[nodiscard]] uint32_t EntriesThatFit() const { return (pagesize - 4u) / keyrecordsize; }
  // Bytes for a key and its terminating NUL.
  [[nodiscard]] uint32_t keysize() const { return keyrecordsize - kEntryPrefix; }
  // Whether pages of this shape can hold a tree.
  [[nodiscard]] bool MakesSense() const;
  friend bool operator==(const ZDXIndexShape& a, const ZDXIndexShape& b) = default;
};

struct ZDXIndexHeader {
  uint8_t version = kIndexVersion;
  uint32_t updatecount = 0;
  uint32_t numpages = 2;
  uint32_t startingpage = 1;
  ZDXIndexShape shape;
  uint32_t flags = 0;
  String keyexpression;

  // Writes kIndexHeaderSize bytes.
  void Encode(char* to) const;
};

enum class IndexHeaderState { Good, NotAnIndex, TooNew };
// Reads kIndexHeaderSize bytes; only a Good header is decoded.
[[nodiscard]] IndexHeaderState DecodeIndexHeader(const char* from, ZDXIndexHeader& header);

}  // namespace vexa

#endif  // VEXA_XBASE_INDEX_INDEX_HEADER_H_
