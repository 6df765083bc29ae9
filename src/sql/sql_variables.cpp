// Reading and assigning columns; see sql_variables.h.

#include "sql/sql_variables.h"

#include <algorithm>
#include <memory>

#include "core/field_text.h"
#include "core/number.h"
#include "core/script_value.h"
#include "core/text.h"
#include "sql/drivers/sql_text.h"

namespace vexa {

namespace {

using Role = SqlVariable::Role;

constexpr std::string_view kNoTime =
    "Value\tassigned to date field contains\ta non-numeric character";

const DatePart& PartOf(Role role) {
  if (role == Role::Year) return kDateYear;
  return role == Role::Month ? kDateMonth : kDateDay;
}

Role RoleOf(SqlKind kind) {
  switch (kind) {
    case SqlKind::Integer:
    case SqlKind::Number:
      return Role::Number;
    case SqlKind::Boolean:
      return Role::Boolean;
    case SqlKind::Date:
      return Role::Date;
    case SqlKind::Time:
      return Role::Time;
    default:
      return Role::Plain;
  }
}

// Makes variables in a scope.
class VariableMaker {
 public:
  VariableMaker(SqlRecord& record, SqlCounts& counts, VariableTree& scope)
      : record_(record), counts_(counts), scope_(scope) {}
  void Make(Role role, size_t column, std::string_view suffix) {
    const SqlColumn& declared = record_.columns()[column];
    Make(role, column, String::Concat({declared.name, suffix}));
  }
  void MakeOfRow(Role role, std::string_view name) { Make(role, 0, String(name)); }
  // Those beside the one that bears the column's own name.
  void MakeFurther(size_t column) {
    const SqlKind kind = record_.columns()[column].kind;
    Make(Role::Null, column, std::string_view("_null"));
    if (kind == SqlKind::Date || kind == SqlKind::Time) {
      Make(Role::Plain, column, std::string_view("_raw"));
    }
    if (kind != SqlKind::Date) return;
    for (const Role part : {Role::Year, Role::Month, Role::Day}) {
      Make(part, column, std::string_view(PartOf(part).suffix));
    }
  }

 private:
  void Make(Role role, size_t column, String name) {
    scope_.Insert(std::make_unique<SqlVariable>(record_, counts_, role, column, std::move(name)));
  }

  SqlRecord& record_;
  SqlCounts& counts_;
  VariableTree& scope_;
};

}  // namespace

// --- Reading ---------------------------------------------------------------------------------

const String& SqlVariable::Number(std::optional<int64_t> number) {
  static const String untold;
  if (!number) return untold;
  value_ = PrintInteger(*number);
  return value_.text();
}

const String& SqlVariable::value() {
  int64_t number = 0;
  switch (role_) {
    case Role::TotalRows:
      return Number(counts_.TotalRows());
    case Role::RowNumber:
      return Number(counts_.RowNumber());
    case Role::Deleted:
      return Number(record_.deleted() ? 1 : 0);
    case Role::Null:
      return Number(record_.IsNull(column_) ? 1 : 0);
    default:
      break;
  }
  const String& text = record_.Text(column_);
  switch (role_) {
    case Role::Date:
      return IsFieldDate(text) ? Number(MidnightOf(text)) : text;
    case Role::Time:
      return ReadIsoTime(text, number) ? Number(number) : text;
    case Role::Year:
    case Role::Month:
    case Role::Day:
      return Number(ReadDatePart(text, PartOf(role_)));
    default:
      return text;
  }
}

SqlValue SqlVariable::AsParameter() {
  if (role_ >= Role::Null) return SqlValue::Text(value());
  if (record_.IsNull(column_)) return {};
  if (declared().kind == SqlKind::Bytes) return SqlValue::Bytes(value());
  return SqlValue::Text(value());
}

// --- Assigning -------------------------------------------------------------------------------

bool SqlVariable::Refuse(std::string_view message) {
  error_ = message;
  return false;
}

std::string_view SqlVariable::CheckNumber(const String& value, String& text) const {
  if (value.empty()) return {};
  const int decimals = declared().kind == SqlKind::Integer ? 0 : declared().decimals;
  const std::string_view message = FieldNumber(value, decimals, text);
  if (!message.empty() || declared().precision < 0) return message;
  std::string_view digits = text;
  digits.remove_prefix(std::min(digits.find_first_not_of("-0"), digits.size()));
  const auto whole = static_cast<int>(digits.substr(0, digits.find('.')).size());
  // A type may declare more digits behind the point than it has: then there is none before it.
  const bool fits = whole <= std::max(declared().precision - declared().decimals, 0);
  return fits ? std::string_view() : kNumberTooLong;
}

std::string_view SqlVariable::Check(const String& value, String& text) const {
  SqlValue seconds;
  switch (role_) {
    case Role::Number:
      return CheckNumber(value, text);
    case Role::Boolean:
      if (!value.empty()) text = ScriptValue::TextIsTrue(value) ? "T" : "F";
      return {};
    case Role::Date:
      return FieldDate(value, text);
    case Role::Year:
    case Role::Month:
    case Role::Day:
      text = record_.Text(column_);
      return SetDatePart(value, PartOf(role_), text);
    case Role::Time:
      if (value.empty()) return {};
      if (!ReadNumber(value, seconds) || seconds.kind != SqlValue::Kind::Integer) return kNoTime;
      text = IsoTime(seconds.integer);
      return text.empty() ? std::string_view(kDateYear.message) : std::string_view();
    default:
      text = value;
      return {};
  }
}

bool SqlVariable::SetValue(const String& value) {
  if (role_ > Role::Null) {
    error_ = String::Concat({"'", name(), "' is dynamically generated by the system"});
    return false;
  }
  if (role_ == Role::Null && !ScriptValue::TextIsTrue(value)) return true;
  String text;
  const std::string_view message = Check(value, text);
  if (!message.empty()) return Refuse(message);
  // A filter is looking at the record.
  if (record_.busy()) return Refuse(record_.BusyMessage());
  error_.clear();
  if (role_ == Role::Null) {
    record_.AssignNull(column_);
  } else {
    record_.Assign(column_, text);
  }
  return true;
}

// --- Making them -----------------------------------------------------------------------------

void MakeSqlVariables(SqlRecord& record, SqlCounts& counts, VariableTree& scope) {
  VariableMaker maker(record, counts, scope);
  const auto& columns = record.columns();
  // A later variable takes the place of an earlier one with its name. A column without one has no
  // variable.
  const auto is_visible = [&](size_t i) { return !columns[i].hidden && !columns[i].name.empty(); };
  for (size_t i = columns.size(); i-- > 0;) {
    if (is_visible(i)) maker.MakeFurther(i);
  }
  for (size_t i = columns.size(); i-- > 0;) {
    if (is_visible(i)) maker.Make(RoleOf(columns[i].kind), i, std::string_view());
  }
  maker.MakeOfRow(Role::TotalRows, "totrec");
  maker.MakeOfRow(Role::RowNumber, "recno");
  maker.MakeOfRow(Role::Deleted, "deleted");
}

}  // namespace vexa
