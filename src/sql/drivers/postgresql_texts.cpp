// Texts of statements for PostgreSQL; see postgresql_driver.h.

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

#include "core/calendar.h"
#include "core/number.h"
#include "core/text.h"
#include "core/utf8.h"
#include "sql/drivers/postgresql_driver.h"
#include "sql/drivers/sql_text.h"

namespace vexa {

namespace {

constexpr SqlLexis kLexis = {.backticks = false,
                             .brackets = false,
                             .nested_comments = true,
                             .dollar_quotes = true,
                             .escape_strings = true,
                             .placeholders = "",
                             .dollar_digits = true};

constexpr std::string_view kByteOrder = " COLLATE pg_catalog.\"C\"";
constexpr std::string_view kCollate = " COLLATE ";
// Digits of a number that is looked for.
constexpr size_t kMostDigits = 1000;
constexpr int64_t kSecondsOfDay = 86400;

// The collation that a column's type is written with; empty: the usual one of the type.
std::string_view CollationOf(const SqlColumn& column) {
  const std::string_view type = column.type;
  const size_t at = type.rfind(kCollate);
  return at == type.npos ? "" : type.substr(at + kCollate.size());
}
std::string_view TypeOf(const SqlColumn& column) {
  return column.type.view().substr(0, column.type.view().rfind(kCollate));
}

// --- Values that are looked for --------------------------------------------------------------

// Whether it is digits with at most a sign and a point, at least one digit.
bool IsPlainNumber(std::string_view text) {
  if (text.starts_with('-') || text.starts_with('+')) text.remove_prefix(1);
  const auto digits = std::ranges::count_if(text, IsDigit);
  const auto points = std::ranges::count(text, '.');
  return digits > 0 && points < 2 && digits + points == std::ssize(text) &&
         text.size() <= kMostDigits;
}

// Without the plus that the number reader does not know, and without zeros behind the point.
std::string_view Shortened(std::string_view number) {
  if (number.starts_with('+')) number.remove_prefix(1);
  if (number.find('.') == number.npos) return number;
  while (number.ends_with('0')) number.remove_suffix(1);
  if (number.ends_with('.')) number.remove_suffix(1);
  return number;
}

bool FitsInteger(std::string_view text) {
  int64_t number;
  const auto read = std::from_chars(text.data(), text.data() + text.size(), number);
  return read.ec == std::errc() && read.ptr == text.data() + text.size();
}

// Whether a real of that range holds the number: neither infinite in it nor nothing.
bool FitsReal(std::string_view text, double least, double most) {
  double number;
  if (!ReadStrict(text, &number)) return false;
  return number == 0 || (std::fabs(number) >= least && std::fabs(number) <= most);
}

// Whether a number can be a value of the column.
bool HoldsNumber(const SqlColumn& column, std::string_view number) {
  const std::string_view type = TypeOf(column);
  if (column.kind == SqlKind::Integer) return FitsInteger(number);
  constexpr double kLeastFloat = std::numeric_limits<float>::denorm_min();
  constexpr double kMostFloat = std::numeric_limits<float>::max();
  if (type == "real") return FitsReal(number, kLeastFloat, kMostFloat);
  using Double = std::numeric_limits<double>;
  return !(type == "double precision") || FitsReal(number, Double::denorm_min(), Double::max());
}

bool IsDay(std::string_view iso) {
  String raw;
  if (!RawDate(iso, raw) || ReadInteger(iso.substr(0, 4)) == 0) return false;
  int64_t seconds;
  return ReadIsoTime(iso, seconds) &&
         CalendarTime(seconds).tm_mday == ReadInteger(iso.substr(8, 2));
}

// A number is seconds since 1970, anything else a date and time.
bool ReadTime(const String& value, String& from, String& before) {
  int64_t seconds;
  if (FitsInteger(value)) {
    seconds = ReadInteger64(value);
    from = IsoTime(seconds);
    before = IsoTime(seconds + 1);
    return !from.empty() && !before.empty() && IsDay(from.view().substr(0, 10));
  }
  from = value;
  return ReadIsoTime(value, seconds) && IsDay(value.view().substr(0, 10)) &&
         !IsoTime(seconds).empty();
}

bool IsUuid(std::string_view text) {
  constexpr size_t kLength = 36;
  if (text.size() != kLength) return false;
  for (size_t i = 0; i < kLength; ++i) {
    const bool dash = i == 8 || i == 13 || i == 18 || i == 23;
    const char c = ToUpper(text[i]);
    if (dash ? c != '-' : !IsDigit(c) && (c < 'A' || c > 'F')) return false;
  }
  return true;
}

// The least text behind all that begin with `prefix`, in the order of their bytes; empty when there
// is none, or `prefix` is no UTF-8.
String BehindAll(std::string_view prefix) {
  constexpr uint32_t kSurrogates = 0xD800, kBehindSurrogates = 0xE000, kLast = 0x10FFFF;
  if (!IsUtf8(prefix)) return {};
  while (!prefix.empty()) {
    size_t begin = prefix.size() - 1;
    while ((prefix[begin] & 0xC0) == 0x80) --begin;
    uint32_t next = CharacterNumber(prefix.substr(begin)) + 1;
    if (next == kSurrogates) next = kBehindSurrogates;
    prefix = prefix.substr(0, begin);
    if (next > kLast) continue;
    String text(prefix);
    AppendCharacter(text, next);
    return text;
  }
  return {};
}

// Gathers a condition and its parameters.
class ConditionWriter {
 public:
  ConditionWriter(const SqlDriver& driver, size_t first_mark, SqlCondition& condition)
      : driver_(driver), next_mark_(first_mark), condition_(condition) {
    condition_ = {};
  }
  ConditionWriter& Text(std::initializer_list<std::string_view> pieces) {
    for (const std::string_view piece : pieces) condition_.text.Append(piece);
    return *this;
  }
  // The mark of a parameter with that value.
  String Mark(SqlValue value) {
    condition_.parameters.push_back(std::move(value));
    return driver_.Mark(next_mark_++);
  }
  String Mark(const String& text) { return Mark(SqlValue::Text(text)); }

