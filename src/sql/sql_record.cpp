// The current row; see sql_record.h.

#include "sql/sql_record.h"

#include <utility>

#include "core/number.h"
#include "core/text.h"
#include "sql/drivers/sql_text.h"
#include "sql/sql_variables.h"

namespace vexa {

namespace {

// A number as servers write it, in plain decimals, with as many as the column declares.
String NumberText(const SqlColumn& column, const SqlValue& value) {
  String text = value.text;
  if (value.kind == SqlValue::Kind::Integer) text = PrintInteger(value.integer);
  if (value.kind == SqlValue::Kind::Real) text = PlainDecimals(value.real);
  double real;
  if (value.kind == SqlValue::Kind::Text) {
    if (!ReadStrict(text, &real)) return text;
    if (text.view().find_first_of("eE") != std::string_view::npos) text = PlainDecimals(real);
  }
  // Some are no numbers, and infinite ones.
  const bool plain = text.view().find_first_not_of("-.0123456789") == std::string_view::npos;
  if (column.decimals <= 0 || !plain) return text;
  const int point = text.search(".");
  const int decimals = point < 0 ? 0 : text.length() - point - 1;
  if (point < 0) text.cat('.');
  return text.padr(text.length() + (decimals < column.decimals ? column.decimals - decimals : 0),
                   '0');
}

}  // namespace

SqlRecord::SqlRecord(Vexa& host, const std::vector<SqlColumn>& columns, String database)
    : RecordVariables(host, std::move(database)), columns_(columns) {
  state_.edits.resize(columns_.size());
  state_.spot.row.resize(columns_.size());
}

void SqlRecord::Bind(SqlCounts& counts) {
  MakeSqlVariables(*this, counts, scope());
  AddEOF();
}

void SqlRecord::Come(SqlSpot spot) {
  state_.spot = std::move(spot);
  state_.edits.assign(columns_.size(), std::nullopt);
  state_.is_there = true;
  state_.deleted = false;
}

// --- Texts -----------------------------------------------------------------------------------

String SqlRecord::TextOf(const SqlColumn& column, const SqlValue& value) const {
  String raw;
  switch (column.kind) {
    case SqlKind::Boolean:
      if (value.kind != SqlValue::Kind::Integer || value.integer < 0 || value.integer > 1) break;
      return value.integer != 0 ? "T" : "F";
    case SqlKind::Date:
      if (value.kind == SqlValue::Kind::Text && RawDate(value.text, raw)) return raw;
      break;
    case SqlKind::Integer:
    case SqlKind::Number:
      return NumberText(column, value);
    default:
      break;
  }
  if (value.kind == SqlValue::Kind::Integer) return PrintInteger(value.integer);
  if (value.kind == SqlValue::Kind::Real) return PlainDecimals(value.real);
  return value.text;
}

const String& SqlRecord::Text(size_t column) {
  if (const auto& edit = state_.edits[column]) return edit->text;
  const SqlValue& value = state_.spot.row[column];
  const SqlKind kind = columns_[column].kind;
  // Long texts are not copied.
  const bool as_it_stands = kind == SqlKind::Text || kind == SqlKind::Other ||
                            kind == SqlKind::Bytes || kind == SqlKind::Time;
  if (as_it_stands && (value.kind == SqlValue::Kind::Text || value.kind == SqlValue::Kind::Bytes)) {
    return value.text;
  }
  text_ = value.is_null() ? String() : TextOf(columns_[column], value);
  return text_;
}

bool SqlRecord::IsNull(size_t column) const {
  const auto& edit = state_.edits[column];
  return edit ? Written(column).is_null() : state_.spot.row[column].is_null();
}

SqlValue SqlRecord::Written(size_t column) const {
  const auto& edit = state_.edits[column];
  if (!edit) return state_.spot.row[column];
  const SqlKind kind = columns_[column].kind;
  if (edit->null || (kind != SqlKind::Text && Stripped(edit->text).empty())) return {};
  switch (kind) {
    case SqlKind::Boolean:
      return SqlValue::Integer(edit->text == "T" ? 1 : 0);
    case SqlKind::Date:
      return SqlValue::Text(IsoDate(edit->text));
    case SqlKind::Bytes:
      return SqlValue::Bytes(edit->text);
    default:
      return SqlValue::Text(edit->text);
  }
}

}  // namespace vexa
