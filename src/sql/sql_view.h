// SqlView: the way through the rows of a table, or of a query, and changes of the current row.
//
// A filter is evaluated here, for each row, so that it means the same whatever the server. A move
// that finds no row, and one that fails, leaves the current row as it was, edits included, and sets
// EOF to 1.

#ifndef VEXA_SQL_SQL_VIEW_H_
#define VEXA_SQL_SQL_VIEW_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "database.h"
#include "expr/expression.h"
#include "sql/sql_record.h"
#include "sql/sql_session.h"
#include "sql/sql_walk.h"

namespace vexa {

class SqlDatabase;

class SqlView final : public DatabaseView, private SqlCounts {
 public:
  // `database` owns the view; `table` is what the rows are.
  SqlView(SqlDatabase& database, String name, SqlTable table);

  [[nodiscard]] DataResult SetFilter(const String& expression) override;
  [[nodiscard]] DataResult RevealStructure(const String& database) override;
  [[nodiscard]] DataResult Skip(int rows) override;
  [[nodiscard]] DataResult Go(int64_t row) override;
  [[nodiscard]] DataResult Find(const String& value, int exact) override;
  [[nodiscard]] DataResult Add() override;
  [[nodiscard]] DataResult Update() override;
  [[nodiscard]] DataResult Delete() override;
  [[nodiscard]] DataResult UnDelete() override;
  [[nodiscard]] Variable* FindVariable(Symbol name) override { return record_.FindVariable(name); }
  [[nodiscard]] const String& name() const override { return name_; }
  [[nodiscard]] const String& error() const override { return error_; }

  // --- For the database ---
  // Its rows are those that the engine keeps under `id`. With `is_query` it belongs to no table.
  void Keep(int id, int64_t count, bool is_query);
  // The transaction in which they were kept; 0: none, or nothing is kept.
  [[nodiscard]] uint64_t kept_in() const { return walk_.kept() ? transaction_ : 0; }
  // Goes by `index` from now on, or by the key alone when it is null. Borrowed.
  void OrderBy(const SqlIndex* index);
  [[nodiscard]] const SqlTable& table() const { return table_; }
  [[nodiscard]] bool busy() const { return record_.busy(); }
  [[nodiscard]] String BusyMessage() const { return record_.BusyMessage(); }

 private:
  using Direction = SqlWalk::Direction;

  // `message` is no HTML yet. Returns Failed.
  DataResult Fail(std::string_view message);
  DataResult FailWalk();
  // Ends a move.
  DataResult Moved(DataResult result);
  [[nodiscard]] DataResult SkipRows(int64_t rows);
  [[nodiscard]] DataResult GoToEnd(Direction direction);
  [[nodiscard]] DataResult FindRow(const String& value, bool prefix);
  // Goes on from `spot` until a row passes the filter, which becomes the current one.
  [[nodiscard]] DataResult Search(Direction direction, SqlSpot spot, bool found);
  // Whether the row passes the filter: Done, EndOfData when it does not.
  [[nodiscard]] DataResult Try(const SqlSpot& spot);
  [[nodiscard]] DataResult Arrive(SqlSpot spot, bool found);

  // Whether rows may be changed now; else error() is set.
  [[nodiscard]] bool MayChange();
  // Takes the row that a change left.
  [[nodiscard]] DataResult Changed(SqlResult& result, std::string_view nothing);
  [[nodiscard]] std::optional<int64_t> TotalRows() override;
  [[nodiscard]] std::optional<int64_t> RowNumber() override;

  SqlDatabase& database_;
  SqlSession& session_;
  String name_;
  SqlTable table_;
  SqlWalk walk_;
  SqlRecord record_;
  Expression filter_;  // empty: none
  const SqlIndex* order_ = nullptr;
  bool is_query_ = false;
  uint64_t transaction_ = 0;
  // What was current before the move under way looked at others.
  std::optional<SqlRecord::State> former_;
  int64_t total_ = -1;  // -1: not counted
  uint64_t total_changes_ = 0;
  String error_;
};

}  // namespace vexa

#endif  // VEXA_SQL_SQL_VIEW_H_
