// Line ends and quoted-printable.

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

}  // namespace vexa
