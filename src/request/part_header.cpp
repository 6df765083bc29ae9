// PartHeader: reading header lines.

#include "request/part_header.h"

#include "core/text.h"

namespace vexa {

namespace {

// Takes a parameter's value off the front of `rest`.
String TakeValue(std::string_view& rest) {
  String value;
  if (!rest.starts_with('"')) {
    std::string_view word = rest.substr(0, rest.find(';'));
    rest.remove_prefix(word.size());
    value = Stripped(word);
    return value;
  }
  rest.remove_prefix(1);
  size_t i = 0;
  while (i < rest.size() && rest[i] != '"') {
    if (rest[i] == '\\' && i + 1 < rest.size() && rest[i + 1] == '"') ++i;
    value.cat(rest[i++]);
  }
  rest.remove_prefix(i < rest.size() ? i + 1 : i);
  return value;
}

}  // namespace

bool HeaderParameter(std::string_view header, std::string_view name, String& value) {
  // The value of the header itself comes first, up to the first ";".
  size_t semicolon = header.find(';');
  while (semicolon != header.npos) {
    header.remove_prefix(semicolon + 1);
    size_t end = header.find_first_of("=;");
    if (end != header.npos && header[end] == '=') {
      bool wanted = EqualsIgnoreCase(Stripped(header.substr(0, end)), name);
      header.remove_prefix(end + 1);
      while (!header.empty() && IsWhitespace(header.front())) header.remove_prefix(1);
      String found = TakeValue(header);
      if (wanted) {
        value = std::move(found);
        return true;
      }
    }
    semicolon = header.find(';');
  }
  return false;
}

void PartHeader::Take(std::string_view line) {
  size_t colon = line.find(':');
  if (colon == line.npos) return;
  std::string_view field = Stripped(line.substr(0, colon));
  std::string_view text = line.substr(colon + 1);
  if (EqualsIgnoreCase(field, "Content-Type")) content_type = Stripped(text);
  if (!EqualsIgnoreCase(field, "Content-Disposition")) return;
  has_name = HeaderParameter(text, "name", name);
  is_file = HeaderParameter(text, "filename", filename);
}

}  // namespace vexa
