// A place in a text being read that reading can go back to.

#ifndef VEXA_CORE_SOURCE_PLACE_H_
#define VEXA_CORE_SOURCE_PLACE_H_

#include <cstdint>

namespace vexa {

// `position` is a byte offset in the file; `expansion_offset` counts the bytes already taken from
// the macro expansion that begins there (0 outside of macros); `line` is the line number at this
// place, from 1.
struct Site;

struct SourcePlace {
  int64_t position = 0;
  int expansion_offset = 0;
  int line = 1;
  // What whoever reads remembers of the text that begins here; null: nothing, or not known. Valid
  // as long as the reader.
  Site* site = nullptr;

  friend bool operator==(const SourcePlace& a, const SourcePlace& b) {
    return a.position == b.position && a.expansion_offset == b.expansion_offset;
  }
};

}  // namespace vexa

#endif  // VEXA_CORE_SOURCE_PLACE_H_
