// UTF-8, line ends and transfer encodings.

#include "net/mail_text.h"

#include <algorithm>
#include <cstdint>

#include "core/text.h"

namespace vexa {

namespace {

constexpr size_t kLongestQuotedLine = 76;  // bytes, the mark of a soft line end included
constexpr char kHexDigits[] = "0123456789ABCDEF";

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

namespace {

bool IsUtf8(std::string_view text) {
  while (!text.empty()) {
    const size_t length = Utf8Length(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

}  // namespace

String ToUtf8(std::string_view text) {
  if (IsUtf8(text)) return text;
  String converted;
  for (size_t i = 0; i < text.size(); ++i) {
    const uint32_t byte = ByteAt(text, i);
    if (byte >= 0x80) converted.Accumulate(static_cast<char>(0xC0 | byte >> 6));
    converted.Accumulate(static_cast<char>(byte < 0x80 ? byte : 0x80 | (byte & 0x3F)));
  }
  return converted;
}

String MailLines(std::string_view text) {
  while (!text.empty() && IsWhitespace(text.back())) text.remove_suffix(1);
  // What stands before the first line that is not blank.
  const size_t written = text.find_first_not_of(" \t\r\n");
  const size_t line_end = text.substr(0, written).find_last_of("\r\n");
  if (written != std::string_view::npos && line_end != std::string_view::npos) {
    text.remove_prefix(line_end + 1);
  }
  String lines;
  lines.Reserve(text.size() + text.size() / 32 + 2);
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\r' && text[i] != '\n') {
      lines.Accumulate(text[i]);
      continue;
    }
    lines.Append("\r\n");
    if (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n') ++i;
  }
  lines.Append("\r\n");
  return lines;
}

size_t LongestLine(std::string_view text) {
  size_t longest = 0;
  for (;;) {
    const size_t end = text.find('\n');
    const std::string_view line = text.substr(0, end);
    longest = std::max(longest, line.size() - (line.ends_with('\r') ? 1 : 0));
    if (end == std::string_view::npos) return longest;
    text.remove_prefix(end + 1);
  }
}

String QuotedPrintable(std::string_view text) {
  String out;
  out.Reserve(text.size() + text.size() / 8);
  size_t column = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text.substr(i, 2) == "\r\n") {
      out.Append("\r\n");
      column = 0;
      ++i;
      continue;
    }
    const char c = text[i];
    const bool blank = c == ' ' || c == '\t';
    const bool before_end = i + 1 == text.size() || text.substr(i + 1, 2) == "\r\n";
    const bool as_is = blank ? !before_end : c > ' ' && c <= '~' && c != '=';
    const size_t width = as_is ? 1 : 3;
    // The last byte of a line may take the place of the mark.
    if (column + width + (before_end ? 0 : 1) > kLongestQuotedLine) {
      out.Append("=\r\n");
      column = 0;
    }
    if (as_is) {
      out.Accumulate(c);
    } else {
      const uint32_t byte = ByteAt(text, i);
      const char code[] = {'=', kHexDigits[byte >> 4], kHexDigits[byte & 15]};
      out.Append({code, sizeof code});
    }
    column += width;
  }
  return out;
}

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

}  // namespace vexa
