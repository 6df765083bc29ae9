// LinkRules: whether the operations on a finished path follow links. It is a matter of the root
// that the path was found to lie in; a path that lies in none is the configuration's own, and
// followed.
//
// Roots may lie within each other and have different rules. Then the root does not tell what the
// path was resolved as, so what the sandbox found last in the same directory is noted.

#ifndef VEXA_FILES_LINK_RULES_H_
#define VEXA_FILES_LINK_RULES_H_

#include <array>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/linkless_open.h"

namespace vexa {

class LinkRules {
 public:
  struct Root {
    std::string_view path;  // as held: a prefix, without regard to a "/" behind it; empty: no root
    LinkRule rule = LinkRule::Follow;
  };
  // The roots for scripts, data and temporary files, whose paths must outlive this object.
  using Roots = std::array<Root, 3>;

  void Set(const Roots& roots) { roots_ = roots; }
  [[nodiscard]] LinkRule For(std::string_view path) const;
  // `path` was resolved by `rule`.
  void Note(std::string_view path, LinkRule rule);

 private:
  // The rule of the innermost root. `disputed` says that another root around the path has another.
  [[nodiscard]] LinkRule Innermost(std::string_view path, bool& disputed) const;

  Roots roots_;
  std::vector<std::pair<std::string, LinkRule>> noted_;  // directories of disputed paths
};

}  // namespace vexa

#endif  // VEXA_FILES_LINK_RULES_H_
