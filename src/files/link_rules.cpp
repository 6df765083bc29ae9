// The rule for a path; see link_rules.h.

#include "files/link_rules.h"

#include <algorithm>

namespace vexa {

namespace {

std::string_view DirectoryOf(std::string_view path) { return path.substr(0, path.rfind('/') + 1); }

}  // namespace

LinkRule LinkRules::For(std::string_view path) const {
  bool disputed;
  const LinkRule innermost = Innermost(path, disputed);
  if (!disputed || noted_.empty()) return innermost;
  const auto found =
      std::ranges::find(noted_, DirectoryOf(path), &std::pair<std::string, LinkRule>::first);
  return found == noted_.end() ? innermost : found->second;
}

void LinkRules::Note(std::string_view path, LinkRule rule) {
  bool disputed;
  (void)Innermost(path, disputed);
  if (!disputed) return;
  const std::string_view directory = DirectoryOf(path);
  const auto found = std::ranges::find(noted_, directory, &std::pair<std::string, LinkRule>::first);
  if (found == noted_.end()) {
    noted_.emplace_back(directory, rule);
  } else {
    found->second = rule;
  }
}

LinkRule LinkRules::Innermost(std::string_view path, bool& disputed) const {
  const Root* innermost = nullptr;
  disputed = false;
  for (const Root& root : roots_) {
    if (root.path.empty() || !path.starts_with(root.path)) continue;
    if (innermost != nullptr && innermost->rule != root.rule) disputed = true;
    if (innermost == nullptr || root.path.size() > innermost->path.size()) innermost = &root;
  }
  return innermost == nullptr ? LinkRule::Follow : innermost->rule;
}

}  // namespace vexa
