// Writing JSON strings: most bytes are copied.

#include "core/json_text.h"

#include <cstddef>
#include <cstdint>

#include "core/utf8.h"

namespace vexa {

namespace {

void AppendCode(String& out, uint32_t number) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  const char code[] = {'\\',
                       'u',
                       kDigits[number >> 12 & 15],
                       kDigits[number >> 8 & 15],
                       kDigits[number >> 4 & 15],
                       kDigits[number & 15]};
  out.Append({code, sizeof code});
}

// The letter behind a backslash that stands for a control character; 0 when there is none.
char ShortEscape(char c) {
  switch (c) {
    case '\b':
      return 'b';
    case '\f':
      return 'f';
    case '\n':
      return 'n';
    case '\r':
      return 'r';
    case '\t':
      return 't';
    default:
      return '\0';
  }
}

// The inside of a JSON string. The bytes of `coded` and what may end a script element are written
// as codes. REQUIRES: `text` is UTF-8.
void AppendInside(String& out, std::string_view text, std::string_view coded) {
  // The two line ends that JSON allows in its texts and older scripts do not.
  constexpr std::string_view kLineSeparator = "\xE2\x80\xA8";
  constexpr std::string_view kParagraphSeparator = "\xE2\x80\xA9";
  size_t plain = 0;  // from where on nothing was written yet
  const auto flush = [&](size_t end) { out.Append(text.substr(plain, end - plain)); };
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    const auto byte = static_cast<unsigned char>(c);
    size_t length = 1;
    if (byte < ' ' || c == '<' || c == '>' || c == '&' || coded.find(c) != coded.npos) {
      flush(i);
      if (const char letter = ShortEscape(c)) {
        const char pair[] = {'\\', letter};
        out.Append({pair, sizeof pair});
      } else {
        AppendCode(out, byte);
      }
    } else if (c == '"' || c == '\\') {
      flush(i);
      out.Accumulate('\\');
      out.Accumulate(c);
    } else if (text.compare(i, 3, kLineSeparator) == 0 ||
               text.compare(i, 3, kParagraphSeparator) == 0) {
      flush(i);
      AppendCode(out, text[i + 2] == kLineSeparator[2] ? 0x2028 : 0x2029);
      length = 3;
    } else {
      continue;
    }
    i += length - 1;
    plain = i + 1;
  }
  flush(text.size());
}

}  // namespace

String JsonText(std::string_view text) {
  String out;
  out.Reserve(text.size() + 2);
  out.Accumulate('"');
  AppendInside(out, ToUtf8(text), "");
  out.Accumulate('"');
  return out;
}

String ScriptText(std::string_view text) {
  String out;
  out.Reserve(text.size());
  AppendInside(out, ToUtf8(text), "'\"`$");
  return out;
}

}  // namespace vexa
