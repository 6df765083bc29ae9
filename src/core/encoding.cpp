// The four encodings. Each builds the new text only when something has to change.

#include "core/encoding.h"

#include <array>
#include <cstring>
#include <utility>

#include "core/text.h"

namespace vexa {

namespace {

constexpr std::string_view kEscapedPunctuation = "~`!#$%^&()+={}[]|\\:;\"'<>,?/";
static_assert(kEscapedPunctuation.size() == 27);

constexpr std::array<bool, 256> kEscaped = [] {
  std::array<bool, 256> escaped{};
  for (char c : kEscapedPunctuation) escaped[static_cast<unsigned char>(c)] = true;
  for (size_t i = 128; i < 256; ++i) escaped[i] = true;
  return escaped;
}();

// The value of a hexadecimal digit; any other character yields some number, which decoding keeps
// on purpose: a "%" always takes two characters.
int DigitValue(char c) {
  c = ToUpper(c);
  return c >= 'A' ? c - 55 : c - 48;
}

std::string_view EntityOf(char c) {
  switch (c) {
    case '"':
      return "&quot;";
    case '&':
      return "&amp;";
    case '<':
      return "&lt;";
    case '>':
      return "&gt;";
    default:
      return {};
  }
}

}  // namespace

void AppendPercentCode(String& text, char byte) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  const auto value = static_cast<unsigned char>(byte);
  const char code[] = {'%', kHex[value >> 4], kHex[value & 15]};
  text.Append(std::string_view(code, sizeof code));
}

void EncodeAttribute(String& text) {
  String result;
  result.Reserve(text.size());
  for (char c : text.view()) {
    if (c == ' ') {
      result.cat('+');
    } else if (kEscaped[static_cast<unsigned char>(c)]) {
      AppendPercentCode(result, c);
    } else {
      result.cat(c);
    }
  }
  text = std::move(result);
}

void DecodeAttribute(String& text) {
  if (!text.contains('%') && !text.contains('+')) return;
  DecodeArrived(text, 0, Arrived::Last);
}

// In place: what is decoded is never longer.
size_t DecodeArrived(String& text, size_t from, Arrived arrived) {
  char* const bytes = text.MutableBytes();
  const size_t size = text.size();
  size_t end = from;
  size_t i = from;
  for (; i < size; ++i) {
    char c = bytes[i];
    if (c == '%' && size - i > 2) {
      c = static_cast<char>(DigitValue(bytes[i + 1]) * 16 + DigitValue(bytes[i + 2]));
      i += 2;
    } else if (c == '%' && arrived == Arrived::Piece) {
      break;
    } else if (c == '+') {
      c = ' ';
    }
    bytes[end++] = c;
  }
  std::memmove(bytes + end, bytes + i, size - i);
  text.Truncate(end + size - i);
  return end;
}

void EncodeEntities(String& text) {
  if (text.view().find_first_of("\"&<>") == std::string_view::npos) return;
  text = EntityEncoded(text);
}

String EntityEncoded(std::string_view text) {
  String result;
  result.Reserve(text.size());
  for (char c : text) {
    std::string_view entity = EntityOf(c);
    if (entity.empty()) {
      result.Accumulate(c);
    } else {
      result.Append(entity);
    }
  }
  return result;
}

void DecodeEntities(String& text) {
  static constexpr std::pair<std::string_view, char> kEntities[] = {
      {"quot", '"'}, {"amp", '&'}, {"lt", '<'}, {"gt", '>'}};
  if (!text.contains('&')) return;
  std::string_view from = text;
  String result;
  result.Reserve(from.size());
  for (size_t i = 0; i < from.size(); ++i) {
    size_t end = from[i] == '&' ? from.find(';', i) : std::string_view::npos;
    if (end == std::string_view::npos) {
      // Also an "&" with no ";" behind it anywhere: the rest is copied as it stands.
      if (from[i] == '&') {
        result.cat(from.substr(i));
        break;
      }
      result.cat(from[i]);
      continue;
    }
    std::string_view name = from.substr(i + 1, end - i - 1);
    bool known = false;
    for (const auto& [entity, c] : kEntities) {
      if (!EqualsIgnoreCase(name, entity)) continue;
      result.cat(c);
      known = true;
    }
    // An unknown entity loses its "&" and ";" on purpose; pages rely on the bare name.
    if (!known) result.cat(name);
    i = end;
  }
  text = std::move(result);
}

String ShownInMessage(std::string_view text) {
  constexpr size_t kMostShown = 200;
  String clean;
  for (size_t i = 0; i < text.size() && clean.size() < kMostShown; ++i) {
    if (!IsControl(text[i])) clean.Accumulate(text[i]);
  }
  return EntityEncoded(clean);
}

String URLPart(std::string_view text) {
  String result;
  result.Reserve(text.size());
  for (char c : text) {
    if (IsAlpha(c) || IsDigit(c) || c == '-' || c == '_' || c == '.' || c == '~') {
      result.Accumulate(c);
    } else {
      AppendPercentCode(result, c);
    }
  }
  return result;
}

String DecodedURLPart(std::string_view text) {
  constexpr auto is_hex = [](char c) {
    return IsDigit(c) || (ToUpper(c) >= 'A' && ToUpper(c) <= 'F');
  };
  String result;
  result.Reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && text.size() - i > 2 && is_hex(text[i + 1]) && is_hex(text[i + 2])) {
      result.cat(static_cast<char>(DigitValue(text[i + 1]) * 16 + DigitValue(text[i + 2])));
      i += 2;
    } else {
      result.cat(text[i]);
    }
  }
  return result;
}

}  // namespace vexa
