// Replacing tokens in text.

#include "tags/token_filter.h"

#include <algorithm>
#include <utility>

#include "core/text.h"

namespace vexa {

namespace {

bool HoldsWhitespace(std::string_view text) {
  return std::any_of(text.begin(), text.end(), IsWhitespace);
}

void Append(String& out, std::string_view text) {
  out.Reserve(out.size() + text.size());
  out.cat(text);
}

}  // namespace

void TokenFilter::Add(std::string_view text, String& out) {
  String joined;
  if (!pending_.empty()) {
    joined = String::Concat({std::exchange(pending_, String()), text});
    text = joined;
  }
  for (;;) {
    const size_t start = text.find('%');
    Append(out, text.substr(0, start));
    if (start == std::string_view::npos) return;
    text.remove_prefix(start);
    const size_t end = text.find('%', 1);
    if (end == std::string_view::npos && text.size() <= kLongestName) {
      pending_ = text;
      return;
    }
    if (end == std::string_view::npos) {
      Append(out, text);
      return;
    }
    const std::string_view name = text.substr(1, end - 1);
    Variable* token = tokens_.Find(name);
    if (name.empty()) {
      Append(out, "%");
    } else if (token != nullptr) {
      Append(out, token->value());
    } else if (HoldsWhitespace(name)) {
      // Hardly meant as a token ("5% off, now %price%"): the second sign may begin one.
      Append(out, text.substr(0, end));
      text.remove_prefix(end);
      continue;
    } else {
      Append(out, text.substr(0, end + 1));
    }
    text.remove_prefix(end + 1);
  }
}

void TokenFilter::End(String& out) {
  Append(out, pending_);
  pending_.clear();
}

}  // namespace vexa
