// Reading the key expression of a new index: for SQL databases it names columns.
//
//   toupper(name) $ born        'toupper(name), born_raw'
//
// A list with commas is no expression: it stands in single quotes, as a text.

#ifndef VEXA_SQL_INDEX_EXPRESSION_H_
#define VEXA_SQL_INDEX_EXPRESSION_H_

#include <string_view>
#include <vector>

#include "core/string.h"
#include "sql/drivers/sql_table.h"

namespace vexa {

// Appends the terms that `expression` names. False when it is anything else than columns of
// `table`, with `toupper` or `tolower` around, joined by `$` or commas.
[[nodiscard]] bool ReadIndexExpression(std::string_view expression, const SqlTable& table,
                                       std::vector<SqlTerm>& terms);

// The flags of a new index: "ascending", "descending", "unique", "nounique", "string". False with
// `message` set, which is no HTML.
struct SqlIndexFlags {
  bool descending = false;
  bool unique = false;
};
[[nodiscard]] bool ReadIndexFlags(const String& list, SqlIndexFlags& flags, String& message);

}  // namespace vexa

#endif  // VEXA_SQL_INDEX_EXPRESSION_H_
