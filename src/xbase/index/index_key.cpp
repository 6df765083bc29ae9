// Key comparison; see index_key.h.

#include "xbase/index/index_key.h"

#include <cmath>

#include "core/number.h"

namespace vexa {

bool KeyAsNumber(std::string_view key, double& value) {
  // "nan" reads as a number, but has no place among them.
  return ReadStrict(key, &value) && !std::isnan(value);
}

SearchKey::SearchKey(std::string_view key, int exact, uint32_t flags)
    : key_(key), exact_(exact != 0), descending_((flags & kIndexDescending) != 0) {
  if (exact_ && (flags & kIndexString) == 0) is_number_ = KeyAsNumber(key, number_);
}

int SearchKey::CompareAscending(std::string_view pagekey) const {
  if (!exact_) return key_.compare(pagekey.substr(0, key_.size()));
  double other;
  if (!is_number_ || !KeyAsNumber(pagekey, other)) return key_.compare(pagekey);
  return number_ < other ? -1 : number_ > other ? 1 : 0;
}

int SearchKey::Compare(std::string_view pagekey) const {
  const int order = CompareAscending(pagekey);
  return descending_ ? -order : order;
}

}  // namespace vexa
