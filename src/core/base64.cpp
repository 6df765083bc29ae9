// Base64 and hexadecimal digits.

#include "core/base64.h"

#include <algorithm>
#include <cstdint>

#include "core/text.h"

namespace vexa {

namespace {

uint32_t ByteAt(std::string_view text, size_t i) { return static_cast<unsigned char>(text[i]); }

// The value of a hexadecimal digit; -1 for another character.
int HexValue(char c) {
  if (IsDigit(c)) return c - '0';
  c = ToLower(c);
  return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

// The six bits that a character of either alphabet stands for; -1 for another character.
int Base64Value(char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (IsDigit(c)) return c - '0' + 52;
  if (c == '+' || c == '-') return 62;
  return c == '/' || c == '_' ? 63 : -1;
}

}  // namespace

void AppendBase64(String& out, std::string_view bytes, size_t line) {
  static constexpr char kDigits[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  const size_t size = Base64Size(bytes.size());
  out.Reserve(out.size() + size + (line == 0 ? 0 : (size / line + 1) * 2));
  size_t column = 0;
  for (size_t i = 0; i < bytes.size(); i += 3) {
    const size_t count = std::min<size_t>(3, bytes.size() - i);
    uint32_t group = ByteAt(bytes, i) << 16;
    if (count > 1) group |= ByteAt(bytes, i + 1) << 8;
    if (count > 2) group |= ByteAt(bytes, i + 2);
    const char digits[] = {kDigits[group >> 18], kDigits[group >> 12 & 63],
                           count > 1 ? kDigits[group >> 6 & 63] : '=',
                           count > 2 ? kDigits[group & 63] : '='};
    out.Append({digits, sizeof digits});
    column += sizeof digits;
    if (column == line) {
      out.Append("\r\n");
      column = 0;
    }
  }
  if (line != 0 && column != 0) out.Append("\r\n");
}

String AddressBase64(std::string_view bytes) {
  String text;
  AppendBase64(text, bytes, 0);
  while (text.view().ends_with('=')) text.Truncate(text.size() - 1);
  text.gsub("+", "-");
  text.gsub("/", "_");
  return text;
}

bool BytesOfBase64(std::string_view text, String& bytes) {
  bytes.clear();
  bytes.Reserve(text.size() / 4 * 3 + 3);
  uint32_t bits = 0;
  size_t letters = 0;
  size_t fillers = 0;
  for (const char c : text) {
    if (IsWhitespace(c)) continue;
    if (c == '=') {
      ++fillers;
      continue;
    }
    const int value = Base64Value(c);
    if (value < 0 || fillers > 0) return false;
    bits = bits << 6 | static_cast<uint32_t>(value);
    ++letters;
    if (letters % 4 != 1) bytes.cat(static_cast<char>(bits >> (6 - 2 * ((letters - 1) % 4))));
  }
  const size_t over = letters % 4;
  return over != 1 && (fillers == 0 || (over != 0 && fillers == 4 - over));
}

String HexOf(std::string_view bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  String text;
  char* at = text.Overwrite(bytes.size() * 2);
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    *at++ = kDigits[byte >> 4];
    *at++ = kDigits[byte & 15];
  }
  return text;
}

bool BytesOfHex(std::string_view text, String& bytes) {
  if (text.size() % 2 != 0) return false;
  char* at = bytes.Overwrite(text.size() / 2);
  for (size_t i = 0; i < text.size(); i += 2) {
    const int high = HexValue(text[i]);
    const int low = HexValue(text[i + 1]);
    if (high < 0 || low < 0) return false;
    *at++ = static_cast<char>(high << 4 | low);
  }
  return true;
}

}  // namespace vexa
