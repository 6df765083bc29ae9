// Small questions about bytes and texts that the scanners, tables and readers share. Everything
// here is ASCII, whatever the locale: results must be the same on every server.

#ifndef VEXA_CORE_TEXT_H_
#define VEXA_CORE_TEXT_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <type_traits>

namespace vexa {

[[nodiscard]] constexpr bool IsWhitespace(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}
[[nodiscard]] constexpr bool IsDigit(char c) { return c >= '0' && c <= '9'; }
[[nodiscard]] constexpr bool IsAlpha(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
[[nodiscard]] constexpr bool IsControl(char c) {
  return static_cast<unsigned char>(c) < ' ' || c == '\x7F';
}
[[nodiscard]] constexpr char ToUpper(char c) {
  return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}
[[nodiscard]] constexpr char ToLower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// Orders as strcasecmp does, over the whole lengths: negative, 0 or positive.
[[nodiscard]] int CompareIgnoreCase(std::string_view a, std::string_view b);
[[nodiscard]] constexpr bool EqualsIgnoreCase(std::string_view a, std::string_view b);
// Whether `part` is a leading part of `keyword`, letter case ignored. The empty text is one.
[[nodiscard]] bool IsLeadingPart(std::string_view part, std::string_view keyword);
// `text` without white space at both ends; a view into `text`.
[[nodiscard]] std::string_view Stripped(std::string_view text);

// A few bytes that a text is searched for.
class ByteSet {
 public:
  constexpr explicit ByteSet(std::string_view bytes) {
    for (char c : bytes) holds_[static_cast<unsigned char>(c)] = true;
  }
  [[nodiscard]] constexpr bool Has(char c) const { return holds_[static_cast<unsigned char>(c)]; }
  [[nodiscard]] constexpr bool AnyIn(std::string_view text) const {
    for (char c : text) {
      if (Has(c)) return true;
    }
    return false;
  }

 private:
  std::array<bool, 256> holds_{};
};

// --- Eight bytes at a time -------------------------------------------------------------------

// The first `count` bytes at `text`, at most 8, in the order of memory; zeros behind them.
[[nodiscard]] inline uint64_t LoadWord(const char* text, size_t count) {
  uint64_t word = 0;
  if (count >= 8) {
    std::memcpy(&word, text, 8);
  } else if (count >= 4) {
    uint32_t low, high;  // They may overlap: the bytes they share are equal.
    std::memcpy(&low, text, 4);
    std::memcpy(&high, text + count - 4, 4);
    word = low | static_cast<uint64_t>(high) << ((count - 4) * 8);
  } else if (count > 0) {
    auto byte = [text](size_t i) {
      return uint64_t{static_cast<unsigned char>(text[i])} << (i * 8);
    };
    word = byte(0) | byte(count / 2) | byte(count - 1);
  }
  return word;
}

// The word with every letter in upper case.
[[nodiscard]] constexpr uint64_t UpperWord(uint64_t word) {
  constexpr uint64_t kOnes = 0x0101010101010101;
  const uint64_t low_bits = word & kOnes * 0x7F;
  const uint64_t from_a = low_bits + kOnes * (0x80 - 'a');
  const uint64_t beyond_z = low_bits + kOnes * (0x7F - 'z');
  return word - (((from_a ^ beyond_z) & ~word & kOnes * 0x80) >> 2);
}

constexpr bool EqualsIgnoreCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  if (std::is_constant_evaluated()) {
    for (size_t i = 0; i < a.size(); ++i) {
      if (ToUpper(a[i]) != ToUpper(b[i])) return false;
    }
    return true;
  }
  for (size_t i = 0; i < a.size(); i += 8) {
    const uint64_t x = LoadWord(a.data() + i, a.size() - i);
    const uint64_t y = LoadWord(b.data() + i, a.size() - i);
    if (x != y && UpperWord(x) != UpperWord(y)) return false;
  }
  return true;
}

}  // namespace vexa

#endif  // VEXA_CORE_TEXT_H_
