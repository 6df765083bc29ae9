// Deleting from an index tree; see index_file.h.
//
// A key in a leaf is taken out of it. A key in an inner page is replaced by its predecessor, which
// is always in a leaf and is taken out there. A page that is left with too few keys gets some from
// a sibling through their parent, or is merged with one; the parent may then have too few itself.

#include <algorithm>
#include <utility>

#include "xbase/index/index_file.h"

namespace vexa {

// A page with fewer keys is in underflow, the root excepted. Trees of the smallest orders still
// need one key a page.
uint32_t ZDXIndexFile::FewestKeys() const { return std::max(1u, header_.shape.order / 2u - 1u); }

int ZDXIndexFile::Delete(uint32_t recordnum, std::string_view key) {
  KeepCursorEntry();
  RangeLock lock;
  if (!Enter(lock, FileLockType::Exclusive)) return 0;
  if (DoDelete(CutKey(key), recordnum) != 0) return 1;
  header_is_stale_ = true;
  return 0;
}

// Stands on the entry to delete.
bool ZDXIndexFile::FindToDelete(std::string_view key, uint32_t recordnum) {
  const SearchKey wanted(key, 1, header_.flags);
  uint64_t most = 0;
  if (!EntriesInFile(most)) return false;
  const auto matches = [&](const ZDXIndexPage& page) {
    return page.recordnum(page.cursor) == recordnum;
  };
  if (!Descend(wanted)) return false;
  for (uint64_t steps = 0; OnEntry(); ++steps) {
    const ZDXIndexPage& page = stack_.Top();
    if (wanted.Compare(page.key(page.cursor)) != 0) break;
    if (matches(page)) return true;
    if (steps > most) return FailCorrupt();
    if (!AdvanceFresh(Direction::Forward)) return false;
  }
  // Numbers among other texts have no consistent order, so the way down may have missed the entry.
  if ((header_.flags & kIndexString) == 0) {
    if (!GoToEnd(Direction::Forward)) return false;
    for (uint64_t steps = 0; OnEntry(); ++steps) {
      const ZDXIndexPage& page = stack_.Top();
      if (matches(page) && page.key(page.cursor) == key) return true;
      if (steps > most) return FailCorrupt();
      if (!AdvanceFresh(Direction::Forward)) return false;
    }
  }
  error_ = "Record is not in index";
  return false;
}

int ZDXIndexFile::DoDelete(std::string_view key, uint32_t recordnum) {
  if (!FindToDelete(key, recordnum)) return 0;
  ZDXIndexPage& page = stack_.Top();
  const bool is_leaf = page.childpage(page.cursor) == 0 && page.childpage(page.cursor + 1) == 0;
  if (is_leaf) {
    page.Delete(page.cursor);
    if (WritePage(page) == 0) return 0;
  } else if (!ReplaceByPredecessor()) {
    return 0;
  }
  return RepairUnderflow() ? 1 : 0;
}

bool ZDXIndexFile::ReplaceByPredecessor() {
  const size_t inner_level = stack_.depth() - 1;
  ZDXIndexPage& inner = stack_.Top();
  if (!DescendLast(inner.childpage(inner.cursor))) return false;
  ZDXIndexPage& leaf = stack_.Top();
  // An inner page without a child, or with an empty leaf below it, is damage.
  if (stack_.depth() - 1 == inner_level || leaf.numentries() == 0) return FailCorrupt();
  inner.Setentry(inner.cursor, leaf.entry(leaf.numentries() - 1));
  if (WritePage(inner) == 0) return false;
  leaf.Setnumentries(leaf.numentries() - 1);
  return WritePage(leaf) != 0;
}

// From the page on top of the stack up to the root.
bool ZDXIndexFile::RepairUnderflow() {
  for (size_t level = stack_.depth() - 1; level > 0; --level) {
    ZDXIndexPage& page = stack_.At(level);
    if (page.numentries() >= FewestKeys()) return true;
    if (HandleUnderflow(page, stack_.At(level - 1)) == 0) return false;
  }
  return ShrinkRoot();
}

bool ZDXIndexFile::ShrinkRoot() {
  ZDXIndexPage& root = stack_.At(0);
  const uint32_t child = root.childpage(0);
  if (root.numentries() > 0 || child == 0) return true;
  header_.startingpage = child;
  if (WriteHeader() == 0) return false;
  root.Clear(root.number(), header_.shape);
  return WritePage(root) != 0;
}

bool ZDXIndexFile::ReadSibling(uint32_t number, ZDXIndexPage& sibling) {
  // A sibling that is on the way down already is damage, as is a missing one.
  if (number == 0 || stack_.CheckForRecursion(number)) return FailCorrupt();
  return ReadPage(number, sibling) != 0;
}

int ZDXIndexFile::HandleUnderflow(ZDXIndexPage& page, ZDXIndexPage& parent) {
  const uint32_t place = parent.cursor;
  const bool has_left = place > 0;
  const bool has_right = place < parent.numentries();
  ZDXIndexPage left;
  ZDXIndexPage right;
  if (has_left) {
    if (!ReadSibling(parent.childpage(place - 1), left)) return 0;
    if (left.numentries() > FewestKeys()) {
      return RedistributeFromLeft(left, page, parent) ? 1 : 0;
    }
  }
  if (has_right) {
    if (!ReadSibling(parent.childpage(place + 1), right)) return 0;
    if (right.numentries() > FewestKeys()) {
      return RedistributeFromRight(page, right, parent) ? 1 : 0;
    }
  }
  if (has_left) return Concatenate(left, page, parent, place - 1);
  if (has_right) return Concatenate(page, right, parent, place);
  return 1;
}

// Both redistributions even the two pages out.
bool ZDXIndexFile::RedistributeFromLeft(ZDXIndexPage& left, ZDXIndexPage& page,
                                        ZDXIndexPage& parent) {
  const uint32_t separator = parent.cursor - 1;
  uint32_t moves = std::max(1u, (left.numentries() - page.numentries()) / 2);
  for (; moves > 0; --moves) {
    const uint32_t last = left.numentries() - 1;
    page.InsertBefore(0, left.childpage(last + 1), parent.entry(separator));
    parent.Setentry(separator, left.entry(last));
    left.Setnumentries(last);
  }
  return WritePage(page) != 0 && WritePage(parent) != 0 && WritePage(left) != 0;
}

bool ZDXIndexFile::RedistributeFromRight(ZDXIndexPage& page, ZDXIndexPage& right,
                                         ZDXIndexPage& parent) {
  const uint32_t separator = parent.cursor;
  uint32_t moves = std::max(1u, (right.numentries() - page.numentries()) / 2);
  for (; moves > 0; --moves) {
    page.Insert(page.numentries(), right.childpage(0), parent.entry(separator));
    parent.Setentry(separator, right.entry(0));
    right.Delete(0);
  }
  return WritePage(page) != 0 && WritePage(parent) != 0 && WritePage(right) != 0;
}

// Puts the separating key and all of `right` into `left`.
int ZDXIndexFile::Concatenate(ZDXIndexPage& left, ZDXIndexPage& right, ZDXIndexPage& parent,
                              uint32_t separator) {
  if (left.numentries() + 1 + right.numentries() > header_.shape.EntriesThatFit()) {
    FailCorrupt();
    return 0;
  }
  left.Insert(left.numentries(), right.childpage(0), parent.entry(separator));
  for (uint32_t i = 0; i < right.numentries(); ++i) {
    left.Insert(left.numentries(), right.childpage(i + 1), right.entry(i));
  }
  parent.Setchildpage(separator + 1, left.number());
  parent.Delete(separator);
  if (WritePage(left) == 0 || WritePage(parent) == 0) return 0;
  // Nothing refers to it any more; emptying it tells cursors that stand in it.
  right.Clear(right.number(), header_.shape);
  return WritePage(right);
}

}  // namespace vexa
