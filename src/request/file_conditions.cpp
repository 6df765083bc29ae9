// Validators, conditions and ranges of files.

#include "request/file_conditions.h"

#include <algorithm>
#include <charconv>
#include <ctime>
#include <iterator>

#include "core/calendar.h"
#include "core/text.h"

namespace vexa {

namespace {

// Digits alone. One too large for the type counts as the largest number; -1: not a number.
int64_t ReadOffset(std::string_view text) {
  if (text.empty() || !std::all_of(text.begin(), text.end(), IsDigit)) return -1;
  int64_t number = INT64_MAX;
  (void)std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

// "bytes=FIRST-LAST", "bytes=FIRST-" or "bytes=-COUNT" of the end.
FilePart PartOfRange(std::string_view range, int64_t size) {
  const FilePart whole{200, 0, size};
  constexpr std::string_view kUnit = "bytes=";
  if (!EqualsIgnoreCase(range.substr(0, kUnit.size()), kUnit)) return whole;
  range = Stripped(range.substr(kUnit.size()));
  const size_t dash = range.find('-');
  if (dash == range.npos) return whole;
  const std::string_view from = range.substr(0, dash);
  const std::string_view to = range.substr(dash + 1);
  int64_t first = ReadOffset(from);
  int64_t last = to.empty() ? INT64_MAX : ReadOffset(to);
  if (last < 0 || (first < 0 && (!from.empty() || to.empty()))) return whole;
  if (first < 0) {
    if (size == 0 && last > 0) return whole;
    first = last == 0 ? size : std::max<int64_t>(size - last, 0);
    last = INT64_MAX;
  } else if (last < first) {
    return whole;
  }
  if (first >= size) return {416, 0, 0};
  return {206, first, std::min(last, size - 1) - first + 1};
}

// The version that an If-Range asks for, which must be the very one: a tag or a date.
bool IsVersion(std::string_view if_range, const FileVersion& version) {
  return if_range == version.entity_tag.view() || if_range == version.last_modified.view();
}

}  // namespace

FileVersion VersionOf(const FileStamp& stamp) {
  constexpr int64_t kNanoseconds = 1'000'000'000;
  char tag[64] = {'"'};
  char* end = std::to_chars(tag + 1, std::end(tag), stamp.modified, 36).ptr;
  *end++ = '-';
  end = std::to_chars(end, std::end(tag) - 1, stamp.length, 36).ptr;
  *end++ = '"';
  const int64_t seconds = stamp.modified / kNanoseconds;
  // No answer is older than what it says of itself.
  return {std::string_view(tag, static_cast<size_t>(end - tag)),
          HTTPDate(std::min<int64_t>(seconds, std::time(nullptr))), seconds};
}

bool NamesEntityTag(std::string_view if_none_match, std::string_view entity_tag) {
  const std::string_view open_tag = entity_tag.substr(0, entity_tag.size() - 1);
  for (PieceReader pieces(if_none_match, ","); pieces.Next();) {
    std::string_view tag = Stripped(pieces.piece());
    if (tag == "*") return true;
    if (tag.starts_with("W/")) tag.remove_prefix(2);
    if (tag == entity_tag) return true;
    if (tag.starts_with(open_tag) && tag.substr(open_tag.size()).starts_with('-')) return true;
  }
  return false;
}

FilePart ChooseFilePart(const FileConditions& conditions, const FileVersion& version,
                        int64_t size) {
  // A date counts only where no tag is asked for.
  const int64_t known = ReadHTTPDate(conditions.if_modified_since);
  const bool unchanged = conditions.if_none_match.empty()
                             ? known >= 0 && known >= version.modified
                             : NamesEntityTag(conditions.if_none_match, version.entity_tag.view());
  if (unchanged) return {304, 0, 0};
  if (!conditions.if_range.empty() && !IsVersion(conditions.if_range, version)) {
    return {200, 0, size};
  }
  return PartOfRange(conditions.range, size);
}

}  // namespace vexa
