// Entity tags and byte ranges, as RFC 9110 writes them.

#include "request/validators.h"

#include <algorithm>

#include "core/number.h"
#include "core/text.h"

namespace vexa {

namespace {

constexpr char kHexDigits[] = "0123456789abcdef";
constexpr size_t kMostDigits = 18;  // fit 64 bits

// A number of a range: digits and nothing else. -1 when there is none.
int64_t ReadPosition(std::string_view text) {
  if (text.empty() || text.size() > kMostDigits) return -1;
  return std::all_of(text.begin(), text.end(), IsDigit) ? ReadInteger64(text) : -1;
}

// Servers that compress an answer mark its tag: "abc" becomes "abc-gzip".
bool IsTag(std::string_view sent, std::string_view tag) {
  if (sent.starts_with("W/")) sent.remove_prefix(2);
  const std::string_view text = tag.substr(0, tag.size() - 1);
  return sent.starts_with(text) && sent.size() > text.size() &&
         (sent.substr(text.size()) == "\"" || sent[text.size()] == '-');
}

}  // namespace

String VersionTag(std::string_view version) {
  uint64_t hash = 0xCBF29CE484222325;  // FNV-1a
  for (char c : version) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3;
  char digits[18] = {'"'};
  for (size_t i = 16; i > 0; --i, hash >>= 4) digits[i] = kHexDigits[hash & 15];
  digits[17] = '"';
  return std::string_view(digits, sizeof digits);
}

bool NamesTag(std::string_view list, std::string_view tag) {
  for (PieceReader tags(list, ","); tags.Next();) {
    const std::string_view sent = Stripped(tags.piece());
    if (sent == "*" || IsTag(sent, tag)) return true;
  }
  return false;
}

RangeKind ReadRange(std::string_view header, int64_t length, ByteSpan& part) {
  constexpr std::string_view kUnit = "bytes=";
  if (!IsLeadingPart(kUnit, header)) return RangeKind::Whole;
  const std::string_view range = Stripped(header.substr(kUnit.size()));
  const size_t dash = range.find('-');
  if (dash == range.npos) return RangeKind::Whole;
  const int64_t first = ReadPosition(range.substr(0, dash));
  const int64_t last = ReadPosition(range.substr(dash + 1));
  const bool open_end = dash + 1 == range.size();
  if (dash == 0) {  // the last bytes, as many as that
    if (last < 0 || (length == 0 && last > 0)) return RangeKind::Whole;
    part.count = std::min(last, length);
    part.first = length - part.count;
    return last == 0 ? RangeKind::Outside : RangeKind::Part;
  }
  if (first < 0 || (!open_end && last < first)) return RangeKind::Whole;
  if (first >= length) return RangeKind::Outside;
  part.first = first;
  part.count = (open_end ? length : std::min(last + 1, length)) - first;
  return RangeKind::Part;
}

}  // namespace vexa
