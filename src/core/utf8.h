// UTF-8: recognising its characters, and making it of what is not.

#ifndef VEXA_CORE_UTF8_H_
#define VEXA_CORE_UTF8_H_

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/string.h"

namespace vexa {

// The bytes of the UTF-8 character that `text` begins with; 0 when it begins with none (overlong
// forms, surrogates and numbers beyond U+10FFFF are none).
[[nodiscard]] size_t Utf8Length(std::string_view text);
// The same where bytes that begin no character count as one each; 0 only for the empty text.
[[nodiscard]] inline size_t CharacterLength(std::string_view text) {
  if (text.empty()) return 0;
  const size_t length = Utf8Length(text);
  return length == 0 ? 1 : length;
}
// The number of the character. REQUIRES: `character` is one, as Utf8Length counts them.
[[nodiscard]] uint32_t CharacterNumber(std::string_view character);
// Appends the character of that number. REQUIRES: it is below 0x110000 and no surrogate.
void AppendCharacter(String& text, uint32_t number);

// Whether the bytes are well-formed UTF-8.
[[nodiscard]] bool IsUtf8(std::string_view text);
// `text` as it stands when it is UTF-8, else taken for ISO-8859-1 and converted whole.
[[nodiscard]] String ToUtf8(std::string_view text);

}  // namespace vexa

#endif  // VEXA_CORE_UTF8_H_