 private:
  const SqlDriver& driver_;
  size_t next_mark_;
  SqlCondition& condition_;
};

// The rows whose `text` begins with `value`, byte by byte. The bounds lead an index in byte order
// there, the function has the last word: the server's own encoding may be another.
void WritePrefix(const String& text, std::string_view value, ConditionWriter& writer) {
  const String bytes = String::Concat({"((", text, ")::text", kByteOrder, ")"});
  const String mark = writer.Mark(String(value));
  writer.Text({"(pg_catalog.starts_with(", bytes, ",", mark, ") AND ", bytes, ">=", mark});
  const String end = BehindAll(value);
  if (!end.empty()) writer.Text({" AND ", bytes, "<", writer.Mark(end)});
  writer.Text({")"});
}

String FieldText(const String& name, const SqlField& field, bool is_key) {
  String type;
  switch (field.letter) {
    case 'C':
      type = String::Concat({"text", kByteOrder, " CHECK (char_length(", name,
                             ")<=", PrintInteger(field.length), ")"});
      break;
    case 'N':
      type = is_key ? String("bigint GENERATED BY DEFAULT AS IDENTITY")
                    : String::Concat({"numeric(", PrintInteger(field.length), ",",
                                      PrintInteger(field.decimals), ")"});
      break;
    case 'D':
      type = "date";
      break;
    case 'L':
      type = "boolean";
      break;
    default:
      type = String::Concat({"text", kByteOrder});
  }
  return String::Concat({name, " ", type, is_key ? " PRIMARY KEY" : ""});
}

// The schema of a table's text, with its point.
std::string_view SchemaOf(std::string_view table) {
  bool quoted = false;
  for (size_t i = 0; i < table.size(); ++i) {
    if (table[i] == '"') quoted = !quoted;
    if (table[i] == '.' && !quoted) return table.substr(0, i + 1);
  }
  return {};
}

}  // namespace

const SqlLexis& PostgresqlDriver::lexis() const { return kLexis; }

String PostgresqlDriver::Mark(size_t number) const {
  return String::Concat({"$", PrintInteger(static_cast<int64_t>(number))});
}

String PostgresqlDriver::TermText(const SqlTable& table, const SqlTerm& term) const {
  const String name = QuotedName(table.ColumnOf(term).name);
  const std::string_view collate = term.collation.empty() ? "" : kCollate;
  if (term.function == SqlTerm::Function::None) {
    return String::Concat({name, collate, term.collation});
  }
  return String::Concat(
      {"pg_catalog.", FoldName(term), "(", name, "::text)", collate, term.collation});
}

// The function must fold the value as it folds the column: by the column's collation.
String PostgresqlDriver::ValueText(const SqlTable& table, const SqlTerm& term,
                                   size_t number) const {
  const String mark = Mark(number);
  if (term.function == SqlTerm::Function::None) return mark;
  const std::string_view own = CollationOf(table.ColumnOf(term));
  const std::string_view order = term.collation.empty() ? own : term.collation.view();
  return String::Concat({"pg_catalog.", FoldName(term), "(", mark, "::text",
                         own.empty() ? "" : kCollate, own, ")", order.empty() ? "" : kCollate,
                         order});
}

String PostgresqlDriver::OrderText(const SqlTable& table, const SqlTerm& term,
                                   bool reversed) const {
  return String::Concat({TermText(table, term), term.descending == reversed ? "" : " DESC",
                         term.nulls_first == reversed ? " NULLS LAST" : " NULLS FIRST"});
}

bool PostgresqlDriver::FindCondition(const SqlTable& table, const SqlTerm& term,
                                     const String& value, bool prefix, size_t first_mark,
                                     SqlCondition& condition) const {
  const SqlColumn& column = table.ColumnOf(term);
  const String text = TermText(table, term);
  ConditionWriter writer(*this, first_mark, condition);
  const bool is_text = column.kind == SqlKind::Text || term.function != SqlTerm::Function::None;
  if (value.empty()) {
    if (is_text && prefix) {
      writer.Text({"true"});
    } else {
      writer.Text({"(", text, " IS NULL", is_text ? " OR " : "", is_text ? text.view() : "",
                   is_text ? "=''" : "", ")"});
    }
    return true;
  }
  std::string_view number;
  String before, from;
  switch (is_text ? SqlKind::Text : column.kind) {
    case SqlKind::Text: {
      // The blanks that fill such a column up are not part of its text.
      std::string_view wanted = value;
      while (TypeOf(column).starts_with("character(") && wanted.ends_with(' ')) {
        wanted.remove_suffix(1);
      }
      if (prefix) {
        WritePrefix(text, wanted, writer);
      } else {
        writer.Text({text, "=", writer.Mark(value)});
      }
      return true;
    }
    case SqlKind::Integer:
    case SqlKind::Number:
      number = Shortened(value);
      if (!IsPlainNumber(value) || !HoldsNumber(column, number)) return false;
      writer.Text({text, "=", writer.Mark(String(number)),
                   column.kind == SqlKind::Integer ? "::bigint" : ""});
      return true;
    case SqlKind::Boolean:
      if (!(value == "T") && !(value == "1") && !(value == "F") && !(value == "0")) return false;
      writer.Text({text, "=", value == "T" || value == "1" ? "true" : "false"});
      return true;
    case SqlKind::Date:
      from = IsoDate(value);
      if (!IsDay(from)) return false;
      writer.Text({text, "=", writer.Mark(from)});
      return true;
    case SqlKind::Time:
      if (!ReadTime(value, from, before)) return false;
      writer.Text({text, before.empty() ? "=" : ">=", writer.Mark(from)});
      // Pages see whole seconds.
      if (!before.empty()) writer.Text({" AND ", text, "<", writer.Mark(before)});
      return true;
    case SqlKind::Bytes:
      writer.Text({text, "=", writer.Mark(SqlValue::Bytes(value))});
      return true;
    case SqlKind::Other:
      if (TypeOf(column) == "uuid" && IsUuid(value)) {
        writer.Text({text, "=", writer.Mark(value)});
      } else {
        // Whether the type can hold the value only the server knows: their texts are compared.
        writer.Text({"(", text, ")::text=", writer.Mark(value)});
      }
      return true;
  }
  return false;
}

std::vector<String> PostgresqlDriver::CreateTable(const String& name,
                                                  const std::vector<SqlField>& fields) {
  String columns;
  bool has_key = false;
  for (const SqlField& field : fields) {
    const bool is_key = field.name == "id";
    has_key = has_key || is_key;
    if (!columns.empty()) columns.Append(",");
    columns.Append(FieldText(QuotedName(field.name), field, is_key));
  }
  if (!has_key) columns.prepend(FieldText(QuotedName("id"), {{}, 'N', 0, 0}, true) + ",");
  const size_t point = name.view().find('.');
  const String table = point == std::string_view::npos
                           ? QuotedName(name)
                           : String::Concat({QuotedName(name.view().substr(0, point)), ".",
                                             QuotedName(name.view().substr(point + 1))});
  return {String::Concat({"CREATE TABLE ", table, " (", columns, ")"})};
}

std::vector<String> PostgresqlDriver::CreateIndex(const SqlNewIndex& index) {
  std::vector<String> statements;
  SqlIndex former;
  bool found = false;
  SqlFault ignored;
  const String name = QuotedName(index.name);
  if (DescribeIndex(index.table, index.name, former, found, ignored) && found) {
    statements.push_back(String::Concat({"DROP INDEX ", SchemaOf(index.table.text), name}));
  }
  String terms;
  for (const SqlTerm& wanted : index.terms) {
    SqlTerm term = wanted;
    if (index.table.ColumnOf(term).kind == SqlKind::Text) term.collation = "pg_catalog.\"C\"";
    if (!terms.empty()) terms.Append(",");
    terms.Append(OrderText(index.table, term, false));
  }
  statements.push_back(String::Concat({"CREATE ", index.unique ? "UNIQUE " : "", "INDEX ", name,
                                       " ON ", index.table.text, " (", terms, ")"}));
  return statements;
}

String PostgresqlDriver::PackText(const SqlTable& table) const { return "VACUUM " + table.text; }

String PostgresqlDriver::ReindexText(const SqlTable& table) const {
  return "REINDEX TABLE " + table.text;
}

}  // namespace vexa
