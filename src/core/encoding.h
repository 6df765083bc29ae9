// The encodings of texts in URLs, attributes and HTML. Each rewrites its text in place.

#ifndef VEXA_CORE_ENCODING_H_
#define VEXA_CORE_ENCODING_H_

#include <cstddef>
#include <string_view>

#include "core/string.h"

namespace vexa {

// Which encoding a macro's value gets.
enum class MacroEncoding { None = 0, Attribute = 1, Entities = 2, Json = 3, Script = 4 };

// URL encoding: a space becomes "+"; punctuation with a meaning in URLs and bytes above 127 become
// "%" and two upper-case hexadecimal digits. Control characters are copied on purpose: texts that
// carry line breaks through hidden fields depend on it.
void EncodeAttribute(String& text);
// The reverse. A "%" always takes the two characters after it, hexadecimal digits or not; with
// fewer than two left it is copied as it stands.
void DecodeAttribute(String& text);
// The same for a text that arrives in pieces: decodes what stands behind its first `from` bytes; an
// end that the next piece may complete is left as it is. Returns how many bytes are decoded now.
enum class Arrived { Piece, Last };
size_t DecodeArrived(String& text, size_t from, Arrived arrived);
// Double quote, ampersand, less-than and greater-than become entities.
void EncodeEntities(String& text);
// The reverse, names in any letter case. An unknown entity loses its "&" and ";"; an "&" without
// ";" is copied as it stands.
void DecodeEntities(String& text);
// `text` with its markup characters as entities, for error messages that quote a request.
[[nodiscard]] String EntityEncoded(std::string_view text);
// What a message shows of a text from anywhere: without control characters, its first 200 bytes, as
// entities.
[[nodiscard]] String ShownInMessage(std::string_view text);
// `text` as one part of a URL: every byte but letters, digits, `-`, `_`, `.` and `~` becomes "%"
// and two upper-case hexadecimal digits.
[[nodiscard]] String URLPart(std::string_view text);
// The reverse: "%" and two hexadecimal digits become their byte, all else is copied.
[[nodiscard]] String DecodedURLPart(std::string_view text);
// Appends a byte as "%" and two upper-case hexadecimal digits.
void AppendPercentCode(String& text, char byte);

}  // namespace vexa

#endif  // VEXA_CORE_ENCODING_H_
