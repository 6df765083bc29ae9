// Rows of test cases in one text: `LEFT => RIGHT`, several on a line between ` ;; `, as page tests
// write them. White space around the sides does not count; \n, \r and \t stand for those bytes.

#ifndef VEXA_TESTS_UNIT_ROWS_H_
#define VEXA_TESTS_UNIT_ROWS_H_

#include <algorithm>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/string.h"
#include "core/text.h"

namespace vexa {

[[nodiscard]] inline std::vector<std::pair<std::string, std::string>> Rows(std::string_view text) {
  auto side = [](std::string_view written) {
    String bytes(Stripped(written));
    for (auto [mark, byte] : {std::pair{"\\n", "\n"}, {"\\r", "\r"}, {"\\t", "\t"}}) {
      bytes.gsub(mark, byte);
    }
    return std::string(bytes.view());
  };
  std::vector<std::pair<std::string, std::string>> rows;
  while (!(text = Stripped(text)).empty()) {
    const size_t end = std::min({text.size(), text.find('\n'), text.find(" ;; ")});
    const std::string_view row = text.substr(0, end);
    text.remove_prefix(std::min(text.size(), end + (text[end] == '\n' ? 1 : 4)));
    const size_t arrow = row.find("=>");
    if (arrow == row.npos) throw std::invalid_argument("no arrow: " + std::string(row));
    rows.emplace_back(side(row.substr(0, arrow)), side(row.substr(arrow + 2)));
  }
  return rows;
}

}  // namespace vexa

#endif  // VEXA_TESTS_UNIT_ROWS_H_
