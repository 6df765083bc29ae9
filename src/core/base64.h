// Bytes written as letters and digits: base64 in its two alphabets, and hexadecimal digits.

#ifndef VEXA_CORE_BASE64_H_
#define VEXA_CORE_BASE64_H_

#include <cstddef>
#include <string_view>

#include "core/string.h"

namespace vexa {

// Appends bytes as base64, with "+", "/" and "=". `line` is the length of a line, a multiple of 4,
// each ended by CR LF; 0: no lines.
void AppendBase64(String& out, std::string_view bytes, size_t line);
[[nodiscard]] constexpr size_t Base64Size(size_t bytes) { return (bytes + 2) / 3 * 4; }
// Bytes as base64 for addresses and cookies: with "-" and "_" and without "=".
[[nodiscard]] String AddressBase64(std::string_view bytes);
// Reads either, with or without "=" at the end, and skips white space. False, with `bytes`
// unspecified, when the text is neither.
[[nodiscard]] bool BytesOfBase64(std::string_view text, String& bytes);

// Two lower-case hexadecimal digits for each byte, and back from digits of either case. False, with
// `bytes` unspecified, when the text is something else.
[[nodiscard]] String HexOf(std::string_view bytes);
[[nodiscard]] bool BytesOfHex(std::string_view text, String& bytes);

}  // namespace vexa

#endif  // VEXA_CORE_BASE64_H_
