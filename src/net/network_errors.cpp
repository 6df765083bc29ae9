// Wording of reasons.

#include "net/network_errors.h"

#include <algorithm>

#include "core/encoding.h"

namespace vexa {

String Shown(std::string_view text) {
  constexpr size_t kMostShown = 200;
  String shown;
  for (const char c : text) {
    if (shown.size() == kMostShown) break;
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= ' ' && byte != 0x7F) shown.cat(c);
  }
  return EntityEncoded(shown);
}

String Quoted(std::string_view text) { return String::Concat({"'", Shown(text), "'"}); }

bool HasLineBreak(std::string_view text) {
  return text.find_first_of(std::string_view("\r\n\0", 3)) != std::string_view::npos;
}

std::string_view Trimmed(std::string_view text) {
  const size_t start = std::min(text.find_first_not_of(" \t"), text.size());
  return text.substr(start, text.find_last_not_of(" \t") + 1 - start);
}

String NotValidFor(std::string_view value, std::string_view attribute) {
  return String::Concat({Quoted(value), " is not a valid value for ", attribute});
}

String NoLineBreaks(std::string_view name) {
  return String::Concat({Shown(name), " must not contain line breaks"});
}

String ServerAnswered(std::string_view line) {
  return String::Concat({"The server answered: ", Shown(line)});
}

}  // namespace vexa
