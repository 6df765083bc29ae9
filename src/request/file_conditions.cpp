// Validators, conditions and ranges of files.

#include "request/file_conditions.h"

#include <algorithm>
#include <charconv>
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

String PrintHTTPDate(time_t time) {
  const tm fields = CalendarTime(time);
  char date[64];
  return std::string_view(date, strftime(date, sizeof date, "%a, %d %b %Y %H:%M:%S GMT", &fields));
}

FileVersion VersionOf(const struct stat& status) {
  char tag[64] = {'"'};
  char* end = tag + 1;
  for (const int64_t number :
       {int64_t{status.st_mtim.tv_sec}, int64_t{status.st_mtim.tv_nsec}, int64_t{status.st_size}}) {
    end = std::to_chars(end, std::end(tag) - 2, number, 36).ptr;
    *end++ = '-';
  }
  end[-1] = '"';
  return {std::string_view(tag, static_cast<size_t>(end - tag)),
          PrintHTTPDate(status.st_mtim.tv_sec)};
}

bool NamesEntityTag(std::string_view if_none_match, std::string_view entity_tag) {
  if (Stripped(if_none_match) == "*") return true;
  for (PieceReader pieces(if_none_match, ","); pieces.Next();) {
    std::string_view tag = Stripped(pieces.piece());
    if (tag.starts_with("W/")) tag.remove_prefix(2);
    if (tag == entity_tag) return true;
  }
  return false;
}

FilePart ChooseFilePart(const FileConditions& conditions, const FileVersion& version,
                        int64_t size) {
  // A date counts only where no tag is asked for.
  const bool unchanged = conditions.if_none_match.empty()
                             ? conditions.if_modified_since == version.last_modified.view()
                             : NamesEntityTag(conditions.if_none_match, version.entity_tag.view());
  if (unchanged) return {304, 0, 0};
  if (!conditions.if_range.empty() && !IsVersion(conditions.if_range, version)) {
    return {200, 0, size};
  }
  return PartOfRange(conditions.range, size);
}

}  // namespace vexa
