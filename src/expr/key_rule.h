// What the key of an index may call. The expression comes from the index file, which may be
// anybody's work; the page that opens it only wants records in an order. So it computes: what reads
// or changes files, chooses a language, or belongs to one request is refused, in the expression
// itself when the index is opened or made, and in the page's functions that it calls when they are
// carried out. No package is asked.

#ifndef VEXA_EXPR_KEY_RULE_H_
#define VEXA_EXPR_KEY_RULE_H_

#include <string_view>

#include "core/string.h"
#include "expr/expression.h"

namespace vexa {

// The message (HTML) that the key of `index` calls what it may not. `callee` is a name of ours.
[[nodiscard]] String NotInKeyMessage(std::string_view index, std::string_view callee);
// That of the first such call in the key expression of `index`; empty when there is none.
[[nodiscard]] String KeyProblem(std::string_view index, const Expression& key);

}  // namespace vexa

#endif  // VEXA_EXPR_KEY_RULE_H_
