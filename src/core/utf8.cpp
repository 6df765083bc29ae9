// The forms of UTF-8: a character is 1 to 4 bytes, the first says how many.

#include "core/utf8.h"

#include <cassert>

#include "core/text.h"

namespace vexa {

namespace {

uint32_t ByteAt(std::string_view text, size_t i) { return static_cast<unsigned char>(text[i]); }

}  // namespace

size_t Utf8Length(std::string_view text) {
  if (text.empty()) return 0;
  const uint32_t first = ByteAt(text, 0);
  if (first < 0x80) return 1;
  const size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4 || text.size() < length) return 0;
  for (size_t i = 1; i < length; ++i) {
    if ((ByteAt(text, i) & 0xC0) != 0x80) return 0;
  }
  const uint32_t second = ByteAt(text, 1);
  if ((first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F)) return 0;
  if ((first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F)) return 0;
  return length;
}

uint32_t CharacterNumber(std::string_view character) {
  const size_t length = Utf8Length(character);
  assert(length > 0);
  if (length == 1) return ByteAt(character, 0);
  uint32_t number = ByteAt(character, 0) & (0x7FU >> length);
  for (size_t i = 1; i < length; ++i) number = number << 6 | (ByteAt(character, i) & 0x3F);
  return number;
}

void AppendCharacter(String& text, uint32_t number) {
  assert(number < 0x110000 && (number < 0xD800 || number > 0xDFFF));
  if (number < 0x80) return text.Accumulate(static_cast<char>(number));
  const size_t length = number < 0x800 ? 2 : number < 0x10000 ? 3 : 4;
  const uint32_t mark = 0xF00U >> length & 0xFF;  // as many ones as there are bytes
  text.Accumulate(static_cast<char>(mark | number >> (6 * (length - 1))));
  for (size_t i = length - 1; i-- > 0;) {
    text.Accumulate(static_cast<char>(0x80 | (number >> (6 * i) & 0x3F)));
  }
}

bool IsUtf8(std::string_view text) {
  constexpr uint64_t kHighBits = 0x8080808080808080;
  while (!text.empty()) {
    // Most text is ASCII.
    if (text.size() >= 8 && (LoadWord(text.data(), 8) & kHighBits) == 0) {
      text.remove_prefix(8);
      continue;
    }
    const size_t length = Utf8Length(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

String ToUtf8(std::string_view text) {
  if (IsUtf8(text)) return text;
  String converted;
  for (size_t i = 0; i < text.size(); ++i) AppendCharacter(converted, ByteAt(text, i));
  return converted;
}

}  // namespace vexa
