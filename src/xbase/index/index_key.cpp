// Key comparison; see index_key.h.

#include "xbase/index/index_key.h"

#include <cmath>

#include "core/number.h"

namespace vexa {

bool MayBeginNumber(std::string_view text) {
  // White space, signs and the point; "inf" is a number, and so is what begins "0x".
  return text.empty() || std::string_view(" \t\n\v\f\r+-.0123456789iInN").find(text.front()) !=
                             std::string_view::npos;
}

bool KeyAsNumber(std::string_view key, double& value) {
  if (!MayBeginNumber(key)) return false;
  // "nan" reads as a number, but has no place among them.
  return ReadStrict(key, &value) && !std::isnan(value);
}

SearchKey::SearchKey(std::string_view key, int exact, uint32_t flags)
    : key_(key),
      exact_(exact != 0),
      descending_((flags & kIndexDescending) != 0),
      numbers_((flags & kIndexString) == 0) {
  if (exact_ && numbers_) is_number_ = KeyAsNumber(key, number_);
}

SearchKey SearchKey::FirstNumber(uint32_t flags) {
  SearchKey key({}, 0, flags);
  key.below_numbers_ = true;
  return key;
}

int SearchKey::CompareAscending(std::string_view pagekey) const {
  double other;
  const bool other_is_number = numbers_ && KeyAsNumber(pagekey, other);
  if (below_numbers_) return other_is_number ? 0 : -1;
  if (!is_number_) {
    if (other_is_number) return 1;
    return key_.compare(exact_ ? pagekey : pagekey.substr(0, key_.size()));
  }
  if (!other_is_number) return -1;
  return number_ < other ? -1 : number_ > other ? 1 : 0;
}

int SearchKey::Compare(std::string_view pagekey) const {
  const int order = CompareAscending(pagekey);
  return descending_ ? -order : order;
}

}  // namespace vexa
