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
#include <memory>
#include <string_view>

#include "core/field_text.h"
#include "core/variables.h"
#include "sql/sql_record.h"

namespace vexa {

// Makes them in `scope`. Names that meet: those of the row itself win over columns, columns over
// all others, and the first column over later ones.
void MakeSqlVariables(SqlRecord& record, SqlCounts& counts, VariableTree& scope);

// Base of the variables of a column; stores what is assigned as it is.
class SqlVariable : public Variable {
 public:
  SqlVariable(SqlRecord& record, size_t column, String name)
      : Variable(std::move(name), kComputed), record_(record), column_(column) {}
  [[nodiscard]] const String& value() override { return record_.Text(column_); }
  [[nodiscard]] bool SetValue(const String& value) override { return Store(value); }

  // What a parameter of a query is for this variable: a text, bytes, NULL.
  [[nodiscard]] virtual SqlValue AsParameter();

 protected:
  // Keeps the message. Returns false.
  bool Refuse(std::string_view message);
  [[nodiscard]] bool Store(std::string_view text);
  [[nodiscard]] bool StoreNull();
  [[nodiscard]] SqlRecord& record() const { return record_; }
  [[nodiscard]] size_t column() const { return column_; }
  [[nodiscard]] const SqlColumn& declared() const { return record_.columns()[column_]; }
  const String& Number(int64_t number);

 private:
  [[nodiscard]] bool MayChange();

  SqlRecord& record_;
  size_t column_;
};

}  // namespace vexa

#endif  // VEXA_SQL_SQL_VARIABLES_H_
