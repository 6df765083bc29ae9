// Moving through records; see xbase_database_view.h. Changes are in xbase_view_changes.cpp.
//
//   Move      what every move has in common: it saves the position, tries, restores it when no
//             record was found, and sets EOF. Go and Find begin anew when a pack came in between;
//             a skip fails then, because the record it counts from may have another number
//   SkipRows, GoToEnd, GoToNumber, FindKey
//             the moves: get to an entry of the order, then SearchFrom or count on from it
//   Try       reads a record and asks the filter; end of data means that it does not pass
//   Walk      StandOnCurrent, Step, ToEnd, FindEntry: the order of the primary index or of numbers.
//             The place in the index is kept from move to move while record, indexes and table are
//             those it was left at
//
// Each step takes and gives back its own shared lock, of the index or of the record: none is kept
// while a filter is evaluated.

#include "xbase/database/xbase_database_view.h"

#include <cassert>
#include <utility>

#include "core/encoding.h"
#include "core/number.h"
#include "xbase/index/index_key.h"

namespace vexa {

XBaseDatabaseView::XBaseDatabaseView(XBaseDatabase& database)
    : database_(database), record_(database.record()) {}

DataResult XBaseDatabaseView::Fail(std::string_view message) {
  error_ = EntityEncoded(message);
  return DataResult::Failed;
}

DataResult XBaseDatabaseView::Passed(DataResult result) {
  if (result == DataResult::Failed) error_ = database_.indexes().error();
  return result;
}

DataResult XBaseDatabaseView::Checked(DataResult result) const {
  assert(record_.IsSound());
  assert(result != DataResult::Failed || !error_.empty());
  return result;
}

XBaseIndex* XBaseDatabaseView::primary() {
  XBaseIndexSet::Member* const member = database_.indexes().primary();
  return member == nullptr ? nullptr : &member->index;
}

// --- The operations --------------------------------------------------------------------------

DataResult XBaseDatabaseView::SetFilter(const String& expression) {
  error_.clear();
  if (!database_.MayBegin(error_)) return DataResult::Failed;
  Expression filter;
  if (!record_.ParseFilter(expression, filter)) return DataResult::Reported;
  filter_ = std::move(filter);
  return DataResult::Done;
}

DataResult XBaseDatabaseView::Skip(int rows) {
  return Move(MoveKind::Relative, [&] { return SkipRows(rows); });
}

DataResult XBaseDatabaseView::Go(int64_t row) {
  database_.table().DropBlock();
  return Move(MoveKind::Absolute, [&] {
    if (row == kFirstRow) return GoToEnd(Direction::Forward);
    if (row == kLastRow) return GoToEnd(Direction::Backward);
    return GoToNumber(row);
  });
}

DataResult XBaseDatabaseView::Find(const String& value, int exact) {
  return Move(MoveKind::Absolute, [&] { return FindKey(value, exact); });
}

DataResult XBaseDatabaseView::Move(MoveKind kind, const std::function<DataResult()>& move) {
  error_.clear();
  if (!database_.MayBegin(error_)) return DataResult::Failed;
  return Checked(database_.Run(error_, [&] { return MoveOnce(kind, move); }));
}

DataResult XBaseDatabaseView::MoveOnce(MoveKind kind, const std::function<DataResult()>& move) {
  const XBaseTable& table = database_.table();
  const XBaseRecord::Position former = record_.Save();
  DataResult result;
  int generation;
  int tries = 0;
  walked_ = false;
  do {
    // A pack in between may have given the records other numbers than the walk went by.
    generation = table.generation();
    walk_.emplace(database_.table(), primary());
    result = move();
  } while (kind == MoveKind::Absolute && generation != table.generation() &&
           ++tries < kMostReplacements);
  if (kind == MoveKind::Relative && former.number != 0 && former.generation != table.generation()) {
    result = FailReplaced();
  }
  const bool found = result == DataResult::Done;
  if (!found && record_.Restore(former) == 0) result = FailTable();
  if (walked_) {
    cursor_record_ = found ? record_.current() : 0;
    cursor_version_ = database_.indexes().version();
    cursor_generation_ = table.generation();
  }
  record_.SetEOF(!found);
  return result;
}

DataResult XBaseDatabaseView::FailReplaced() {
  return Fail(String::Concat(
      {"The table '", database_.table().dataerrorpath(), "' was replaced by another process"}));
}

// --- What the moves are made of --------------------------------------------------------------

DataResult XBaseDatabaseView::SkipRows(int64_t rows) {
  if (record_.current() == 0) return DataResult::EndOfData;
  if (rows == 0) {
    database_.table().DropBlock();
    return Read(record_.current());
  }
  if (primary() == nullptr && filter_.empty()) return GoToNumber(record_.current() + rows);
  const Direction direction = rows > 0 ? Direction::Forward : Direction::Backward;
  const DataResult stands = StandOnCurrent();
  if (stands != DataResult::Done) return stands;
  for (int64_t left = rows > 0 ? rows : -rows; left > 0;) {
    uint32_t number;
    if (Step(direction, number) != DataResult::Done) return DataResult::Failed;
    if (number == 0) return DataResult::EndOfData;
    // Records on the way need not be read when there is no filter to ask.
    if (!filter_.empty() || left == 1) {
      const DataResult result = Try(number);
      if (result == DataResult::EndOfData) continue;
      if (result != DataResult::Done) return result;
    }
    --left;
  }
  return DataResult::Done;
}

DataResult XBaseDatabaseView::GoToEnd(Direction direction) {
  uint32_t number;
  if (ToEnd(direction, number) != DataResult::Done) return DataResult::Failed;
  return SearchFrom(number, {direction, nullptr, false});
}

DataResult XBaseDatabaseView::GoToNumber(int64_t number) {
  XBaseTable& table = database_.table();
  if (number < 1) return DataResult::EndOfData;
  if (number > table.numrecords() && !table.Refresh()) return FailTable();
  if (number > table.numrecords()) return DataResult::EndOfData;
  return Read(static_cast<int>(number));
}

DataResult XBaseDatabaseView::FindKey(const String& value, int exact) {
  XBaseIndex* const index = primary();
  if (index == nullptr) {
    return Fail(String::Concat({"Database '", name(), "' has no primary index"}));
  }
  uint32_t number;
  double ignored;
  const bool has_numbers = (index->Flags() & kIndexString) == 0;
  const bool is_number = !value.empty() && has_numbers && KeyAsNumber(value, ignored);
  if (exact != 0 || is_number) {
    if (FindEntry(value, 1, number) != DataResult::Done) return DataResult::Failed;
    const DataResult result =
        SearchFrom(number, {Direction::Forward, [&] { return index->CursorEquals(value); }, true});
    if (exact != 0 || result != DataResult::EndOfData) return result;
  }
  if (has_numbers && MayBeginNumber(value)) return FindPrefixAnywhere(value);
  if (FindEntry(value, 0, number) != DataResult::Done) return DataResult::Failed;
  return SearchFrom(number,
                    {Direction::Forward,
                     [&] { return index->CursorKey().view().starts_with(value.view()); }, true});
}

// Numbers that begin alike are not neighbours.
DataResult XBaseDatabaseView::FindPrefixAnywhere(const String& value) {
  XBaseIndex* const index = primary();
  uint32_t number;
  if (filter_.empty()) {
    if (FindEntry(value, 0, number) != DataResult::Done) return DataResult::Failed;
    return SearchFrom(number, {});
  }
  if (ToEnd(Direction::Forward, number) != DataResult::Done) return DataResult::Failed;
  return SearchFrom(number,
                    {Direction::Forward,
                     [&] { return index->CursorKey().view().starts_with(value.view()); }, false});
}

DataResult XBaseDatabaseView::SearchFrom(uint32_t number, const Search& search) {
  while (number != 0) {
    if (search.wanted == nullptr || search.wanted()) {
      const DataResult result = Try(number);
      if (result != DataResult::EndOfData) return result;
    } else if (search.stop) {
      return DataResult::EndOfData;
    }
    if (Step(search.direction, number) != DataResult::Done) return DataResult::Failed;
  }
  return DataResult::EndOfData;
}

DataResult XBaseDatabaseView::Try(uint32_t number) {
  const DataResult result = GoToNumber(number);
  if (result == DataResult::EndOfData && primary() != nullptr) {
    return Fail(String::Concat({"Index '", primary()->errorpath(), "' names record ",
                                PrintInteger(number), ", which is not in the table"}));
  }
  if (result != DataResult::Done || filter_.empty()) return result;
  String passes;
  const DataResult evaluated = record_.Evaluate(filter_, passes);
  if (evaluated == DataResult::Failed) return FailTable();
  if (evaluated != DataResult::Done) return evaluated;
  return Expression::IsTrue(passes) ? DataResult::Done : DataResult::EndOfData;
}

DataResult XBaseDatabaseView::Read(int number) {
  if (record_.Read(number) != 0) return DataResult::Done;
  // The table may have become shorter.
  const bool is_there = number <= database_.table().numrecords();
  return is_there || database_.table().unfinished() ? FailTable() : DataResult::EndOfData;
}

// --- The walk --------------------------------------------------------------------------------

DataResult XBaseDatabaseView::StandOnCurrent() {
  walked_ = true;
  const int current = record_.current();
  String key;
  if (primary() != nullptr) {
    XBaseIndexSet& indexes = database_.indexes();
    if (cursor_record_ == current && cursor_version_ == indexes.version() &&
        cursor_generation_ == database_.table().generation()) {
      return DataResult::Done;
    }
    const DataResult made = indexes.OriginalKey(*indexes.primary(), key);
    if (made != DataResult::Done) return Passed(made);
  }
  if (walk_->StandOn(static_cast<uint32_t>(current), key)) return DataResult::Done;
  return Fail(walk_->error());
}

DataResult XBaseDatabaseView::Step(Direction direction, uint32_t& number) {
  number = 0;
  if (database_.host().timedout()) return Fail("Timed out while looking for a record");
  return walk_->Step(direction, number) ? DataResult::Done : Fail(walk_->error());
}

DataResult XBaseDatabaseView::ToEnd(Direction direction, uint32_t& number) {
  walked_ = true;
  return walk_->ToEnd(direction, number) ? DataResult::Done : Fail(walk_->error());
}

DataResult XBaseDatabaseView::FindEntry(const String& value, int exact, uint32_t& number) {
  walked_ = true;
  return primary()->Find(value, exact, number) != 0 ? DataResult::Done : Fail(primary()->error());
}

}  // namespace vexa
