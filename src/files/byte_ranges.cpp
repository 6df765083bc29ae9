// The account of record locks; see byte_ranges.h.

#include "files/byte_ranges.h"

#include <cstddef>

namespace vexa {

void ByteRanges::Add(const ByteRange& range) {
  Remove(range);
  ranges_.push_back(range);
}

void ByteRanges::Remove(const ByteRange& range) {
  for (size_t i = 0; i < ranges_.size();) {
    ByteRange& held = ranges_[i];
    if (range.end <= held.start || held.end <= range.start) {
      ++i;
      continue;
    }
    const ByteRange behind = {range.end, held.end, held.type};
    held.end = range.start;
    if (held.start < held.end) {
      ++i;
    } else {
      held = ranges_.back();
      ranges_.pop_back();
    }
    // What is left behind does not overlap `range`, so meeting it again changes nothing.
    if (behind.start < behind.end) ranges_.push_back(behind);
  }
}

}  // namespace vexa
