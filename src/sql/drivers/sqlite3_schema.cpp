// What tables and indexes of a file hold; see sqlite3_driver.h.
//
// The engine tells most of it through its own questions. Only the text of an expression in an index
// is nowhere but in the statement that made the index, and is taken from there.

#include <algorithm>

#include "core/number.h"
#include "core/text.h"
#include "sql/drivers/sql_text.h"
#include "sql/drivers/sqlite3_driver.h"

namespace vexa {

namespace {

// The names under which a row number may be reached.
constexpr char kRowNumbers[][8] = {"rowid", "_rowid_", "oid"};

// --- Declared types --------------------------------------------------------------------------

struct KnownType {
  char name[12];
  SqlKind kind;
};
// By the whole name.
constexpr KnownType kTypes[] = {{"DATE", SqlKind::Date},       {"DATETIME", SqlKind::Time},
                                {"TIMESTAMP", SqlKind::Time},  {"BOOL", SqlKind::Boolean},
                                {"BOOLEAN", SqlKind::Boolean}, {"", SqlKind::Other}};
// By a part of it, in this order: how the engine itself reads what is declared.
constexpr KnownType kAffinities[] = {{"INT", SqlKind::Integer}, {"CHAR", SqlKind::Text},
                                     {"CLOB", SqlKind::Text},   {"TEXT", SqlKind::Text},
                                     {"BLOB", SqlKind::Bytes},  {"REAL", SqlKind::Number},
                                     {"FLOA", SqlKind::Number}, {"DOUB", SqlKind::Number}};

SqlKind KindOf(std::string_view type) {
  const std::string_view name = Stripped(type.substr(0, type.find('(')));
  for (const KnownType& known : kTypes) {
    if (EqualsIgnoreCase(known.name, name)) return known.kind;
  }
  const String upper = String(type).upper();
  for (const KnownType& known : kAffinities) {
    if (upper.contains(known.name)) return known.kind;
  }
  return SqlKind::Number;
}

// --- The text of an index --------------------------------------------------------------------

// Cuts a statement into words, quoted names, and single characters.
class Words {
 public:
  explicit Words(std::string_view text) : rest_(text) {}
  // Moves to the next; false at the end. Comments and blanks are passed over.
  bool Next() {
    rest_ = Stripped(rest_);
    while (rest_.starts_with("--") || rest_.starts_with("/*")) {
      const bool line = rest_.starts_with("--");
      const size_t end = rest_.find(line ? "\n" : "*/", 2);
      rest_ = end == rest_.npos ? "" : Stripped(rest_.substr(end + (line ? 1 : 2)));
    }
    quoted_ = false;
    if (rest_.empty()) return false;
    const char first = rest_[0];
    if (first == '"' || first == '`' || first == '\'' || first == '[') return Quoted(first);
    size_t length = 0;
    while (length < rest_.size() && IsNamePart(rest_[length])) ++length;
    Take(std::max<size_t>(length, 1));
    return true;
  }
  [[nodiscard]] const String& word() const { return word_; }
  [[nodiscard]] bool Is(std::string_view keyword) const {
    return !quoted_ && EqualsIgnoreCase(word_, keyword);
  }

 private:
  static bool IsNamePart(char c) {
    return IsAlpha(c) || IsDigit(c) || c == '_' || c == '$' || static_cast<unsigned char>(c) > 127;
  }
  void Take(size_t length) {
    word_ = rest_.substr(0, length);
    rest_.remove_prefix(length);
  }
  bool Quoted(char first) {
    const char last = first == '[' ? ']' : first;
    quoted_ = true;
    word_.clear();
    for (size_t i = 1; i < rest_.size(); ++i) {
      if (rest_[i] != last) {
        word_.cat(rest_[i]);
      } else if (last != ']' && i + 1 < rest_.size() && rest_[i + 1] == last) {
        word_.cat(rest_[i++]);
      } else {
        rest_.remove_prefix(i + 1);
        return true;
      }
    }
    rest_ = {};
    return false;
  }

