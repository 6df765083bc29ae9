// SqlRecord: the current row of a view as scripts see it, and the evaluation of filters over it.
//
// It owns the variables of the row (sql_variables.h). Assigning to one notes what the page wants in
// the column; the row itself is written by the next update or add. Coming to another row drops what
// was assigned.
//
// Texts of columns are those of fields in tables: dates as YYYYMMDD, booleans as T and F, numbers
// in plain decimals, NULL as the empty text.

#ifndef VEXA_SQL_SQL_RECORD_H_
#define VEXA_SQL_SQL_RECORD_H_

#include <memory>
#include <optional>
#include <vector>

#include "core/string.h"
#include "core/variables.h"
#include "database.h"
#include "expr/record_variables.h"
#include "sql/drivers/sql_driver.h"
#include "sql/sql_walk.h"
#include "vexa.h"

namespace vexa {

// What variables ask of the view about its rows as a whole; nothing when that cannot be told.
// Numbers of rows may be below zero where they are keys.
class SqlCounts {
 public:
  [[nodiscard]] virtual std::optional<int64_t> TotalRows() = 0;
  [[nodiscard]] virtual std::optional<int64_t> RowNumber() = 0;

 protected:
  ~SqlCounts() = default;
};

class SqlRecord final : public RecordVariables {
 public:
  // What a page assigned to a column.
  struct Edit {
    bool null = false;
    String text;
  };
  // What the current record was, to come back to after looking at others.
  struct State {
    SqlSpot spot;
    std::vector<std::optional<Edit>> edits;
    bool is_there = false;
    bool deleted = false;
  };

  // `host` and `columns` are borrowed. `database` is the name used in messages.
  SqlRecord(Vexa& host, const std::vector<SqlColumn>& columns, String database);
  // Makes the variables. `counts` is borrowed.
  void Bind(SqlCounts& counts);

  [[nodiscard]] const std::vector<SqlColumn>& columns() const { return columns_; }
  // Whether there is a current row. REQUIRES of spot(): there is.
  [[nodiscard]] bool is_there() const { return state_.is_there; }
  [[nodiscard]] const SqlSpot& spot() const { return state_.spot; }
  [[nodiscard]] bool deleted() const { return state_.deleted; }
  // Makes the row at `spot` the current one, without edits.
  void Come(SqlSpot spot);
  void MarkDeleted() { state_.deleted = true; }
  [[nodiscard]] State Save() const { return state_; }
  void Restore(State state) { state_ = std::move(state); }

  // The text of a column; valid until the record changes or another text is asked for.
  [[nodiscard]] const String& Text(size_t column);
  [[nodiscard]] bool IsNull(size_t column) const;
  void Assign(size_t column, std::string_view text) { state_.edits[column] = {false, text}; }
  void AssignNull(size_t column) { state_.edits[column] = {true, {}}; }
  [[nodiscard]] bool IsAssigned(size_t column) const { return state_.edits[column].has_value(); }
  // What an add or update writes into a column.
  [[nodiscard]] SqlValue Written(size_t column) const;

 private:
  [[nodiscard]] String TextOf(const SqlColumn& column, const SqlValue& value) const;

  const std::vector<SqlColumn>& columns_;
  State state_;
  String text_;  // what Text made last
};

}  // namespace vexa

#endif  // VEXA_SQL_SQL_RECORD_H_
