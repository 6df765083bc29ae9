// The variables of a view's current row.
//
//   NAME          the column, under its name in any letter case
//     dates       local midnight of the day in seconds since 1970
//     times       whole seconds since 1970
//     booleans    T or F
//   NAME_null     1 when the column is NULL, else 0
//   NAME_year, NAME_month, NAME_day     of dates
//   NAME_raw      of dates YYYYMMDD, of times the server's text
//
//   totrec, recno, deleted    count of rows, number of the current one, whether it was deleted
//
// Assigning checks as fields of tables do. A value of another kind than the column declares reads
// as it stands.

#ifndef VEXA_SQL_SQL_VARIABLES_H_
#define VEXA_SQL_SQL_VARIABLES_H_

#include <cstddef>
#include <string_view>

#include "core/variables.h"
#include "sql/sql_record.h"

namespace vexa {

// Makes them in `scope`. Names that meet: those of the row itself win over columns, columns over
// all others, and the first column over later ones.
void MakeSqlVariables(SqlRecord& record, SqlCounts& counts, VariableTree& scope);

// One of them. What it is stands in its role, and not in a class of its own: each class would cost
// every page a little when the program starts.
class SqlVariable final : public Variable {
 public:
  enum class Role {
    Plain,  // the text of the column as it stands
    Number,
    Boolean,
    Date,
    Year,
    Month,
    Day,
    Time,
    Null,
    // About the row; they refuse every assignment.
    TotalRows,
    RowNumber,
    Deleted,
  };

  // Both are borrowed; `column` is without meaning for roles about the row.
  SqlVariable(SqlRecord& record, SqlCounts& counts, Role role, size_t column, String name)
      : Variable(std::move(name), kOfSqlRow),
        record_(record),
        counts_(counts),
        role_(role),
        column_(column) {}
  [[nodiscard]] const String& value() override;
  [[nodiscard]] bool SetValue(const String& value) override;

  // What a parameter of a query is for this variable: a text, bytes, NULL.
  [[nodiscard]] SqlValue AsParameter();

 private:
  [[nodiscard]] const SqlColumn& declared() const { return record_.columns()[column_]; }
  const String& Number(std::optional<int64_t> number);
  // What is to be stored for a value. A message when it is refused.
  [[nodiscard]] std::string_view Check(const String& value, String& text) const;
  [[nodiscard]] std::string_view CheckNumber(const String& value, String& text) const;
  // Keeps the message. Returns false.
  bool Refuse(std::string_view message);

  SqlRecord& record_;
  SqlCounts& counts_;
  Role role_;
  size_t column_;
};

}  // namespace vexa

#endif  // VEXA_SQL_SQL_VARIABLES_H_
