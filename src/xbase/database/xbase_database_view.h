// XBaseDatabaseView: the way through the records of an xbase3 database, and changes of the current
// record.
//
// Moving. The order is that of the primary index, else of record numbers. A filter hides records
// from every move but Go to a number and Skip(0). A move that finds no record, and one that fails,
// leaves the current record as it was, edits included, and sets EOF to 1.
//
// Changing. Table and indexes change together or not at all: what an operation does is gathered in
// a Change first (xbase/change). All locks are held from the check for uniqueness to the last
// write.

#ifndef VEXA_XBASE_DATABASE_XBASE_DATABASE_VIEW_H_
#define VEXA_XBASE_DATABASE_XBASE_DATABASE_VIEW_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>
#include <vector>

#include "database.h"
#include "expr/expression.h"
#include "xbase/database/record_walk.h"
#include "xbase/database/xbase_database.h"

namespace vexa {

class XBaseDatabaseView final : public DatabaseView {
 public:
  // `database` owns the view.
  explicit XBaseDatabaseView(XBaseDatabase& database);

  [[nodiscard]] DataResult SetFilter(const String& expression) override;
  [[nodiscard]] DataResult RevealStructure(const String& database) override;
  [[nodiscard]] DataResult Skip(int rows) override;
  [[nodiscard]] DataResult Go(int64_t row) override;
  [[nodiscard]] DataResult Find(const String& value, int exact) override;
  [[nodiscard]] DataResult Add() override;
  [[nodiscard]] DataResult Update() override;
  [[nodiscard]] DataResult Delete() override { return Mark(1); }
  [[nodiscard]] DataResult UnDelete() override { return Mark(0); }
  [[nodiscard]] Variable* FindVariable(Symbol name) override { return record_.FindVariable(name); }
  [[nodiscard]] const String& name() const override { return database_.name(); }
  [[nodiscard]] const String& error() const override { return error_; }

 private:
  using Direction = RecordWalk::Direction;
  // What an update does to an index.
  struct KeyChange {
    XBaseIndex* index;
    String old_key;
    String new_key;
  };

  // Messages; `message` is not HTML yet. Each returns Failed.
  DataResult Fail(std::string_view message);
  DataResult FailTable() { return Fail(database_.table().error()); }
  DataResult Passed(DataResult result);

  // Whether a move starts from the current record.
  enum class MoveKind { Absolute, Relative };
  // Runs `move`, which may read other records on its way, and comes back to the current record when
  // it does not find one.
  [[nodiscard]] DataResult Move(MoveKind kind, const std::function<DataResult()>& move);
  [[nodiscard]] DataResult SkipRows(int64_t rows);
  [[nodiscard]] DataResult GoToEnd(Direction direction);
  [[nodiscard]] DataResult GoToNumber(int64_t number);
  [[nodiscard]] DataResult FindKey(const String& value, int exact);
  [[nodiscard]] DataResult FindPrefixAnywhere(const String& value);
  // What a search is for, besides passing the filter.
  struct Search {
    Direction direction = Direction::Forward;
    std::function<bool()> wanted;  // about the entry the walk stands on; null: every one
    bool stop = false;             // at the first that is not wanted
  };
  // Goes on from `number`, to which the walk came.
  [[nodiscard]] DataResult SearchFrom(uint32_t number, const Search& search);
  // Reads record `number`, which the walk came to, and applies the filter: EndOfData when the
  // filter hides it.
  [[nodiscard]] DataResult Try(uint32_t number);
  [[nodiscard]] DataResult Read(int number);
  // Operations of the walk.
  [[nodiscard]] DataResult StandOnCurrent();
  [[nodiscard]] DataResult Step(Direction direction, uint32_t& number);
  [[nodiscard]] DataResult ToEnd(Direction direction, uint32_t& number);
  [[nodiscard]] DataResult FindEntry(const String& value, int exact, uint32_t& number);
  // Null when there is none.
  [[nodiscard]] XBaseIndex* primary();

  // Whether the current record is the same one in all places that know it, when `result` says so.
  [[nodiscard]] DataResult Checked(DataResult result) const;
  [[nodiscard]] DataResult MoveOnce(MoveKind kind, const std::function<DataResult()>& move);

  // Changes, in xbase_view_changes.cpp.
  [[nodiscard]] DataResult Mark(int deleted);
  [[nodiscard]] DataResult MarkLocked(int deleted);
  [[nodiscard]] DataResult AddLocked();
  [[nodiscard]] DataResult UpdateLocked();
  [[nodiscard]] DataResult CollectChanges(const std::vector<XBaseRecord::Edit>& edits,
                                          std::vector<KeyChange>& changes);
  [[nodiscard]] DataResult GatherKeys(const std::vector<KeyChange>& changes, Change& change);
  // Carries out what was gathered of table and indexes.
  [[nodiscard]] DataResult Commit(Change& change);
  DataResult FailIndex(const XBaseIndex& index) { return Fail(index.error()); }
  DataResult FailReplaced();

  XBaseDatabase& database_;
  XBaseRecord& record_;
  Expression filter_;  // empty: none
  // The walk of the move under way; in the order of an index it goes on from the index's cursor.
  std::optional<RecordWalk> walk_;
  bool walked_ = false;  // whether this move has used the walk
  // The record that the primary index's cursor stands on, 0 when unknown, and the state of indexes
  // and table for which that is so.
  int cursor_record_ = 0;
  int cursor_version_ = 0;
  int cursor_generation_ = 0;
  String error_;
};

}  // namespace vexa

#endif  // VEXA_XBASE_DATABASE_XBASE_DATABASE_VIEW_H_
