// Lines on the terminal.

#include "cgi/serve_terminal.h"

#include <unistd.h>

#include <string>

#include "cgi/serve_site.h"
#include "core/text.h"

namespace vexa {

namespace {

constexpr size_t kLongestLine = 4000;  // A pipe takes as much without mixing it with others.

bool IsControl(char c) { return (c >= '\0' && c < ' ') || c == '\x7F'; }

// The control characters from U+0080 on are two bytes in UTF-8.
bool IsControl(char c, char next) {
  return c == '\xC2' && static_cast<unsigned char>(next) >> 5 == 4;
}

void WriteLine(int descriptor, std::string_view text) {
  std::string line(text.substr(0, kLongestLine));
  line.push_back('\n');
  for (size_t i = 0; i + 1 < line.size(); ++i) {
    if (IsControl(line[i]) || IsControl(line[i], line[i + 1])) line[i] = '?';
  }
  (void)!::write(descriptor, line.data(), line.size());
}

}  // namespace

void TellLine(std::string_view text) { WriteLine(STDOUT_FILENO, text); }

// Messages of pages have their place as "FILE: Line N: ", and may have breaks in them.
void TellError(std::string_view name, std::string_view message) {
  constexpr std::string_view kMark = ": Line ", kBreak = "<BR>\n";
  std::string text(message);
  const size_t mark = text.find(kMark);
  const size_t number = mark + kMark.size();
  if (mark != text.npos && number < text.size() && IsDigit(text[number])) {
    text.replace(mark, kMark.size(), ":");
    // Of a page that was asked for by its directory, messages tell the last name alone.
    const std::string_view file(text.data(), mark);
    if (file == kDirectoryPage && name.ends_with("/" + std::string(file))) {
      text.replace(0, mark, name);
    }
  } else {
    text = std::string(name) + ": " + text;
  }
  for (size_t at; (at = text.find(kBreak)) != text.npos;) text.replace(at, kBreak.size(), ". ");
  WriteLine(STDERR_FILENO, text);
}

}  // namespace vexa
