// TokenFilter: replaces tokens in text. A name between two percent signs becomes the value of the
// token; two percent signs in a row become one.
//
// Text arrives in pieces that may cut a token anywhere, so what begins with a percent sign is kept
// back until it is clear what it is. No token reaches over the end of a line or into a tag.

#ifndef VEXA_TAGS_TOKEN_FILTER_H_
#define VEXA_TAGS_TOKEN_FILTER_H_

#include <cstddef>
#include <string_view>

#include "core/string.h"
#include "core/variables.h"
#include "engine/text_filter.h"

namespace vexa {

class TokenFilter final : public TextFilter {
 public:
  // Longer names than this are not looked for, so that a lone percent sign keeps little text back.
  static constexpr size_t kLongestName = 1000;

  // `tokens` is borrowed.
  explicit TokenFilter(VariableTree& tokens) : tokens_(tokens) {}

  void Add(std::string_view text, String& out) override;
  void End(String& out) override;

 private:
  VariableTree& tokens_;
  String pending_;  // begins with a percent sign, when there is any
};

}  // namespace vexa

#endif  // VEXA_TAGS_TOKEN_FILTER_H_