  std::string_view rest_;
  String word_;
  bool quoted_ = false;
};

// The columns of an index as its statement writes them: each a list of words.
std::vector<std::vector<String>> IndexedTexts(std::string_view statement) {
  Words words(statement);
  std::vector<std::vector<String>> texts;
  while (words.Next() && !words.Is("ON")) {
  }
  while (words.Next() && !words.Is("(")) {
  }
  int depth = 1;
  texts.emplace_back();
  while (depth > 0 && words.Next()) {
    if (words.Is("(")) ++depth;
    if (words.Is(")")) --depth;
    if (depth == 1 && words.Is(",")) {
      texts.emplace_back();
    } else if (depth > 0) {
      texts.back().push_back(words.word());
    }
  }
  return texts;
}

int FindColumn(const SqlTable& table, std::string_view name) {
  for (size_t i = 0; i < table.columns.size(); ++i) {
    if (EqualsIgnoreCase(table.columns[i].name, name)) return static_cast<int>(i);
  }
  return -1;
}

// Whether the words are `upper(column)` or `lower(column)`, and nothing but directions behind it.
bool ReadFunction(const SqlTable& table, const std::vector<String>& words, SqlTerm& term) {
  if (words.size() < 4 || !(words[1] == "(") || !(words[3] == ")")) return false;
  if (EqualsIgnoreCase(words[0], "upper")) {
    term.function = SqlTerm::Function::Upper;
  } else if (EqualsIgnoreCase(words[0], "lower")) {
    term.function = SqlTerm::Function::Lower;
  } else {
    return false;
  }
  term.column = FindColumn(table, words[2]);
  if (term.column < 0) return false;
  for (size_t i = 4; i < words.size(); ++i) {
    if (EqualsIgnoreCase(words[i], "COLLATE")) {
      ++i;
    } else if (!EqualsIgnoreCase(words[i], "ASC") && !EqualsIgnoreCase(words[i], "DESC")) {
      return false;
    }
  }
  return true;
}

}  // namespace

SqlColumn DeclaredColumn(std::string_view name, std::string_view declared) {
  SqlColumn column;
  column.name = name;
  column.type = declared;
  column.kind = KindOf(declared);
  const size_t open = declared.find('(');
  if (open == declared.npos) return column;
  const std::string_view sizes = declared.substr(open + 1);
  const size_t comma = sizes.find(',');
  if (column.kind == SqlKind::Text) column.precision = ReadInteger(sizes);
  if (column.kind == SqlKind::Number) {
    column.precision = ReadInteger(sizes);
    column.decimals = comma == sizes.npos ? 0 : ReadInteger(sizes.substr(comma + 1));
  }
  return column;
}

// --- Tables ----------------------------------------------------------------------------------

bool Sqlite3Driver::DescribeColumns(SqlTable& table, std::vector<int>& key, bool& key_may_be_null,
                                    SqlFault& fault) {
  constexpr int64_t kHiddenColumn = 1;  // of a virtual table: no value of the row
  std::vector<SqlRow> rows;
  if (!Ask("SELECT name,type,dflt_value IS NOT NULL,pk,hidden,\"notnull\""
           " FROM pragma_table_xinfo(?1,'main') ORDER BY cid",
           {SqlValue::Text(table.name)}, rows, fault)) {
    return false;
  }
  std::vector<std::pair<int64_t, int>> places;
  for (const SqlRow& row : rows) {
    if (row[4].integer == kHiddenColumn) continue;
    SqlColumn column = DeclaredColumn(row[0].text, row[1].text);
    column.has_default = row[2].integer != 0;
    column.computed = row[4].integer > kHiddenColumn;
    if (row[3].integer > 0) {
      places.emplace_back(row[3].integer, static_cast<int>(table.columns.size()));
      if (row[5].integer == 0) key_may_be_null = true;
    }
    table.columns.push_back(std::move(column));
  }
  std::sort(places.begin(), places.end());
  for (const auto& [place, column] : places) key.push_back(column);
  return true;
}

bool Sqlite3Driver::DescribeKey(SqlTable& table, const std::vector<int>& key, bool key_may_be_null,
                                SqlFault& fault) {
  for (const int column : key) {
    SqlTerm term;
    term.column = column;
    table.key.push_back(std::move(term));
  }
  std::string_view row_number;
  for (const char* name : kRowNumbers) {
    if (row_number.empty() && FindColumn(table, name) < 0) row_number = name;
  }
  std::vector<SqlRow> rows;
  if (row_number.empty()) return true;
  SqlFault failure;
  if (!Ask(String::Concat({"SELECT ", row_number, " FROM ", table.text, " LIMIT 0"}), {}, rows,
           failure)) {
    // The plain error is that there is no such column; of any other it is not known.
    if (library_->extended_errcode(database_) == SQLITE_ERROR) return true;
    fault = failure;
    return false;
  }
  if (key.size() == 1 &&
      EqualsIgnoreCase(table.columns[static_cast<size_t>(key[0])].type, "INTEGER")) {
    // It is the row number itself, unless there is an index for it.
    if (!Ask("SELECT 1 FROM pragma_index_list(?1,'main') WHERE origin='pk'",
             {SqlValue::Text(table.name)}, rows, fault)) {
      return false;
    }
    if (rows.empty()) {
      table.columns[static_cast<size_t>(key[0])].has_default = true;
      return true;
    }
  }
  // The engine lets keys be NULL that are not declared otherwise: then they do not tell rows apart.
  if (!key.empty() && !key_may_be_null) return true;
  SqlColumn hidden;
  hidden.name = row_number;
  hidden.kind = SqlKind::Integer;
  hidden.hidden = true;
  SqlTerm term;
  term.column = static_cast<int>(table.columns.size());
  table.columns.push_back(std::move(hidden));
  table.key.push_back(std::move(term));
  return true;
}

bool Sqlite3Driver::DescribeTable(const String& name, SqlTable& table, bool& found,
                                  SqlFault& fault) {
  table = {};
  table.name = name;
  table.text = String::Concat({"main.", QuotedName(name)});
  std::vector<SqlRow> rows;
  if (!Ask("SELECT type='table' AND sql NOT LIKE 'CREATE VIRTUAL%' FROM main.sqlite_master"
           " WHERE name=?1 AND type IN ('table','view')",
           {SqlValue::Text(name)}, rows, fault)) {
    return false;
  }
  found = !rows.empty();
  if (!found) return true;
  // Virtual tables do not tell what became of a change.
  const bool has_key = rows[0][0].integer != 0;
  std::vector<int> key;
  bool key_may_be_null = false;
  if (!DescribeColumns(table, key, key_may_be_null, fault)) return false;
  if (!has_key) return true;
  if (!DescribeKey(table, key, key_may_be_null, fault)) return false;
  if (!Ask("SELECT 1 FROM main.sqlite_master WHERE type='trigger' AND tbl_name=?1 COLLATE NOCASE"
           " UNION ALL SELECT 1 FROM temp.sqlite_master WHERE type='trigger'",
           {SqlValue::Text(name)}, rows, fault)) {
    return false;
  }
  table.changes_later = !rows.empty();
  return true;
}

// --- Indexes ---------------------------------------------------------------------------------

bool Sqlite3Driver::DescribeIndex(const SqlTable& table, const String& name, SqlIndex& index,
                                  bool& found, SqlFault& fault) {
  constexpr int64_t kRowNumber = -1;
  index = {};
  index.name = name;
  std::vector<SqlRow> rows;
  if (!Ask("SELECT partial FROM pragma_index_list(?1,'main') WHERE name=?2",
           {SqlValue::Text(table.name), SqlValue::Text(name)}, rows, fault)) {
    return false;
  }
  found = !rows.empty();
  if (!found) return true;
  if (rows[0][0].integer != 0) index.gives_order = false;
  if (!Ask("SELECT sql FROM main.sqlite_master WHERE type='index' AND name=?1",
           {SqlValue::Text(name)}, rows, fault)) {
    return false;
  }
  const auto texts = IndexedTexts(rows.empty() ? std::string_view() : rows[0][0].text.view());
  if (!Ask("SELECT cid,name,\"desc\",coll FROM pragma_index_xinfo(?1,'main') WHERE key ORDER BY "
           "seqno",
           {SqlValue::Text(name)}, rows, fault)) {
    return false;
  }
  for (size_t i = 0; i < rows.size(); ++i) {
    SqlTerm term;
    term.descending = rows[i][2].integer != 0;
    term.nulls_first = !term.descending;
    term.collation = rows[i][3].text;
    if (rows[i][0].integer >= 0) {
      term.column = FindColumn(table, rows[i][1].text);
    } else if (rows[i][0].integer == kRowNumber || i >= texts.size() ||
               !ReadFunction(table, texts[i], term)) {
      term.column = -1;
    }
    if (term.column < 0) index.gives_order = false;
    index.terms.push_back(std::move(term));
  }
  return true;
}

}  // namespace vexa
