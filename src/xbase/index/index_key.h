// How keys compare.
//
// Keys that are both wholly numbers compare as numbers unless the index says otherwise; all other
// pairs compare byte by byte. A mix of both kinds has therefore no consistent order: 10 is below
// "1a", "1a" below 2, and 2 below 10. That is on purpose: existing indexes are ordered so.

#ifndef VEXA_XBASE_INDEX_INDEX_KEY_H_
#define VEXA_XBASE_INDEX_INDEX_KEY_H_

#include <cstdint>
#include <string_view>

#include "xbase/index/index_header.h"

namespace vexa {

// Whether `key` is wholly a number that does not overflow; the empty key is 0.
[[nodiscard]] bool KeyAsNumber(std::string_view key, double& value);

// One key that is compared with many; what can be learnt of it once is.
class SearchKey {
 public:
  // `key` is borrowed. With `exact` 0, keys that begin with it compare equal.
  SearchKey(std::string_view key, int exact, uint32_t flags);

  // Negative, 0 or positive: whether the key comes before `pagekey` in the order of the index.
  [[nodiscard]] int Compare(std::string_view pagekey) const;
  [[nodiscard]] bool is_number() const { return is_number_; }

 private:
  [[nodiscard]] int CompareAscending(std::string_view pagekey) const;

  std::string_view key_;
  bool exact_;
  bool descending_;
  bool is_number_ = false;
  double number_ = 0;
};

}  // namespace vexa

#endif  // VEXA_XBASE_INDEX_INDEX_KEY_H_
