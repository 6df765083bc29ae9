// Lines on the terminal.

#include "cgi/serve_terminal.h"

#include <unistd.h>

#include <algorithm>
#include <string>

#include "core/text.h"

namespace vexa {

namespace {

constexpr size_t kLongestLine = 4000;  // A pipe takes as much without mixing it with others.

void WriteLine(int descriptor, std::string_view text) {
  std::string line(text.substr(0, kLongestLine));
  std::replace_if(
      line.begin(), line.end(), [](char c) { return (c >= '\0' && c < ' ') || c == '\x7F'; }, '?');
  line.push_back('\n');
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
  } else {
    text = std::string(name) + ": " + text;
  }
  for (size_t at; (at = text.find(kBreak)) != text.npos;) text.replace(at, kBreak.size(), ". ");
  WriteLine(STDERR_FILENO, text);
}

}  // namespace vexa
