// RecordWalk: the way from one record to the next, in the order of an index or of record numbers.
// It knows numbers only: reading the records, and leaving out those that a filter hides, is for the
// view.
//
// Operations return false with the message in error(). The number is 0 where there is no record
// to go to; the walk then stays where it was.

#ifndef VEXA_XBASE_DATABASE_RECORD_WALK_H_
#define VEXA_XBASE_DATABASE_RECORD_WALK_H_

#include <cstdint>

#include "xbase/index/xbase_index.h"
#include "xbase/table/xbase_table.h"

namespace vexa {

class RecordWalk {
 public:
  enum class Direction { Forward, Backward };

  // Both are borrowed. `index` is null for the order of record numbers.
  RecordWalk(XBaseTable& table, XBaseIndex* index) : table_(table), index_(index) {}

  // Goes to the first record (Forward) or the last.
  [[nodiscard]] bool ToEnd(Direction direction, uint32_t& number);
  [[nodiscard]] bool Step(Direction direction, uint32_t& number);
  // Stands on record `number`, whose key is `key` in the index.
  [[nodiscard]] bool StandOn(uint32_t number, const String& key);

  [[nodiscard]] const String& error() const { return error_; }

 private:
  bool Passed(int result);
  [[nodiscard]] bool StepByNumber(Direction direction, uint32_t& number);

  XBaseTable& table_;
  XBaseIndex* index_;
  uint32_t number_ = 0;  // where the walk stands, in the order of numbers
  // The index has no entry for the record it stood on: `behind_` is the one behind its place, 0
  // when there is none.
  bool between_ = false;
  uint32_t behind_ = 0;
  String error_;
};

}  // namespace vexa

#endif  // VEXA_XBASE_DATABASE_RECORD_WALK_H_
