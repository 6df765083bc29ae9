// The text functions. The classes are those of the C library in the "C" locale, written out so that
// no locale a loaded library may choose can change what a page prints: bytes above 127 belong to no
// class.

#include "expr/builtins.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>

#include "core/string.h"
#include "core/text.h"

namespace vexa {

namespace {

constexpr bool IsUpper(char c) { return c >= 'A' && c <= 'Z'; }
constexpr bool IsLower(char c) { return c >= 'a' && c <= 'z'; }
constexpr bool IsHexDigit(char c) {
  return IsDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}
constexpr bool IsAlphanumeric(char c) { return IsAlpha(c) || IsDigit(c); }
constexpr bool IsSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
constexpr bool IsPrintable(char c) { return c >= ' ' && c <= '~'; }
constexpr bool IsGraphic(char c) { return c > ' ' && c <= '~'; }
constexpr bool IsPunctuation(char c) { return IsGraphic(c) && !IsAlphanumeric(c); }
constexpr bool IsAscii(char c) { return static_cast<unsigned char>(c) < 128; }

// Whether every character is of the class; an empty text counts as yes.
bool Every(const BuiltinCall& call, bool (*is_member)(char)) {
  return call.ReturnFlag(std::ranges::all_of(call.Text(0).view(), is_member));
}

// The first of the separators in `text`. Mostly there is one, and looking for it is much quicker.
size_t FindSeparator(std::string_view text, std::string_view separators) {
  return separators.size() == 1 ? text.find(separators[0]) : text.find_first_of(separators);
}

}  // namespace

bool BuiltinIsalpha(const BuiltinCall& call) { return Every(call, IsAlpha); }
bool BuiltinIsupper(const BuiltinCall& call) { return Every(call, IsUpper); }
bool BuiltinIslower(const BuiltinCall& call) { return Every(call, IsLower); }
bool BuiltinIsdigit(const BuiltinCall& call) { return Every(call, IsDigit); }
bool BuiltinIsxdigit(const BuiltinCall& call) { return Every(call, IsHexDigit); }
bool BuiltinIsalnum(const BuiltinCall& call) { return Every(call, IsAlphanumeric); }
bool BuiltinIsspace(const BuiltinCall& call) { return Every(call, IsSpace); }
bool BuiltinIspunct(const BuiltinCall& call) { return Every(call, IsPunctuation); }
bool BuiltinIsprint(const BuiltinCall& call) { return Every(call, IsPrintable); }
bool BuiltinIsgraph(const BuiltinCall& call) { return Every(call, IsGraphic); }
bool BuiltinIscntrl(const BuiltinCall& call) { return Every(call, IsControl); }
bool BuiltinIsascii(const BuiltinCall& call) { return Every(call, IsAscii); }

bool BuiltinAsciivalue(const BuiltinCall& call) {
  return call.ReturnInteger(static_cast<unsigned char>(call.Text(0)[0]));
}

bool BuiltinAsciichar(const BuiltinCall& call) {
  const int32_t code = call.Integer(0);
  if (code < 1 || code > 255) return true;
  const char c = static_cast<char>(code);
  return call.Return(std::string_view(&c, 1));
}

bool BuiltinSubstring(const BuiltinCall& call) {
  const std::string_view text = call.LookAtFirst();
  const auto start = static_cast<size_t>(std::max(call.Integer(1), 1)) - 1;
  const int32_t length = call.Integer(2);
  if (length < 1 || start >= text.size()) return true;
  return call.Return(text.substr(start, static_cast<size_t>(length)));
}

bool BuiltinRtrim(const BuiltinCall& call) {
  String& text = call.Text(0);
  size_t length = text.size();
  while (length > 0 && IsWhitespace(text.data()[length - 1])) --length;
  text.Truncate(length);
  return call.Return(std::move(text));
}

bool BuiltinLtrim(const BuiltinCall& call) {
  call.Text(0).ltrim();
  return call.Return(std::move(call.Text(0)));
}

bool BuiltinToupper(const BuiltinCall& call) {
  call.Text(0).upcase();
  return call.Return(std::move(call.Text(0)));
}

bool BuiltinTolower(const BuiltinCall& call) {
  call.Text(0).lowcase();
  return call.Return(std::move(call.Text(0)));
}

bool BuiltinLen(const BuiltinCall& call) { return call.ReturnInteger(call.LookAtFirst().length()); }

bool BuiltinPadl(const BuiltinCall& call) {
  if (call.Text(2).empty()) return call.Return(std::move(call.Text(0)));
  return call.Return(call.Text(0).padl(call.Integer(1), call.Text(2)[0]));
}

bool BuiltinPadr(const BuiltinCall& call) {
  if (call.Text(2).empty()) return call.Return(std::move(call.Text(0)));
  return call.Return(call.Text(0).padr(call.Integer(1), call.Text(2)[0]));
}

bool BuiltinGlosub(const BuiltinCall& call) {
  if (!call.Text(1).empty()) call.Text(0).gsub(call.Text(1), call.Text(2));
  return call.Return(std::move(call.Text(0)));
}

bool BuiltinGettoken(const BuiltinCall& call) {
  std::string_view rest = call.LookAtFirst();
  const std::string_view separators = call.Text(1);
  int32_t tokens_before = call.Integer(2);
  if (tokens_before < 1) return true;
  while (--tokens_before > 0) {
    const size_t end = FindSeparator(rest, separators);
    if (end == std::string_view::npos) return true;
    rest.remove_prefix(end + 1);
  }
  return call.Return(rest.substr(0, FindSeparator(rest, separators)));
}

}  // namespace vexa
