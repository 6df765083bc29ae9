// Searching and stepping through an index tree; see index_file.h.
//
// On the stack every page's cursor is the child it was left through on the way down; on the top
// page it is the entry the walk stands on. Because the keys before entry i are in child i, coming
// back up from child i means standing before entry i.

#include <utility>

#include "core/outside.h"
#include "xbase/index/index_file.h"

namespace vexa {

// --- On the stack ----------------------------------------------------------------------------

int ZDXIndexFile::PushPage(uint32_t number) {
  if (stack_.CheckForRecursion(number)) {
    FailCorrupt();
    return 0;
  }
  if (ReadPage(number, stack_.Push()) != 0) return 1;
  stack_.Pop();
  return 0;
}

bool ZDXIndexFile::DescendFirst(uint32_t page) {
  while (page != 0) {
    if (PushPage(page) == 0) return false;
    page = stack_.Top().childpage(0);
  }
  return true;
}

bool ZDXIndexFile::DescendLast(uint32_t page) {
  while (page != 0) {
    if (PushPage(page) == 0) return false;
    ZDXIndexPage& top = stack_.Top();
    top.cursor = top.numentries();
    page = top.childpage(top.cursor);
  }
  return true;
}

// Empties the stack, to be filled with pages read under the lock held now.
void ZDXIndexFile::BeginStack() {
  stack_.Clear();
  proven_ = !held_.held() && IsOld(lock_stamp_);
  stack_stamp_ = lock_stamp_;
}

bool ZDXIndexFile::Descend(const SearchKey& key) {
  BeginStack();
  uint32_t page = header_.startingpage;
  while (page != 0) {
    if (PushPage(page) == 0) return false;
    ZDXIndexPage& top = stack_.Top();
    while (top.cursor < top.numentries() && key.Compare(top.key(top.cursor)) > 0) ++top.cursor;
    page = top.childpage(top.cursor);
  }
  levels_ = stack_.depth();
  return SettleForward(Trust::Fresh) != Move::Failed;
}

ZDXIndexFile::Move ZDXIndexFile::TopIsUnchanged() {
  const ZDXIndexPage& top = stack_.Top();
  if (ReadPage(top.number(), scratch_) == 0) return Move::Failed;
  return scratch_.SameContent(top) ? Move::Done : Move::Changed;
}

ZDXIndexFile::Move ZDXIndexFile::SettleForward(Trust trust) {
  while (!stack_.empty() && stack_.Top().cursor >= stack_.Top().numentries()) {
    stack_.Pop();
    if (trust == Trust::Fresh || stack_.empty()) continue;
    const Move unchanged = TopIsUnchanged();
    if (unchanged != Move::Done) return unchanged;
  }
  return Move::Done;
}

ZDXIndexFile::Move ZDXIndexFile::SettleBackward(Trust trust) {
  while (!stack_.empty() && stack_.Top().cursor == 0) {
    stack_.Pop();
    if (trust == Trust::Fresh || stack_.empty()) continue;
    const Move unchanged = TopIsUnchanged();
    if (unchanged != Move::Done) return unchanged;
  }
  if (!stack_.empty()) --stack_.Top().cursor;
  return Move::Done;
}

// REQUIRES: the stack stands on an entry.
ZDXIndexFile::Move ZDXIndexFile::Advance(Direction direction, Trust trust) {
  if (trust == Trust::Verify) {
    const Move unchanged = TopIsUnchanged();
    if (unchanged != Move::Done) return unchanged;
  }
  ZDXIndexPage& top = stack_.Top();
  if (direction == Direction::Forward) {
    ++top.cursor;
    if (!DescendFirst(top.childpage(top.cursor))) return Move::Failed;
    return SettleForward(trust);
  }
  if (!DescendLast(top.childpage(top.cursor))) return Move::Failed;
  return SettleBackward(trust);
}

bool ZDXIndexFile::AdvanceFresh(Direction direction) {
  return Advance(direction, Trust::Fresh) != Move::Failed;
}

// Stands on the first entry (Forward) or the last.
bool ZDXIndexFile::GoToEnd(Direction direction) {
  BeginStack();
  Move move;
  if (direction == Direction::Forward) {
    if (!DescendFirst(header_.startingpage)) return false;
    move = SettleForward(Trust::Fresh);
  } else {
    if (!DescendLast(header_.startingpage)) return false;
    move = SettleBackward(Trust::Fresh);
  }
  return move != Move::Failed;
}

bool ZDXIndexFile::EntriesInFile(uint64_t& count) {
  // As the lock was taken, unless this process may have written since.
  int64_t length = lock_stamp_.length;
  if (held_.held() && gathered_ == nullptr) length = file_->Length();
  if (length < 0) return Fail("reading from", ": " + file_->error());
  count =
      (static_cast<uint64_t>(length) / header_.shape.pagesize + 1) * header_.shape.EntriesThatFit();
  return true;
}

// --- The cursor ------------------------------------------------------------------------------

void ZDXIndexFile::DropCursor() {
  stack_.Clear();
  positioned_ = false;
  stack_is_cursor_ = false;
  proven_ = false;
  steps_ = 0;
  most_steps_ = 0;
}

void ZDXIndexFile::KeepCursorEntry() {
  if (!stack_is_cursor_) return;
  position_ = stack_.Top().entry(stack_.Top().cursor);
  stack_is_cursor_ = false;
  proven_ = false;
}

// Makes the entry on the stack, if there is one, the cursor.
void ZDXIndexFile::Arrive(uint32_t& recordnum) {
  positioned_ = OnEntry();
  stack_is_cursor_ = positioned_;
  recordnum = positioned_ ? stack_.Top().recordnum(stack_.Top().cursor) : 0;
}

bool ZDXIndexFile::CursorEquals(std::string_view key) const {
  return positioned_ && Compare(key, CursorKey(), 1, header_.flags) == 0;
}

String ZDXIndexFile::CursorKey() const {
  if (!positioned_) return String();
  if (!stack_is_cursor_) return position_.key;
  return stack_.Top().key(stack_.Top().cursor);
}

int ZDXIndexFile::_First(uint32_t& recordnum) {
  recordnum = 0;
  const VainLooks looks(unchanged_);
  RangeLock lock;
  DropCursor();
  if (!Enter(lock, FileLockType::Shared) || !GoToEnd(Direction::Forward)) return 0;
  Arrive(recordnum);
  return 1;
}

int ZDXIndexFile::_Last(uint32_t& recordnum) {
  recordnum = 0;
  const VainLooks looks(unchanged_);
  RangeLock lock;
  DropCursor();
  if (!Enter(lock, FileLockType::Shared) || !GoToEnd(Direction::Backward)) return 0;
  Arrive(recordnum);
  return 1;
}

int ZDXIndexFile::_Next(uint32_t& recordnum) { return Step(Direction::Forward, recordnum) ? 1 : 0; }

int ZDXIndexFile::_Prev(uint32_t& recordnum) {
  return Step(Direction::Backward, recordnum) ? 1 : 0;
}

// A damaged tree may lead to the same pages again and again without ever being a cycle.
bool ZDXIndexFile::CountStep(Direction direction) {
  if (direction != direction_) steps_ = 0;
  direction_ = direction;
  if (++steps_ <= most_steps_) return true;
  if (!EntriesInFile(most_steps_)) return false;
  return steps_ <= most_steps_ || FailCorrupt();
}

bool ZDXIndexFile::Step(Direction direction, uint32_t& recordnum) {
  recordnum = 0;
  if (!positioned_) return true;
  const VainLooks looks(unchanged_);
  RangeLock lock;
  // 1. While nobody wrote to the file, header and pages are what they were.
  if (!held_.held() && !TakeLock(lock, FileLockType::Shared)) return false;
  Trust trust = Trust::Verify;
  if (!held_.held() && stack_is_cursor_ && proven_ && lock_stamp_ == stack_stamp_) {
    trust = Trust::Fresh;
  } else if (!Reenter(lock)) {
    return false;
  }
  if (!CountStep(direction)) return false;
  // 2. Along the pages on the stack.
  if (stack_is_cursor_) {
    if (trust == Trust::Verify && !held_.held() && IsOld(lock_stamp_)) ProveStack();
  }
  if (stack_is_cursor_) {
    const size_t depth = stack_.depth();
    const uint32_t cursor = stack_.Top().cursor;
    const Move move = Advance(direction, trust);
    if (move == Move::Done && OnEntry()) {
      Arrive(recordnum);
      return true;
    }
    // Back to where it was: popped pages are still there.
    stack_.SetDepth(depth);
    stack_.Top().cursor = cursor;
    if (move == Move::Done) return true;
    if (trust == Trust::Fresh) return false;
    KeepCursorEntry();
  }
  // 3. From the entry itself, through pages read anew.
  return StepAfresh(direction, recordnum);
}

// Under a lock that was just taken or is held already: what the header says now.
bool ZDXIndexFile::Reenter(RangeLock& lock) {
  if (held_.held()) return Enter(lock, FileLockType::Shared);
  if (ReadHeader() == 0) return false;
  return MarkOfIndex(header_bytes_) == 0 || RefuseMark();
}

// Reads all pages on the stack once more. When they are what they were, the stamp of the file tells
// from now on that they still are.
void ZDXIndexFile::ProveStack() {
  for (size_t level = 0; level < stack_.depth(); ++level) {
    const ZDXIndexPage& page = stack_.At(level);
    // What went wrong shows when the page is read for the step.
    if (ReadPage(page.number(), scratch_) == 0 || !scratch_.SameContent(page)) return;
  }
  proven_ = true;
  stack_stamp_ = lock_stamp_;
}

// A step from `position_` through pages read anew.
bool ZDXIndexFile::StepAfresh(Direction direction, uint32_t& recordnum) {
  bool found;
  if (!SeekEntry(position_.key, position_.recordnum, found)) return false;
  if (!found) {
    // The entry is gone; the first one behind its place is the next. A step back goes on from
    // there.
    if (!Descend(SearchKey(position_.key, 1, header_.flags))) return false;
    if (direction == Direction::Backward && !OnEntry()) {
      if (!GoToEnd(Direction::Backward)) return false;
      if (OnEntry()) Arrive(recordnum);
      return true;
    }
  }
  if (found || direction == Direction::Backward) {
    if (!AdvanceFresh(direction)) return false;
  }
  if (OnEntry()) Arrive(recordnum);
  return true;
}

// --- Searching -------------------------------------------------------------------------------

// Stands on the entry of `key` and `recordnum`. Equal keys are in no order of their own, so all
// entries from the first equal one on are looked at.
bool ZDXIndexFile::SeekEntry(std::string_view key, uint32_t recordnum, bool& found) {
  found = false;
  uint64_t most = 0;
  if (!EntriesInFile(most)) return false;
  if (!Descend(SearchKey(key, 1, header_.flags))) return false;
  for (uint64_t steps = 0; OnEntry(); ++steps) {
    if (stack_.Top().recordnum(stack_.Top().cursor) == recordnum) {
      found = true;
      return true;
    }
    if (steps > most) return FailCorrupt();
    if (!AdvanceFresh(Direction::Forward)) return false;
  }
  return true;
}

int ZDXIndexFile::_Seek(std::string_view key, uint32_t recordnum, bool& found) {
  found = false;
  const VainLooks looks(unchanged_);
  RangeLock lock;
  DropCursor();
  if (!Enter(lock, FileLockType::Shared)) return 0;
  if (key.size() >= header_.shape.keysize()) return 1;
  if (!SeekEntry(key, recordnum, found)) return 0;
  uint32_t reached;
  Arrive(reached);
  return 1;
}

// Stands on the first number that begins with the key, looking at all of them: those that begin
// alike are not neighbours in the order of numbers. Without one there is no entry.
bool ZDXIndexFile::ScanNumbers(std::string_view prefix) {
  uint64_t most = 0;
  if (!EntriesInFile(most) || !Descend(SearchKey::FirstNumber(header_.flags))) return false;
  for (uint64_t steps = 0; OnEntry(); ++steps) {
    const std::string_view key = stack_.Top().key(stack_.Top().cursor);
    double ignored;
    if (!KeyAsNumber(key, ignored)) break;
    if (key.starts_with(prefix)) return true;
    if (steps > most) return FailCorrupt();
    if (!AdvanceFresh(Direction::Forward)) return false;
  }
  stack_.Clear();
  return true;
}

// Stands on the first other key that begins with the key.
bool ZDXIndexFile::DescendToPrefix(std::string_view prefix) {
  const SearchKey wanted(prefix, 0, header_.flags);
  if (!Descend(wanted)) return false;
  if (OnEntry() && wanted.Compare(stack_.Top().key(stack_.Top().cursor)) != 0) stack_.Clear();
  return true;
}

int ZDXIndexFile::_Find(std::string_view key, int exact, uint32_t& recordnum) {
  recordnum = 0;
  const VainLooks looks(unchanged_);
  RangeLock lock;
  DropCursor();
  if (!Enter(lock, FileLockType::Shared)) return 0;
  if (key.size() >= header_.shape.keysize()) return 1;
  const SearchKey whole(key, 1, header_.flags);
  if (exact != 0) {
    if (!Descend(whole)) return 0;
    Arrive(recordnum);
    return 1;
  }
  if (!key.empty() && whole.is_number()) {
    if (!Descend(whole)) return 0;
    if (OnEntry() && whole.Compare(stack_.Top().key(stack_.Top().cursor)) == 0) {
      Arrive(recordnum);
      return 1;
    }
  }
  const bool may_be_number = (header_.flags & kIndexString) == 0 && MayBeginNumber(key);
  const bool numbers_first = (header_.flags & kIndexDescending) == 0;
  stack_.Clear();
  if (may_be_number && numbers_first && !ScanNumbers(key)) return 0;
  if (!OnEntry() && !DescendToPrefix(key)) return 0;
  if (!OnEntry() && may_be_number && !numbers_first && !ScanNumbers(key)) return 0;
  Arrive(recordnum);
  return 1;
}

bool ZDXIndexFile::CheckUnique(std::string_view key, uint32_t recordnum) {
  RangeLock lock;
  KeepCursorEntry();
  if (!Enter(lock, FileLockType::Shared)) return false;
  if ((header_.flags & kIndexUnique) == 0) return true;
  key = CutKey(key);
  const SearchKey wanted(key, 1, header_.flags);
  if (!Descend(wanted)) return false;
  if (!OnEntry()) return true;
  const ZDXIndexPage& page = stack_.Top();
  if (page.recordnum(page.cursor) == recordnum || wanted.Compare(page.key(page.cursor)) != 0) {
    return true;
  }
  error_ = UniqueMessage(errorpath_, key);
  return false;
}

}  // namespace vexa
