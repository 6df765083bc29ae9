// Encoding and decoding of index headers; see index_header.h.

#include "xbase/index/index_header.h"

#include <algorithm>
#include <cstring>

#include "core/byte_order.h"
#include "xbase/change/journal.h"

namespace vexa {

static_assert(kIndexLockSize == kIndexHeaderSize && kIndexMark == kIndexHeaderSize);

namespace {

constexpr char kIdentifier[] = "ZDXI";
constexpr int kExpressionOffset = 27;

}  // namespace

bool ZDXIndexShape::MakesSense() const {
  // A page holds the header with its mark, at least two keys, and the child page behind its last
  // key.
  return pagesize >= kMarkedIndexHeader && keyrecordsize > kEntryPrefix + 1 && order >= 2 &&
         uint32_t{order} * keyrecordsize + 8 <= pagesize;
}

void ZDXIndexHeader::Encode(char* to) const {
  std::memset(to, 0, kIndexHeaderSize);
  std::memcpy(to, kIdentifier, 4);
  Put8(to + 4, version);
  Put32(to + 5, updatecount);
  Put32(to + 9, numpages);
  Put32(to + 13, startingpage);
  Put16(to + 17, shape.order);
  Put16(to + 19, shape.pagesize);
  Put16(to + 21, shape.keyrecordsize);
  Put32(to + 23, flags);
  std::memcpy(to + kExpressionOffset, keyexpression.data(),
              std::min<size_t>(keyexpression.size(), kLongestKeyExpression));
}

IndexHeaderState DecodeIndexHeader(const char* from, ZDXIndexHeader& header) {
  if (std::memcmp(from, kIdentifier, 4) != 0) return IndexHeaderState::NotAnIndex;
  const uint8_t version = Get8(from + 4);
  if (version > kIndexVersion) return IndexHeaderState::TooNew;
  ZDXIndexShape shape{Get16(from + 17), Get16(from + 19), Get16(from + 21)};
  const uint32_t numpages = Get32(from + 9);
  const uint32_t startingpage = Get32(from + 13);
  if (!shape.MakesSense() || numpages < 2 || startingpage == 0) {
    return IndexHeaderState::NotAnIndex;
  }
  header.version = version;
  header.updatecount = Get32(from + 5);
  header.numpages = numpages;
  header.startingpage = startingpage;
  header.shape = shape;
  header.flags = Get32(from + 23);
  const char* expression = from + kExpressionOffset;
  const std::string_view text(expression, ::strnlen(expression, kLongestKeyExpression + 1));
  if (header.keyexpression != text) header.keyexpression = text;
  return IndexHeaderState::Good;
}

}  // namespace vexa
