// Comparisons of texts without regard to letter case, and stripping.

#include "core/text.h"

#include <algorithm>

namespace vexa {

int CompareIgnoreCase(std::string_view a, std::string_view b) {
  size_t common = std::min(a.size(), b.size());
  for (size_t i = 0; i < common; ++i) {
    int difference =
        static_cast<unsigned char>(ToLower(a[i])) - static_cast<unsigned char>(ToLower(b[i]));
    if (difference != 0) return difference;
  }
  if (a.size() == b.size()) return 0;
  return a.size() < b.size() ? -1 : 1;
}

bool IsLeadingPart(std::string_view part, std::string_view keyword) {
  return part.size() <= keyword.size() && EqualsIgnoreCase(part, keyword.substr(0, part.size()));
}

std::string_view Stripped(std::string_view text) {
  while (!text.empty() && IsWhitespace(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsWhitespace(text.back())) text.remove_suffix(1);
  return text;
}

}  // namespace vexa
