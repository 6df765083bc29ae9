// Steps through rows; see sql_walk.h.

#include "sql/sql_walk.h"

#include <algorithm>
#include <cassert>

#include "core/memory_limit.h"
#include "core/number.h"
#include "core/outside.h"
#include "sql/drivers/sql_text.h"

namespace vexa {

namespace {

constexpr int64_t kFirstAhead = 8;
constexpr int64_t kMostAhead = 256;

}  // namespace

SqlWalk::~SqlWalk() {
  if (!kept()) return;
  const MemoryLimitLifted lifted;
  session_.DropKept(kept_id_);
}

void SqlWalk::Keep(int id, int64_t count) {
  kept_id_ = id;
  kept_count_ = count;
}

void SqlWalk::OrderBy(const SqlIndex* index) {
  Drop();
  order_.clear();
  if (index != nullptr) order_ = index->terms;
  // Equal keys stand by the primary key. A column of it that the index has too may still differ
  // there, where the index takes different texts for equal.
  order_.insert(order_.end(), table_.key.begin(), table_.key.end());
}

void SqlWalk::OnlyWhere(const SqlCondition* condition) {
  Drop();
  condition_ = condition;
}

// --- Texts -----------------------------------------------------------------------------------

String SqlWalk::ColumnList() const {
  String list;
  for (const SqlColumn& column : table_.columns) {
    if (!list.empty()) list.Append(",");
    list.Append(column.hidden ? column.name : QuotedName(column.name));
  }
  return list;
}

int SqlWalk::NumberColumn() const {
  if (kept() || table_.key.size() != 1) return -1;
  const int column = table_.key[0].column;
  return table_.columns[static_cast<size_t>(column)].kind == SqlKind::Integer ? column : -1;
}

void SqlWalk::AppendEqual(const SqlTerm& term, const SqlRow& row, SqlStatement& statement) const {
  const SqlDriver& driver = session_.driver();
  const SqlValue& value = row[static_cast<size_t>(term.column)];
  statement.text.Append(driver.TermText(table_, term));
  if (value.is_null()) {
    statement.text.Append(" IS NULL");
    return;
  }
  statement.parameters.push_back(value);
  statement.text.Append("=");
  statement.text.Append(driver.ValueText(table_, term, statement.parameters.size()));
}

void SqlWalk::AppendKey(const SqlRow& row, SqlStatement& statement) const {
  for (const SqlTerm& term : table_.key) {
    if (&term != &table_.key.front()) statement.text.Append(" AND ");
    AppendEqual(term, row, statement);
  }
}

String SqlWalk::OrderFrom(size_t first, Direction direction) const {
  String text;
  for (size_t i = first; i < order_.size(); ++i) {
    text.Append(text.empty() ? " ORDER BY " : ",");
    text.Append(session_.driver().OrderText(table_, order_[i], direction == Direction::Backward));
  }
  return text;
}

std::vector<SqlWalk::Range> SqlWalk::RangesBehind(Direction direction, const SqlRow& row) const {
  std::vector<Range> ranges;
  for (size_t i = order_.size(); i-- > 0;) {
    const SqlTerm& term = order_[i];
    const bool nulls_first = term.nulls_first == (direction == Direction::Forward);
    if (!row[static_cast<size_t>(term.column)].is_null()) {
      ranges.push_back({i, Range::Rest::Beyond});
      if (!nulls_first) ranges.push_back({i, Range::Rest::Null});
    } else if (nulls_first) {
      ranges.push_back({i, Range::Rest::NotNull});
    }
  }
  return ranges;
}

void SqlWalk::AppendWhere(const Range& range, Direction direction, const SqlRow* row,
                          SqlStatement& statement) const {
  const SqlDriver& driver = session_.driver();
  std::string_view link = " WHERE ";
  const auto join = [&] {
    statement.text.Append(link);
    link = " AND ";
  };
  if (condition_ != nullptr) {
    // Its marks are the first.
    assert(statement.parameters.empty());
    join();
    statement.text.Append(String::Concat({"(", condition_->text, ")"}));
    statement.parameters = condition_->parameters;
  }
  for (size_t i = 0; i < range.equal; ++i) {
    join();
    AppendEqual(order_[i], *row, statement);
  }
  if (range.rest == Range::Rest::All) return;
  const SqlTerm& term = order_[range.equal];
  join();
  statement.text.Append(driver.TermText(table_, term));
  if (range.rest == Range::Rest::Null) {
    statement.text.Append(" IS NULL");
  } else if (range.rest == Range::Rest::NotNull) {
    statement.text.Append(" IS NOT NULL");
  } else {
    const bool rising = term.descending != (direction == Direction::Forward);
    statement.parameters.push_back((*row)[static_cast<size_t>(term.column)]);
    statement.text.Append(rising ? ">" : "<");
    statement.text.Append(driver.ValueText(table_, term, statement.parameters.size()));
  }
}

// --- Blocks ----------------------------------------------------------------------------------

void SqlWalk::BeginBlock(Direction direction) {
  Drop();
  block_.clear();
  direction_ = direction;
}

bool SqlWalk::ReadBehind(Direction direction, const SqlRow* row, int64_t wanted) {
  BeginBlock(direction);
  block_changes_ = session_.changes();
  block_locks_ = named_locks;
  const std::vector<Range> ranges =
      row == nullptr ? std::vector<Range>{{0, Range::Rest::All}} : RangesBehind(direction, *row);
  int64_t left = wanted;
  for (const Range& range : ranges) {
    SqlStatement statement;
    statement.text = String::Concat({"SELECT ", ColumnList(), " FROM ", table_.text});
    AppendWhere(range, direction, row, statement);
    const bool equal_there = range.rest == Range::Rest::Null;
    statement.text.Append(OrderFrom(range.equal + (equal_there ? 1 : 0), direction));
    statement.text.Append(" LIMIT " + PrintInteger(left));
    SqlResult result;
    if (!session_.Read(statement, {left}, result, error_)) return false;
    const bool cut = result.yielded > static_cast<int64_t>(result.rows.size());
    left -= static_cast<int64_t>(result.rows.size());
    std::move(result.rows.begin(), result.rows.end(), std::back_inserter(block_));
    if (left <= 0 || cut) break;
  }
  SqlFault fault;
  return row == nullptr || block_.empty() ||
         session_.driver().MayFollow(order_, *row, block_.back(), direction == Direction::Backward,
                                     fault) ||
         session_.Failed(fault, error_);
}

bool SqlWalk::InBlock(const SqlSpot& spot) const {
  return spot.block == block_number_ && block_changes_ == session_.changes() &&
         block_locks_ == named_locks;
}

void SqlWalk::TakeFromBlock(size_t place, SqlSpot& spot) {
  spot.row = block_[place];
  spot.block = block_number_;
  spot.place = place;
  spot.position = kept() ? first_position_ + static_cast<int64_t>(place) : 0;
}

bool SqlWalk::ReadPositions(Direction direction, int64_t position) {
  BeginBlock(direction);
  const bool forward = direction == Direction::Forward;
  first_position_ = forward ? position : std::max<int64_t>(1, position - kMostAhead + 1);
  const int64_t wanted = forward ? kMostAhead : position - first_position_ + 1;
  if (!session_.ReadKept(kept_id_, first_position_, {wanted}, block_, error_)) return false;
  // Large rows may end the block before it gets to the position.
  if (first_position_ + static_cast<int64_t>(block_.size()) > position) return true;
  first_position_ = position;
  return session_.ReadKept(kept_id_, position, {1}, block_, error_);
}

bool SqlWalk::ToPosition(Direction direction, int64_t position, SqlSpot& spot, bool& found) {
  found = position >= 1 && position <= kept_count_;
  if (!found) return true;
  const int64_t last = first_position_ + static_cast<int64_t>(block_.size());
  if (position < first_position_ || position >= last) {
    if (!ReadPositions(direction, position)) return false;
  }
  found = position < first_position_ + static_cast<int64_t>(block_.size());
  if (found) TakeFromBlock(static_cast<size_t>(position - first_position_), spot);
  return true;
}

// --- Moves -----------------------------------------------------------------------------------

bool SqlWalk::ToEnd(Direction direction, SqlSpot& spot, bool& found) {
  const bool forward = direction == Direction::Forward;
  if (kept()) return ToPosition(direction, forward ? 1 : kept_count_, spot, found);
  ahead_ = kFirstAhead;
  if (!ReadBehind(direction, nullptr, 1)) return false;
  found = !block_.empty();
  if (found) TakeFromBlock(0, spot);
  return true;
}

bool SqlWalk::Step(Direction direction, SqlSpot& spot, bool& found) {
  if (kept()) {
    return ToPosition(direction, spot.position + (direction == Direction::Forward ? 1 : -1), spot,
                      found);
  }
  if (InBlock(spot)) {
    const bool onward = direction == direction_;
    if (onward ? spot.place + 1 < block_.size() : spot.place > 0) {
      TakeFromBlock(onward ? spot.place + 1 : spot.place - 1, spot);
      found = true;
      return true;
    }
  } else {
    ahead_ = kFirstAhead;
  }
  const SqlRow from = std::move(spot.row);
  const bool read = ReadBehind(direction, &from, ahead_);
  found = read && !block_.empty();
  if (found) {
    TakeFromBlock(0, spot);
  } else {
    spot.row = from;
  }
  ahead_ = std::min(ahead_ * 4, kMostAhead);
  return read;
}

bool SqlWalk::ReadOne(const SqlStatement& statement, SqlSpot& spot, bool& found) {
  SqlResult result;
  if (!session_.Read(statement, {1}, result, error_)) return false;
  found = !result.rows.empty();
  if (found) spot = {std::move(result.rows[0]), 0, 0, 0};
  return true;
}

bool SqlWalk::Reread(SqlSpot& spot, bool& found) {
  if (kept()) return ToPosition(Direction::Forward, spot.position, spot, found);
  SqlStatement statement;
  statement.text = String::Concat({"SELECT ", ColumnList(), " FROM ", table_.text, " WHERE "});
  AppendKey(spot.row, statement);
  return ReadOne(statement, spot, found);
}

bool SqlWalk::AtNumber(int64_t number, SqlSpot& spot, bool& found) {
  found = false;
  if (number < 1) return true;
  if (kept()) return ToPosition(Direction::Forward, number, spot, found);
  SqlStatement statement;
  statement.text = String::Concat({"SELECT ", ColumnList(), " FROM ", table_.text});
  if (NumberColumn() >= 0) {
    SqlCondition condition;
    if (!session_.driver().FindCondition(table_, table_.key[0], PrintInteger(number), false, 1,
                                         condition)) {
      return true;
    }
    statement.text.Append(" WHERE " + condition.text);
    statement.parameters = std::move(condition.parameters);
  } else {
    statement.text.Append(String::Concat(
        {OrderFrom(0, Direction::Forward), " LIMIT 1 OFFSET ", PrintInteger(number - 1)}));
  }
  return ReadOne(statement, spot, found);
}

// --- Numbers ---------------------------------------------------------------------------------

bool SqlWalk::CountWhere(const Range& range, Direction direction, const SqlRow* row,
                         int64_t& count) {
  SqlStatement statement;
  statement.text = String::Concat({"SELECT count(*) FROM ", table_.text});
  AppendWhere(range, direction, row, statement);
  SqlResult result;
  if (!session_.Read(statement, {1}, result, error_)) return false;
  const SqlValue& value = result.rows[0][0];
  count += value.kind == SqlValue::Kind::Integer ? value.integer : ReadInteger64(value.text);
  return true;
}

bool SqlWalk::NumberOf(const SqlSpot& spot, int64_t& number) {
  if (kept()) {
    number = spot.position;
    return true;
  }
  const int column = NumberColumn();
  if (column >= 0) {
    const SqlValue& value = spot.row[static_cast<size_t>(column)];
    number = value.kind == SqlValue::Kind::Integer ? value.integer : ReadInteger64(value.text);
    return true;
  }
  number = 1;
  for (const Range& range : RangesBehind(Direction::Backward, spot.row)) {
    if (!CountWhere(range, Direction::Backward, &spot.row, number)) return false;
  }
  return true;
}

bool SqlWalk::Count(int64_t& count) {
  count = kept_count_;
  if (kept()) return true;
  count = 0;
  return CountWhere({}, Direction::Forward, nullptr, count);
}

}  // namespace vexa
