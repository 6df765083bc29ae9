// Validators: what a browser asks of an answer that it has already, wholly or in part: entity tags
// and byte ranges.

#ifndef VEXA_REQUEST_VALIDATORS_H_
#define VEXA_REQUEST_VALIDATORS_H_

#include <cstdint>
#include <string_view>

#include "core/string.h"

namespace vexa {

// The entity tag, with its quotes, that stands for a version that a page names.
[[nodiscard]] String VersionTag(std::string_view version);

// Whether a list of entity tags, as If-None-Match has it, names `tag` (with its quotes) or, with
// "*", any. A tag that the server has marked as compressed or weak counts.
[[nodiscard]] bool NamesTag(std::string_view list, std::string_view tag);

// A part of `length` bytes: `count` of them from `first`.
struct ByteSpan {
  int64_t first = 0;
  int64_t count = 0;
};

// What a Range header asks of a file.
enum class RangeKind {
  Whole,    // nothing that is understood, or several parts: the whole file is a good answer
  Part,     // one part of it
  Outside,  // bytes that it does not have
};

// Reads a Range header for a file of `length` bytes; sets `part` where there is one.
[[nodiscard]] RangeKind ReadRange(std::string_view header, int64_t length, ByteSpan& part);

}  // namespace vexa

#endif  // VEXA_REQUEST_VALIDATORS_H_
