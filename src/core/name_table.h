// NameTable: which row of a constant table has a given name, letter case ignored.
//
// The names are told apart by their length and first letter, which hardly ever leaves more than two
// to be compared in full. The table is built by the compiler: nothing is done when the program
// starts. It holds row numbers only; the names stay where the rows are.
//
//   constexpr NameTable kTagNames(kTags, [](const TagRow& row) { return row.name; });
//   int row = kTagNames.Find(kTags, word);   // -1 when there is none
//
// RowName: a name for rows that hold no other address.

#ifndef VEXA_CORE_NAME_TABLE_H_
#define VEXA_CORE_NAME_TABLE_H_

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "core/text.h"

namespace vexa {

// A name of at most `kMost` bytes that stands in its row itself. A view would be an address, which
// every start of the program adjusts.
template <size_t kMost>
class RowName {
 public:
  template <size_t kSize>
  consteval RowName(const char (&text)[kSize]) : length_(kSize - 1) {
    static_assert(kSize - 1 <= kMost);
    std::copy_n(text, kSize - 1, text_);
  }
  constexpr operator std::string_view() const { return {text_, length_}; }

 private:
  char text_[kMost] = {};
  uint8_t length_;
};

template <typename Row, size_t kRows, typename NameOf>
class NameTable {
 public:
  static_assert(kRows < UINT8_MAX);

  // `name_of` gives the name of a row; it must hold nothing. Of two equal names the earlier row is
  // found.
  constexpr NameTable(const std::array<Row, kRows>& rows, NameOf name_of)
      : NameTable(std::span<const Row, kRows>(rows), name_of) {}
  constexpr NameTable(const Row (&rows)[kRows], NameOf name_of)
      : NameTable(std::span<const Row, kRows>(rows), name_of) {}

  // The number of the row of that name, or -1. REQUIRES: the rows that the table was made of.
  [[nodiscard]] constexpr int Find(std::span<const Row, kRows> rows, std::string_view name) const {
    for (size_t next = first_[SlotOf(name)]; next != 0; next = next_[next - 1]) {
      if (EqualsIgnoreCase(NameOf()(rows[next - 1]), name)) return static_cast<int>(next - 1);
    }
    return -1;
  }

 private:
  constexpr NameTable(std::span<const Row, kRows> rows, NameOf name_of) {
    for (size_t i = kRows; i-- > 0;) {
      uint8_t& first = first_[SlotOf(name_of(rows[i]))];
      next_[i] = first;
      first = static_cast<uint8_t>(i + 1);
    }
  }

  // The low five bits of a letter are the same in both cases.
  static constexpr size_t SlotOf(std::string_view name) {
    if (name.empty()) return 0;
    return std::min<size_t>(name.size(), 31) * 32 + (static_cast<unsigned char>(name[0]) & 31);
  }

  std::array<uint8_t, 1024> first_{};  // row number + 1 of the first row of a slot; 0: none
  std::array<uint8_t, kRows> next_{};  // the same for the row that follows in the slot
};

}  // namespace vexa

#endif  // VEXA_CORE_NAME_TABLE_H_
