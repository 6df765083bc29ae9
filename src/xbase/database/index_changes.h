// IndexChanges: insertions into and deletions from the indexes of a table that belong together.
// What was done can be taken back as long as the changes have not been kept.
//
//   IndexChanges changes;
//   if (changes.Insert(index, number, key) == 0 || table.Update() == 0) return 0;  // taken back
//   changes.Keep();

#ifndef VEXA_XBASE_DATABASE_INDEX_CHANGES_H_
#define VEXA_XBASE_DATABASE_INDEX_CHANGES_H_

#include <cstdint>
#include <vector>

#include "xbase/index/xbase_index.h"

namespace vexa {

class IndexChanges {
 public:
  IndexChanges() = default;
  // Takes back what was not kept.
  ~IndexChanges() { TakeBack(); }
  IndexChanges(const IndexChanges&) = delete;
  IndexChanges& operator=(const IndexChanges&) = delete;

  // Each returns 1, or 0 with the message in index.error(). `index` is borrowed.
  // REQUIRES: the caller holds the lock of `index` as long as the changes live.
  [[nodiscard]] int Insert(XBaseIndex& index, uint32_t number, const String& key);
  [[nodiscard]] int Delete(XBaseIndex& index, uint32_t number, const String& key);
  void Keep() { done_.clear(); }
  // Takes back what was done, last first. An index that cannot be written to any more keeps it.
  void TakeBack();

 private:
  struct Change {
    XBaseIndex* index;
    bool inserted;
    uint32_t number;
    String key;
  };
  std::vector<Change> done_;
};

}  // namespace vexa

#endif  // VEXA_XBASE_DATABASE_INDEX_CHANGES_H_
