// Encoding and decoding of table headers; see table_header.h.

#include "xbase/table/table_header.h"

#include <algorithm>
#include <cstring>
#include <ctime>

#include "core/byte_order.h"
#include "core/calendar.h"
#include "xbase/change/journal.h"

namespace vexa {

static_assert(kTableHeaderSize == kMarkedTableHeader);

namespace {

constexpr size_t kCodePage = 29;

}  // namespace

void TableHeader::SetToday() {
  const std::tm parts = CalendarTime(std::time(nullptr));
  lastupdate_year = parts.tm_year;
  lastupdate_month = parts.tm_mon + 1;
  lastupdate_day = parts.tm_mday;
}

void TableHeader::Encode(char* to) const {
  std::memset(to, 0, kTableHeaderSize);
  Put8(to, version);
  Put8(to + 1, static_cast<uint8_t>(lastupdate_year & 0xFF));
  Put8(to + 2, static_cast<uint8_t>(lastupdate_month & 0xFF));
  Put8(to + 3, static_cast<uint8_t>(lastupdate_day & 0xFF));
  Put32(to + 4, static_cast<uint32_t>(numrecords));
  Put16(to + 8, static_cast<uint16_t>(headerlength));
  Put16(to + 10, static_cast<uint16_t>(recordlength));
  Put64(to + kTableMark, mark);
  Put8(to + kCodePage, codepage);
}

HeaderState DecodeTableHeader(const char* from, TableHeader& header) {
  header.version = Get8(from);
  if (header.version != kVersionPlain && header.version != kVersionWithMemo) {
    return HeaderState::UnsupportedVersion;
  }
  header.lastupdate_year = Get8(from + 1);
  header.lastupdate_month = Get8(from + 2);
  header.lastupdate_day = Get8(from + 3);
  const uint32_t records = Get32(from + 4);
  header.headerlength = Get16(from + 8);
  header.recordlength = Get16(from + 10);
  if (records > INT32_MAX || header.headerlength < kTableHeaderSize + 1 ||
      header.recordlength < 1) {
    return HeaderState::Damaged;
  }
  header.numrecords = static_cast<int>(records);
  header.mark = Get64(from + kTableMark);
  header.codepage = Get8(from + kCodePage);
  return HeaderState::Good;
}

void FieldDescriptor::Encode(char* to) const {
  std::memset(to, 0, kDescriptorSize);
  std::memcpy(to, name.data(), std::min<size_t>(name.size(), kLongestFieldName));
  to[11] = letter;
  Put8(to + 16, static_cast<uint8_t>(length));
  Put8(to + 17, static_cast<uint8_t>(decimalcount));
}

FieldDescriptor DecodeDescriptor(const char* from) {
  FieldDescriptor field;
  field.name = std::string_view(from, ::strnlen(from, kLongestFieldName + 1));
  field.letter = from[11];
  field.length = Get8(from + 16);
  field.decimalcount = Get8(from + 17);
  return field;
}

bool FieldTypeOfLetter(char letter, XBaseFieldType& type) {
  const size_t place = kFieldTypeLetters.find(letter);
  if (place == std::string_view::npos) return false;
  type = static_cast<XBaseFieldType>(place);
  return true;
}

int64_t RecordLengthOf(const std::vector<FieldDescriptor>& fields) {
  int64_t length = 1;
  for (const FieldDescriptor& field : fields) length += field.length;
  return length;
}

}  // namespace vexa
