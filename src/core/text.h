// Small questions about bytes and texts that the scanners, tables and readers share. Everything
// here is ASCII, whatever the locale: results must be the same on every server.

#ifndef VEXA_CORE_TEXT_H_
#define VEXA_CORE_TEXT_H_

#include <string_view>

namespace vexa {

[[nodiscard]] constexpr bool IsWhitespace(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}
[[nodiscard]] constexpr bool IsDigit(char c) { return c >= '0' && c <= '9'; }
[[nodiscard]] constexpr bool IsAlpha(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
[[nodiscard]] constexpr char ToUpper(char c) {
  return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}
[[nodiscard]] constexpr char ToLower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// Orders as strcasecmp does, over the whole lengths: negative, 0 or positive.
[[nodiscard]] int CompareIgnoreCase(std::string_view a, std::string_view b);
[[nodiscard]] bool EqualsIgnoreCase(std::string_view a, std::string_view b);
// Whether `part` is a leading part of `keyword`, letter case ignored. The empty text is one.
[[nodiscard]] bool IsLeadingPart(std::string_view part, std::string_view keyword);
// `text` without white space at both ends; a view into `text`.
[[nodiscard]] std::string_view Stripped(std::string_view text);

}  // namespace vexa

#endif  // VEXA_CORE_TEXT_H_
