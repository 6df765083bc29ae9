// Texts of statements for the embedded engine; see sqlite3_driver.h.

#include "core/number.h"
#include "core/text.h"
#include "sql/drivers/sql_text.h"
#include "sql/drivers/sqlite3_driver.h"

namespace vexa {

namespace {

constexpr SqlLexis kLexis = {.backticks = true,
                             .brackets = true,
                             .nested_comments = false,
                             .dollar_quotes = false,
                             .escape_strings = false,
                             .placeholders = "?@$#",
                             .dollar_digits = false};

// The least text behind all that begin with `prefix`; empty when there is none.
String BehindAll(String prefix) {
  constexpr char kLastByte = '\xFF';
  while (prefix.view().ends_with(kLastByte)) prefix = prefix.before(prefix.length() - 1);
  if (prefix.empty()) return prefix;
  const auto last = static_cast<unsigned char>(prefix[prefix.length() - 1]);
  prefix = prefix.before(prefix.length() - 1);
  prefix.cat(static_cast<char>(last + 1));
  return prefix;
}

// Gathers a condition and its parameters.
class ConditionWriter {
 public:
  ConditionWriter(const SqlDriver& driver, size_t first_mark, SqlCondition& condition)
      : driver_(driver), next_mark_(first_mark), condition_(condition) {
    condition_ = {};
  }
  ConditionWriter& Text(std::string_view text) {
    condition_.text.Append(text);
    return *this;
  }
  ConditionWriter& Value(SqlValue value) {
    condition_.parameters.push_back(std::move(value));
    return Text(driver_.Mark(next_mark_++));
  }

