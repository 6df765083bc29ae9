// SqlWalk: the way from one row to the next, by key: the next rows are those behind the key of the
// last, whatever others added or deleted meanwhile. It knows rows only; filters and variables are
// for the view.
//
// "Behind" an order of several columns, with directions and NULLs of their own, is not one
// comparison but a few ranges, one after the other: rows that are equal in all columns but the last
// and behind in that, then those equal in all but the last two, and so on. Each range is asked for
// by itself, so that an index serves each.
//
//   order (a DESC, b, id), row (5, NULL, 7), forward:
//     a = 5 AND b IS NULL AND id > 7      ORDER BY id
//     a = 5 AND b IS NOT NULL             ORDER BY b, id
//     a < 5                               ORDER BY a DESC, b, id
//     a IS NULL                           ORDER BY b, id
//
// Rows without a key, and those of a query, are kept by the engine and read by their positions.
//
// Rows are read some hundred at a time. What was read ahead counts no more after any change by this
// page (SqlSession::changes), and when it takes a lock by a name.
//
// Operations return false with error() set. `found` is false where there is no row; the spot is
// then what it was.

#ifndef VEXA_SQL_SQL_WALK_H_
#define VEXA_SQL_SQL_WALK_H_

#include <cstdint>
#include <span>
#include <vector>

#include "core/string.h"
#include "sql/drivers/sql_driver.h"
#include "sql/sql_session.h"

namespace vexa {

// A row, and where it stands.
struct SqlSpot {
  SqlRow row;
  int64_t position = 0;  // from 1, of kept rows
  uint64_t block = 0;    // what it was read in, and its place there
  size_t place = 0;
};

class SqlWalk {
 public:
  enum class Direction { Forward, Backward };

  // Both are borrowed. `table` has a key, unless Keep is called first.
  SqlWalk(SqlSession& session, const SqlTable& table) : session_(session), table_(table) {}
  ~SqlWalk();
  SqlWalk(const SqlWalk&) = delete;
  SqlWalk& operator=(const SqlWalk&) = delete;

  // From here on the rows are those that the engine keeps under `id`.
  void Keep(int id, int64_t count);
  [[nodiscard]] bool kept() const { return kept_id_ != 0; }
  // Goes by `index`, or by the key alone when it is null.
  void OrderBy(const SqlIndex* index);
  // Only rows that fulfil it are met; null: all.
  void OnlyWhere(const SqlCondition* condition);
  // Forgets what was read ahead.
  void Drop() { ++block_number_; }

  [[nodiscard]] bool ToEnd(Direction direction, SqlSpot& spot, bool& found);
  [[nodiscard]] bool Step(Direction direction, SqlSpot& spot, bool& found);
  // The same row as the server has it now.
  [[nodiscard]] bool Reread(SqlSpot& spot, bool& found);
  // The row whose number is `number`.
  [[nodiscard]] bool AtNumber(int64_t number, SqlSpot& spot, bool& found);
  [[nodiscard]] bool NumberOf(const SqlSpot& spot, int64_t& number);
  [[nodiscard]] bool Count(int64_t& count);

  // Appends the condition that a row has the key of `row`, and its parameters.
  void AppendKey(const SqlRow& row, SqlStatement& statement) const;
  // The columns of rows, as statements list them.
  [[nodiscard]] String ColumnList() const;
  // The column whose value is a row's number, -1 when none is.
  [[nodiscard]] int NumberColumn() const;

  [[nodiscard]] const String& error() const { return error_; }

 private:
  // A range of rows behind one: equal in the first terms of the order, and then what the next is.
  struct Range {
    enum class Rest { Beyond, Null, NotNull, All };
    size_t equal = 0;
    Rest rest = Rest::All;
  };

  [[nodiscard]] std::vector<Range> RangesBehind(Direction direction, const SqlRow& row) const;
  // Writes the conditions of a range and of the search; whether there are any.
  void AppendWhere(const Range& range, Direction direction, const SqlRow* row,
                   SqlStatement& statement) const;
  void AppendEqual(const SqlTerm& term, const SqlRow& row, SqlStatement& statement) const;
  [[nodiscard]] String OrderFrom(size_t first, Direction direction) const;
  // Reads up to `wanted` rows behind `row` (null: from the end) into the block.
  [[nodiscard]] bool ReadBehind(Direction direction, const SqlRow* row, int64_t wanted);
  [[nodiscard]] bool ReadPositions(Direction direction, int64_t position);
  void BeginBlock(Direction direction);
  void TakeFromBlock(size_t place, SqlSpot& spot);
  [[nodiscard]] bool InBlock(const SqlSpot& spot) const;
  [[nodiscard]] bool ToPosition(Direction direction, int64_t position, SqlSpot& spot, bool& found);
  [[nodiscard]] bool CountWhere(const Range& range, Direction direction, const SqlRow* row,
                                int64_t& count);
  [[nodiscard]] bool ReadOne(const SqlStatement& statement, SqlSpot& spot, bool& found);

  SqlSession& session_;
  const SqlTable& table_;
  std::vector<SqlTerm> order_;
  const SqlCondition* condition_ = nullptr;
  int kept_id_ = 0;
  int64_t kept_count_ = 0;
  // What was read ahead, in the direction of reading; of kept rows rising.
  std::vector<SqlRow> block_;
  Direction direction_ = Direction::Forward;
  uint64_t block_number_ = 1;
  uint64_t block_changes_ = 0;
  uint64_t block_locks_ = 0;
  int64_t first_position_ = 0;
  int64_t ahead_ = 0;  // how many rows to read next
  String error_;
};

}  // namespace vexa

#endif  // VEXA_SQL_SQL_WALK_H_
