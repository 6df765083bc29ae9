// Moving through rows and changing them; see sql_view.h.

#include "sql/sql_view.h"

#include <utility>

#include "core/encoding.h"
#include "sql/drivers/sql_text.h"
#include "sql/sql_database.h"

namespace vexa {

namespace {

constexpr std::string_view kGone = "Record no longer exists";

}  // namespace

SqlView::SqlView(SqlDatabase& database, String name, SqlTable table)
    : database_(database),
      session_(*database.session()),
      name_(std::move(name)),
      table_(std::move(table)),
      walk_(session_, table_),
      record_(database.host(), table_.columns, EntityEncoded(database.name())) {
  record_.Bind(*this);
  walk_.OrderBy(nullptr);
  transaction_ = session_.transaction();
}

void SqlView::Keep(int id, int64_t count, bool is_query) {
  walk_.Keep(id, count);
  is_query_ = is_query;
}

void SqlView::OrderBy(const SqlIndex* index) {
  order_ = index;
  walk_.OrderBy(index);
}

DataResult SqlView::Fail(std::string_view message) {
  error_ = EntityEncoded(message);
  return DataResult::Failed;
}

DataResult SqlView::FailWalk() {
  error_ = walk_.error();
  return DataResult::Failed;
}

// --- Moving ----------------------------------------------------------------------------------

DataResult SqlView::SetFilter(const String& expression) {
  error_.clear();
  if (!database_.MayBegin(error_)) return DataResult::Failed;
  Expression filter;
  if (!record_.ParseFilter(expression, filter)) return DataResult::Reported;
  filter_ = std::move(filter);
  return DataResult::Done;
}

DataResult SqlView::Moved(DataResult result) {
  if (former_ && result != DataResult::Done) record_.Restore(std::move(*former_));
  former_.reset();
  record_.SetEOF(result != DataResult::Done);
  return result;
}

DataResult SqlView::Skip(int rows) {
  error_.clear();
  if (!database_.MayBegin(error_)) return DataResult::Failed;
  return Moved(SkipRows(rows));
}

DataResult SqlView::Go(int64_t row) {
  error_.clear();
  if (!database_.MayBegin(error_)) return DataResult::Failed;
  walk_.Drop();
  total_ = -1;
  if (row == kFirstRow) return Moved(GoToEnd(Direction::Forward));
  if (row == kLastRow) return Moved(GoToEnd(Direction::Backward));
  SqlSpot spot;
  bool found;
  if (!walk_.AtNumber(row, spot, found)) return Moved(FailWalk());
  return Moved(Arrive(std::move(spot), found));
}

DataResult SqlView::Find(const String& value, int exact) {
  error_.clear();
  if (!database_.MayBegin(error_)) return DataResult::Failed;
  return Moved(FindRow(value, exact == 0));
}

DataResult SqlView::Arrive(SqlSpot spot, bool found) {
  if (!found) return DataResult::EndOfData;
  record_.Come(std::move(spot));
  return DataResult::Done;
}

DataResult SqlView::SkipRows(int64_t rows) {
  if (!record_.is_there()) return DataResult::EndOfData;
  SqlSpot spot = record_.spot();
  bool found;
  if (rows == 0) {
    walk_.Drop();
    if (!walk_.Reread(spot, found)) return FailWalk();
    return Arrive(std::move(spot), found);
  }
  const Direction direction = rows > 0 ? Direction::Forward : Direction::Backward;
  for (int64_t left = rows > 0 ? rows : -rows; left > 0;) {
    if (database_.host().timedout()) return Fail("Timed out while looking for a record");
    if (!walk_.Step(direction, spot, found)) return FailWalk();
    if (!found) return DataResult::EndOfData;
    const DataResult passes = Try(spot);
    if (passes == DataResult::EndOfData) continue;
    if (passes != DataResult::Done) return passes;
    --left;
  }
  return Arrive(std::move(spot), true);
}

DataResult SqlView::GoToEnd(Direction direction) {
  SqlSpot spot;
  bool found;
  if (!walk_.ToEnd(direction, spot, found)) return FailWalk();
  return Search(direction, std::move(spot), found);
}

DataResult SqlView::FindRow(const String& value, bool prefix) {
  if (table_.key.empty() || walk_.kept()) {
    return Fail(String::Concat({"Database '", database_.name(), "' has no primary index"}));
  }
  const SqlTerm& term = order_ == nullptr ? table_.key.front() : order_->terms.front();
  SqlCondition condition;
  if (!session_.driver().FindCondition(table_, term, value, prefix, 1, condition)) {
    return DataResult::EndOfData;
  }
  walk_.OnlyWhere(&condition);
  const DataResult result = GoToEnd(Direction::Forward);
  walk_.OnlyWhere(nullptr);
  return result;
}

DataResult SqlView::Search(Direction direction, SqlSpot spot, bool found) {
  while (found) {
    const DataResult passes = Try(spot);
    if (passes == DataResult::Done) return Arrive(std::move(spot), true);
    if (passes != DataResult::EndOfData) return passes;
    if (database_.host().timedout()) return Fail("Timed out while looking for a record");
    if (!walk_.Step(direction, spot, found)) return FailWalk();
  }
  return DataResult::EndOfData;
}

DataResult SqlView::Try(const SqlSpot& spot) {
  if (filter_.empty()) return DataResult::Done;
  if (!former_) former_ = record_.Save();
  record_.Come(spot);
  String passes;
  const DataResult evaluated = record_.Evaluate(filter_, passes);
  if (evaluated != DataResult::Done) return evaluated;
  return Expression::IsTrue(passes) ? DataResult::Done : DataResult::EndOfData;
}

// --- Changing --------------------------------------------------------------------------------

bool SqlView::MayChange() {
  error_.clear();
  if (!database_.MayBegin(error_)) return false;
  if (is_query_) {
    (void)Fail(String::Concat({"View '", name_, "' is read-only"}));
  } else if (table_.key.empty()) {
    (void)Fail(String::Concat({"Table '", table_.name, "' has no primary key"}));
  }
  return error_.empty();
}

DataResult SqlView::Changed(SqlResult& result, std::string_view nothing) {
  bool found = !result.rows.empty();
  if (!found) return Fail(nothing);
  SqlSpot spot;
  spot.row = std::move(result.rows[0]);
  // What runs behind the change may have changed the row again, or taken it away.
  if (table_.changes_later && !walk_.Reread(spot, found)) return FailWalk();
  record_.Come(std::move(spot));
  if (!found) record_.MarkDeleted();
  return DataResult::Done;
}

DataResult SqlView::Add() {
  if (!MayChange()) return DataResult::Failed;
  SqlStatement statement;
  String names;
  String marks;
  for (size_t i = 0; i < table_.columns.size(); ++i) {
    const SqlColumn& column = table_.columns[i];
    const bool left_out = column.hidden || column.computed || column.has_default;
    if (left_out && !record_.IsAssigned(i)) continue;
    statement.parameters.push_back(record_.Written(i));
    names.Append(String::Concat({names.empty() ? "" : ",", QuotedName(column.name)}));
    marks.Append(String::Concat(
        {marks.empty() ? "" : ",", session_.driver().Mark(statement.parameters.size())}));
  }
  const String values = names.empty() ? String(" DEFAULT VALUES")
                                      : String::Concat({" (", names, ") VALUES (", marks, ")"});
  statement.text =
      String::Concat({"INSERT INTO ", table_.text, values, " RETURNING ", walk_.ColumnList()});
  SqlResult result;
  if (!session_.Change(statement, {1}, result, error_)) return DataResult::Failed;
  const DataResult added = Changed(result, "The record was not added");
  if (added == DataResult::Done) record_.SetEOF(false);
  return added;
}

DataResult SqlView::Update() {
  if (!MayChange()) return DataResult::Failed;
  if (!record_.is_there()) return DataResult::EndOfData;
  if (record_.deleted()) return Fail(kGone);
  SqlStatement statement;
  String sets;
  for (size_t i = 0; i < table_.columns.size(); ++i) {
    if (!record_.IsAssigned(i)) continue;
    statement.parameters.push_back(record_.Written(i));
    sets.Append(String::Concat({sets.empty() ? "" : ",", QuotedName(table_.columns[i].name), "=",
                                session_.driver().Mark(statement.parameters.size())}));
  }
  if (sets.empty()) {
    SqlSpot spot = record_.spot();
    bool found;
    if (!walk_.Reread(spot, found)) return FailWalk();
    return found ? Arrive(std::move(spot), true) : Fail(kGone);
  }
  statement.text = String::Concat({"UPDATE ", table_.text, " SET ", sets, " WHERE "});
  walk_.AppendKey(record_.spot().row, statement);
  statement.text.Append(" RETURNING " + walk_.ColumnList());
  SqlResult result;
  if (!session_.Change(statement, {1}, result, error_)) return DataResult::Failed;
  return Changed(result, kGone);
}

DataResult SqlView::Delete() {
  if (!MayChange()) return DataResult::Failed;
  if (!record_.is_there()) return DataResult::EndOfData;
  if (record_.deleted()) return Fail(kGone);
  SqlStatement statement;
  statement.text = String::Concat({"DELETE FROM ", table_.text, " WHERE "});
  walk_.AppendKey(record_.spot().row, statement);
  SqlResult result;
  if (!session_.Change(statement, {}, result, error_)) return DataResult::Failed;
  if (result.changed == 0) return Fail(kGone);
  record_.MarkDeleted();
  return DataResult::Done;
}

DataResult SqlView::UnDelete() {
  return Fail(String::Concat({"VxUNDELETE is not currently supported for databases of type '",
                              session_.driver().type(), "'"}));
}

DataResult SqlView::RevealStructure(const String& database) {
  error_.clear();
  if (!database_.MayBegin(error_)) return DataResult::Failed;
  return database_.RevealStructure(table_, database, error_) ? DataResult::Done
                                                             : DataResult::Failed;
}

// --- Counts ----------------------------------------------------------------------------------

std::optional<int64_t> SqlView::TotalRows() {
  if (total_ < 0 || total_changes_ != session_.changes()) {
    int64_t count;
    total_ = walk_.Count(count) ? count : -1;
    total_changes_ = session_.changes();
  }
  return total_ < 0 ? std::nullopt : std::optional(total_);
}

std::optional<int64_t> SqlView::RowNumber() {
  if (!record_.is_there()) return 0;
  int64_t number;
  return walk_.NumberOf(record_.spot(), number) ? std::optional(number) : std::nullopt;
}

}  // namespace vexa