 private:
  const SqlDriver& driver_;
  size_t next_mark_;
  SqlCondition& condition_;
};

// A length check counts characters; texts are in the order of their bytes, as the engine has them.
String TypeText(const SqlField& field, bool is_key) {
  const String name = QuotedName(field.name);
  String type = "TEXT";
  switch (field.letter) {
    case 'C':
      type = String::Concat({"CHAR(", PrintInteger(field.length), ") CHECK (length(", name,
                             ")<=", PrintInteger(field.length), ")"});
      break;
    case 'N':
      type = is_key ? String("INTEGER")
                    : String::Concat({"NUMERIC(", PrintInteger(field.length), ",",
                                      PrintInteger(field.decimals), ")"});
      break;
    case 'D':
      type = "DATE";
      break;
    case 'L':
      type = "BOOLEAN";
      break;
    default:
      break;
  }
  if (!is_key) return String::Concat({name, " ", type});
  return String::Concat({name, " ", type, field.letter == 'N' ? "" : " NOT NULL", " PRIMARY KEY"});
}

}  // namespace

const SqlLexis& Sqlite3Driver::lexis() const { return kLexis; }

String Sqlite3Driver::Mark(size_t number) const {
  return String::Concat({"?", PrintInteger(static_cast<int64_t>(number))});
}

String Sqlite3Driver::TermText(const SqlTable& table, const SqlTerm& term) const {
  const SqlColumn& column = table.ColumnOf(term);
  String text = column.hidden ? column.name : QuotedName(column.name);
  if (term.function != SqlTerm::Function::None) {
    text = String::Concat({FoldName(term), "(", text, ")"});
  }
  if (!term.collation.empty()) text.Append(" COLLATE " + QuotedName(term.collation));
  return text;
}

String Sqlite3Driver::ValueText(const SqlTable& /*table*/, const SqlTerm& term,
                                size_t number) const {
  if (term.function == SqlTerm::Function::None) return Mark(number);
  return String::Concat({FoldName(term), "(", Mark(number), ")"});
}

// NULLs stand where the engine puts them by itself, which is where its indexes have them.
String Sqlite3Driver::OrderText(const SqlTable& table, const SqlTerm& term, bool reversed) const {
  return TermText(table, term) + (term.descending == reversed ? "" : " DESC");
}

bool Sqlite3Driver::FindCondition(const SqlTable& table, const SqlTerm& term, const String& value,
                                  bool prefix, size_t first_mark, SqlCondition& condition) const {
  const SqlColumn& column = table.ColumnOf(term);
  const String text = TermText(table, term);
  ConditionWriter writer(*this, first_mark, condition);
  const bool is_text = column.kind == SqlKind::Text || term.function != SqlTerm::Function::None;
  if (is_text && prefix) {
    if (value.empty()) {
      writer.Text("1");
      return true;
    }
    writer.Text("substr(CAST(").Text(text).Text(" AS BLOB),1,length(CAST(");
    writer.Value(SqlValue::Text(value)).Text(" AS BLOB)))=CAST(");
    writer.Value(SqlValue::Text(value)).Text(" AS BLOB)");
    // The order that the engine knows by itself tells where such texts begin and end.
    const bool folded = EqualsIgnoreCase(term.collation, "NOCASE");
    if (!folded && !EqualsIgnoreCase(term.collation, "BINARY")) return true;
    writer.Text(" AND ").Text(text).Text(">=").Value(SqlValue::Text(value));
    const String end = BehindAll(folded ? value.lower() : value);
    if (bytes_order_texts_ && !end.empty()) {
      writer.Text(" AND ").Text(text).Text("<").Value(SqlValue::Text(end));
    }
    return true;
  }
  if (value.empty()) {
    writer.Text("(").Text(text).Text(" IS NULL OR ").Text(text).Text("='')");
    return true;
  }
  SqlValue found;
  int64_t seconds;
  switch (is_text ? SqlKind::Text : column.kind) {
    case SqlKind::Text:
      found = SqlValue::Text(value);
      break;
    case SqlKind::Integer:
    case SqlKind::Number:
      if (!ReadNumber(value, found)) return false;
      break;
    case SqlKind::Boolean: {
      const bool yes = value == "T" || value == "1";
      if (!yes && !(value == "F") && !(value == "0")) return false;
      found = SqlValue::Integer(yes ? 1 : 0);
      break;
    }
    case SqlKind::Date: {
      String raw;
      found = SqlValue::Text(IsoDate(value));
      if (!RawDate(found.text, raw)) return false;
      break;
    }
    case SqlKind::Time:
      if (ReadNumber(value, found)) {
        if (found.kind != SqlValue::Kind::Integer) return false;
        found = SqlValue::Text(IsoTime(found.integer));
        if (found.text.empty()) return false;
      } else if (ReadIsoTime(value, seconds)) {
        found = SqlValue::Text(value);
      } else {
        return false;
      }
      break;
    case SqlKind::Bytes:
      found = SqlValue::Bytes(value);
      break;
    case SqlKind::Other:
      // Without a declared type it may be any of the three.
      writer.Text(text).Text(" IN (").Value(SqlValue::Text(value)).Text(",");
      writer.Value(SqlValue::Bytes(value));
      if (ReadNumber(value, found)) writer.Text(",").Value(std::move(found));
      writer.Text(")");
      return true;
  }
  writer.Text(text).Text("=").Value(std::move(found));
  return true;
}

// NULL, numbers, texts, bytes. What functions and collations make of values is the engine's to
// know.
std::partial_ordering Sqlite3Driver::Compare(const SqlTerm& term, const SqlValue& one,
                                             const SqlValue& other) const {
  using Kind = SqlValue::Kind;
  using Order = std::partial_ordering;
  const auto rank = [](Kind kind) { return kind == Kind::Real ? Kind::Integer : kind; };
  if (one.kind == other.kind && one.integer == other.integer && one.real == other.real &&
      one.text == other.text) {
    return Order::equivalent;
  }
  if (term.function != SqlTerm::Function::None) return Order::unordered;
  if (rank(one.kind) != rank(other.kind)) return rank(one.kind) <=> rank(other.kind);
  if (rank(one.kind) == Kind::Integer) {
    if (one.kind == Kind::Integer && other.kind == Kind::Integer) {
      return one.integer <=> other.integer;
    }
    const auto real = [](const SqlValue& value) {
      return value.kind == Kind::Real ? value.real : static_cast<double>(value.integer);
    };
    const Order order = real(one) <=> real(other);
    // A large integer may have been rounded to the other number.
    return order == 0 ? Order::unordered : order;
  }
  const bool by_bytes =
      one.kind == Kind::Bytes || (bytes_order_texts_ && term.collation == "BINARY");
  return by_bytes ? Order(one.text.view() <=> other.text.view()) : Order::unordered;
}

bool Sqlite3Driver::MayFollow(const std::vector<SqlTerm>& order, const SqlRow& row,
                              const SqlRow& next, bool backward, SqlFault& fault) const {
  for (const SqlTerm& term : order) {
    const auto column = static_cast<size_t>(term.column);
    const std::partial_ordering way = Compare(term, row[column], next[column]);
    if (way == 0) continue;
    if (way == std::partial_ordering::unordered || (way < 0) != (term.descending != backward)) {
      return true;
    }
    break;
  }
  fault = {SqlFault::Kind::Other, library_->errstr(SQLITE_CORRUPT)};
  return false;
}

std::vector<String> Sqlite3Driver::CreateTable(const String& name,
                                               const std::vector<SqlField>& fields) {
  String columns;
  bool has_key = false;
  for (const SqlField& field : fields) {
    const bool is_key = field.name == "id";
    has_key = has_key || is_key;
    if (!columns.empty()) columns.Append(",");
    columns.Append(TypeText(field, is_key));
  }
  return {String::Concat({"CREATE TABLE main.", QuotedName(name), " (",
                          has_key ? "" : "\"id\" INTEGER PRIMARY KEY,", columns, ")"})};
}

std::vector<String> Sqlite3Driver::CreateIndex(const SqlNewIndex& index) {
  std::vector<String> statements;
  SqlFault ignored;
  std::vector<SqlRow> rows;
  if (Ask("SELECT 1 FROM pragma_index_list(?1,'main') WHERE name=?2",
          {SqlValue::Text(index.table.name), SqlValue::Text(index.name)}, rows, ignored) &&
      !rows.empty()) {
    statements.push_back("DROP INDEX main." + QuotedName(index.name));
  }
  String terms;
  for (SqlTerm term : index.terms) {
    term.collation = "BINARY";
    if (!terms.empty()) terms.Append(",");
    terms.Append(OrderText(index.table, term, false));
  }
  statements.push_back(String::Concat({"CREATE ", index.unique ? "UNIQUE " : "", "INDEX main.",
                                       QuotedName(index.name), " ON ", QuotedName(index.table.name),
                                       " (", terms, ")"}));
  return statements;
}

String Sqlite3Driver::PackText(const SqlTable& /*table*/) const { return "VACUUM"; }

String Sqlite3Driver::ReindexText(const SqlTable& table) const { return "REINDEX " + table.text; }

}  // namespace vexa
