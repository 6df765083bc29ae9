// Doing and taking back; see index_changes.h.

#include "xbase/database/index_changes.h"

namespace vexa {

int IndexChanges::Insert(XBaseIndex& index, uint32_t number, const String& key) {
  if (index.Insert(number, key) == 0) return 0;
  done_.push_back({&index, true, number, key});
  return 1;
}

int IndexChanges::Delete(XBaseIndex& index, uint32_t number, const String& key) {
  if (index.Delete(number, key) == 0) return 0;
  done_.push_back({&index, false, number, key});
  return 1;
}

void IndexChanges::TakeBack() {
  for (; !done_.empty(); done_.pop_back()) {
    const Change& change = done_.back();
    // There is nobody left to tell of a second failure; the first one is being reported.
    if (change.inserted) {
      (void)change.index->Delete(change.number, change.key);
    } else {
      (void)change.index->Insert(change.number, change.key);
    }
  }
}

}  // namespace vexa
