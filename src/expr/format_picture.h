// Format pictures: the right operand of FMT.
//
// A picture is a sequence of items `[!][count|*]code`; the `!` may also stand behind the count. A
// count repeats its item, `*` repeats it as often as characters of the value are left. Codes:
//
//   #     the next character when it is a digit, "0" in its place when it is not
//   A     the next letter; other characters before it are dropped
//   P     the next character whatever it is
//   p     drops the next character
//   !#    the next character that is not a digit; digits before it are dropped
//   !A    the next character that is not a letter; letters before it are dropped
//   &N;   the character with the decimal code N, 1 to 255; consumes nothing
//   else  the code character itself; consumes nothing
//
// Formatting ends when the value is used up, when the picture ends, or when the result is full.
// '5551234567' under '(3#)&32;3#-4#' is "(555) 123-4567".

#ifndef VEXA_EXPR_FORMAT_PICTURE_H_
#define VEXA_EXPR_FORMAT_PICTURE_H_

#include <cstddef>
#include <string_view>

#include "core/string.h"

namespace vexa {

// The most bytes a value that is formatted may have, and the most its result gets.
inline constexpr size_t kLongestFormatted = 512;

// `value` formatted by `picture`; cut to kLongestFormatted bytes. Nothing is an error: an item
// without a code at the end of the picture is ignored, and an "&" that no number and ";" follow
// stands for itself.
[[nodiscard]] String Format(std::string_view value, std::string_view picture);

}  // namespace vexa

#endif  // VEXA_EXPR_FORMAT_PICTURE_H_
