// The bytes at the start of a table file: its header and field descriptors.
//
//   offset  width  header
//   0       1      version: 0x03, or 0x83 for a table with a memo file
//   1       3      date of the last update: year - 1900, month 1-12, day 1-31 (UTC)
//   4       4      number of records
//   8       2      header length: 32 + 32 * fields + 1
//   10      2      record length: 1 + the sum of the field lengths
//   12      8      written as zero, ignored
//   20      8      the mark of an unfinished change, zero at rest (xbase/change/journal.h)
//   28      1      written as zero, ignored
//   29      1      code page of the texts, kept as its maker wrote it, zero in new tables
//   30      2      written as zero, ignored
//
//   offset  width  descriptor (one a field, from offset 32)
//   0       11     name, padded with zero bytes
//   11      1      type letter: C N D L M
//   12      4      written as zero, ignored
//   16      1      length in bytes
//   17      1      number of decimals
//   18      14     written as zero, ignored
//
// The byte 0x0D ends the header. A table of NAME C(10) and BORN D, updated on 31 December 2000,
// with no record, begins 03 64 0C 1F 00 00 00 00 61 00 13 00: header length 97, record length 19.
//
// No number is believed because it stands in a file: Decode refuses what cannot be.

#ifndef VEXA_XBASE_TABLE_TABLE_HEADER_H_
#define VEXA_XBASE_TABLE_TABLE_HEADER_H_

#include <cstdint>
#include <string_view>
#include <vector>

#include "core/string.h"

namespace vexa {

inline constexpr uint8_t kVersionPlain = 0x03;
inline constexpr uint8_t kVersionWithMemo = 0x83;
inline constexpr int kTableHeaderSize = 32;
inline constexpr int kDescriptorSize = 32;
inline constexpr int kLongestFieldName = 10;
inline constexpr int kLongestRecord = 65535;
inline constexpr int kLongestHeader = 65535;
inline constexpr char kLiveMark = ' ';
inline constexpr char kDeletedMark = '*';
inline constexpr char kEndOfTable = 0x1A;

// In the order of the type letters.
enum class XBaseFieldType { CHAR = 0, NUMBER = 1, DATE = 2, BOOL = 3, MEMO = 4 };
inline constexpr std::string_view kFieldTypeLetters = "CNDLM";

struct TableHeader {
  uint8_t version = kVersionPlain;
  int lastupdate_year = 0;  // years since 1900
  int lastupdate_month = 0;
  int lastupdate_day = 0;
  int numrecords = 0;
  int headerlength = 0;
  int recordlength = 0;
  uint64_t mark = 0;
  uint8_t codepage = 0;

  // Sets the date to today's in UTC.
  void SetToday();
  // The offset of record `n` (from 1).
  [[nodiscard]] int64_t RecordOffset(int n) const {
    return headerlength + static_cast<int64_t>(n - 1) * recordlength;
  }
  [[nodiscard]] int DescriptorCount() const { return (headerlength - 33) / kDescriptorSize; }
  // Writes kTableHeaderSize bytes.
  void Encode(char* to) const;
};

enum class HeaderState { Good, UnsupportedVersion, Damaged };
// Reads kTableHeaderSize bytes; only a Good one is wholly decoded, but the version always is.
[[nodiscard]] HeaderState DecodeTableHeader(const char* from, TableHeader& header);

struct FieldDescriptor {
  String name;
  char letter = 'C';
  int length = 0;
  int decimalcount = 0;

  // Writes kDescriptorSize bytes.
  void Encode(char* to) const;
  friend bool operator==(const FieldDescriptor& a, const FieldDescriptor& b) = default;
};
[[nodiscard]] FieldDescriptor DecodeDescriptor(const char* from);
// The type that a letter names; false for a letter that names none.
[[nodiscard]] bool FieldTypeOfLetter(char letter, XBaseFieldType& type);
// The length that records of these fields have.
[[nodiscard]] int64_t RecordLengthOf(const std::vector<FieldDescriptor>& fields);

}  // namespace vexa

#endif  // VEXA_XBASE_TABLE_TABLE_HEADER_H_
