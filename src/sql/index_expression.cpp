// Expressions and flags of new indexes; see index_expression.h.

#include "sql/index_expression.h"

#include "core/text.h"

namespace vexa {

namespace {

// The column of that name, or the date whose variable `_raw` it is; -1 when there is none.
int FindColumn(const SqlTable& table, std::string_view name) {
  constexpr std::string_view kRaw = "_raw";
  for (size_t i = 0; i < table.columns.size(); ++i) {
    if (EqualsIgnoreCase(table.columns[i].name, name)) return static_cast<int>(i);
  }
  if (name.size() <= kRaw.size() ||
      !EqualsIgnoreCase(name.substr(name.size() - kRaw.size()), kRaw)) {
    return -1;
  }
  name.remove_suffix(kRaw.size());
  for (size_t i = 0; i < table.columns.size(); ++i) {
    const SqlColumn& column = table.columns[i];
    const bool has_raw = column.kind == SqlKind::Date || column.kind == SqlKind::Time;
    if (has_raw && EqualsIgnoreCase(column.name, name)) return static_cast<int>(i);
  }
  return -1;
}

bool ReadTerm(std::string_view text, const SqlTable& table, SqlTerm& term) {
  const size_t open = text.find('(');
  if (open != text.npos) {
    if (!text.ends_with(')')) return false;
    const std::string_view function = Stripped(text.substr(0, open));
    if (EqualsIgnoreCase(function, "toupper")) {
      term.function = SqlTerm::Function::Upper;
    } else if (EqualsIgnoreCase(function, "tolower")) {
      term.function = SqlTerm::Function::Lower;
    } else {
      return false;
    }
    text = Stripped(text.substr(open + 1, text.size() - open - 2));
  }
  term.column = FindColumn(table, text);
  return term.column >= 0;
}

}  // namespace

bool ReadIndexExpression(std::string_view expression, const SqlTable& table,
                         std::vector<SqlTerm>& terms) {
  expression = Stripped(expression);
  if (expression.size() > 1 && expression.starts_with('\'') && expression.ends_with('\'')) {
    expression = expression.substr(1, expression.size() - 2);
  }
  for (;;) {
    const size_t end = expression.find_first_of("$,");
    SqlTerm term;
    if (!ReadTerm(Stripped(expression.substr(0, end)), table, term)) return false;
    terms.push_back(term);
    if (end == expression.npos) return true;
    expression.remove_prefix(end + 1);
  }
}

bool ReadIndexFlags(const String& list, SqlIndexFlags& flags, String& message) {
  for (PieceReader pieces(list, ","); pieces.Next();) {
    const std::string_view word = Stripped(pieces.piece());
    if (EqualsIgnoreCase(word, "ascending") || EqualsIgnoreCase(word, "descending")) {
      flags.descending = EqualsIgnoreCase(word, "descending");
    } else if (EqualsIgnoreCase(word, "unique") || EqualsIgnoreCase(word, "nounique")) {
      flags.unique = EqualsIgnoreCase(word, "unique");
    } else if (!word.empty() && !EqualsIgnoreCase(word, "string")) {
      message = String::Concat({"Unknown index flag '", word, "'"});
      return false;
    }
  }
  return true;
}

}  // namespace vexa
