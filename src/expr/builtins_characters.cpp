// Texts taken by their UTF-8 characters, and numbers written for people. A byte that belongs to no
// character counts as one and stays what it is.

#include <wctype.h>

#include <clocale>
#include <utility>

#include "core/late_function.h"
#include "core/text.h"
#include "core/utf8.h"
#include "expr/builtins.h"

namespace vexa {

namespace {

// The bytes that the first `count` characters of `text` take, all of it when it has fewer.
size_t BytesOfCharacters(std::string_view text, int32_t count) {
  size_t bytes = 0;
  for (; count > 0 && bytes < text.size(); --count) bytes += CharacterLength(text.substr(bytes));
  return bytes;
}

bool Chars(const BuiltinCall& call) {
  const std::string_view text = call.LookAtFirst();
  int64_t count = 0;
  for (size_t at = 0; at < text.size(); ++count) at += CharacterLength(text.substr(at));
  return call.ReturnInteger(count);
}

bool Cut(const BuiltinCall& call) {
  std::string_view text = call.LookAtFirst();
  text.remove_prefix(BytesOfCharacters(text, call.Integer(1) - (call.Integer(1) > 0 ? 1 : 0)));
  return call.Return(text.substr(0, BytesOfCharacters(text, call.Integer(2))));
}

using CaseMap = wint_t(wint_t, locale_t);

// The text with each character as `map` gives it in the C library's table of all characters, and
// `ascii` where that is enough or the system has no such table.
String InCase(std::string_view text, CaseMap* (*map)(), char (*ascii)(char)) {
  String result;
  result.Reserve(text.size());
  CaseMap* found = nullptr;
  while (!text.empty()) {
    const size_t length = Utf8Length(text);
    if (length <= 1) {
      result.Accumulate(ascii(text[0]));
    } else {
      static const locale_t all =
          LateFunction<"newlocale", decltype(::newlocale)>()(LC_CTYPE_MASK, "C.UTF-8", locale_t{});
      if (found == nullptr && all != locale_t{}) found = map();
      uint32_t number = CharacterNumber(text);
      if (found != nullptr) number = found(number, all);
      AppendCharacter(result, number);
    }
    text.remove_prefix(std::max<size_t>(length, 1));
  }
  return result;
}

bool Upper(const BuiltinCall& call) {
  return call.Return(InCase(
      call.LookAtFirst(), [] { return LateFunction<"towupper_l", CaseMap>(); }, ToUpper));
}

bool Lower(const BuiltinCall& call) {
  return call.Return(InCase(
      call.LookAtFirst(), [] { return LateFunction<"towlower_l", CaseMap>(); }, ToLower));
}

bool Number(const BuiltinCall& call) {
  constexpr size_t kGroup = 3;
  ScriptValue rounded;
  rounded.SetRounded(call.Real(0), call.Integer(1));
  std::string_view digits = rounded.view();
  String result;
  if (digits.starts_with('-')) {
    result.cat('-');
    digits.remove_prefix(1);
  }
  // Infinite ones and what is no number have no digits.
  size_t whole = 0;
  while (whole < digits.size() && IsDigit(digits[whole])) ++whole;
  for (size_t i = 0; i < whole; ++i) {
    if (i > 0 && (whole - i) % kGroup == 0) result.Append(call.Text(3));
    result.Accumulate(digits[i]);
  }
  digits.remove_prefix(whole);
  if (digits.starts_with('.')) {
    result.Append(call.Text(2));
    digits.remove_prefix(1);
  }
  result.Append(digits);
  return call.Return(std::move(result));
}

}  // namespace

std::span<const LateBuiltin> CharacterBuiltins() {
  static const LateBuiltin rows[] = {
      {"vexa_number", "value, decimals, point, group", Number},
      {"vexa_chars", "text", Chars, kLooksAtFirst},
      {"vexa_cut", "text, from, count", Cut, kLooksAtFirst},
      {"vexa_upper", "text", Upper, kLooksAtFirst},
      {"vexa_lower", "text", Lower, kLooksAtFirst},
  };
  return rows;
}

}  // namespace vexa
