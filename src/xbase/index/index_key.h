// How keys compare.
//
// Unless the index says otherwise, keys that are wholly numbers come first, by value, and all other
// keys behind them, byte by byte. Were 10 and "1a" compared byte by byte, 10 would be below "1a",
// "1a" below 2, and 2 below 10: no order at all, and nothing could be found by going down a tree.

#ifndef VEXA_XBASE_INDEX_INDEX_KEY_H_
#define VEXA_XBASE_INDEX_INDEX_KEY_H_

#include <cstdint>
#include <string_view>

#include "xbase/index/index_header.h"

namespace vexa {

// Whether `key` is wholly a number that does not overflow; the empty key is 0.
[[nodiscard]] bool KeyAsNumber(std::string_view key, double& value);
// Whether a text that begins with `text` could be wholly a number.
[[nodiscard]] bool MayBeginNumber(std::string_view text);

// One key that is compared with many; what can be learnt of it once is.
class SearchKey {
 public:
  // `key` is borrowed. With `exact` 0, keys that begin with it compare equal, numbers excepted.
  SearchKey(std::string_view key, int exact, uint32_t flags);

  // Stands where the numbers begin.
  [[nodiscard]] static SearchKey FirstNumber(uint32_t flags);

  // Negative, 0 or positive: whether the key comes before `pagekey` in the order of the index.
  [[nodiscard]] int Compare(std::string_view pagekey) const;
  [[nodiscard]] bool is_number() const { return is_number_; }

 private:
  [[nodiscard]] int CompareAscending(std::string_view pagekey) const;

  std::string_view key_;
  bool exact_;
  bool descending_;
  bool numbers_;  // whether the index tells numbers from other keys
  bool is_number_ = false;
  bool below_numbers_ = false;
  double number_ = 0;
};

}  // namespace vexa

#endif  // VEXA_XBASE_INDEX_INDEX_KEY_H_
