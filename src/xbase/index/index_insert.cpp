// Inserting into an index tree; see index_file.h.

#include <utility>

#include "xbase/index/index_file.h"

namespace vexa {

namespace {

// Processes that died may have left numbered pages that were never written; many more than that
// means the count is wrong.
constexpr uint64_t kMostUnwrittenBytes = 64 << 20;

}  // namespace

int ZDXIndexFile::Insert(uint32_t recordnum, std::string_view key) {
  KeepCursorEntry();
  RangeLock lock;
  if (!Enter(lock, FileLockType::Exclusive)) return 0;
  if (DoInsert({recordnum, CutKey(key)}) != 0) return 1;
  header_is_stale_ = true;
  return 0;
}

// Pushes the pages down to the leaf. Fails when the index is unique and the key is there.
bool ZDXIndexFile::DescendToInsert(const ZDXIndexEntry& entry) {
  const SearchKey wanted(entry.key, 1, header_.flags);
  stack_.Clear();
  uint32_t page = header_.startingpage;
  while (page != 0) {
    if (PushPage(page) == 0) return false;
    ZDXIndexPage& top = stack_.Top();
    int order = 1;
    while (top.cursor < top.numentries()) {
      order = wanted.Compare(top.key(top.cursor));
      if (order <= 0) break;
      ++top.cursor;
    }
    if (order == 0 && (header_.flags & kIndexUnique) != 0) {
      error_ = UniqueMessage(errorpath_, entry.key);
      return false;
    }
    page = top.childpage(top.cursor);
  }
  return true;
}

bool ZDXIndexFile::AllocatePage(uint32_t& number) {
  const int64_t length = gathered_ != nullptr ? lock_stamp_.length : file_->Length();
  if (length < 0) return Fail("reading from", ": " + file_->error());
  const uint64_t size = header_.shape.pagesize;
  const auto bytes = static_cast<uint64_t>(length);
  // A count that is too small would put the new page over one in use.
  if (header_.numpages * size < bytes || header_.numpages == UINT32_MAX ||
      header_.numpages * size > bytes + kMostUnwrittenBytes) {
    return FailCorrupt();
  }
  number = header_.numpages++;
  return true;
}

// Moves the upper half of an overfull page to `newpage`; the key between them is promoted.
void ZDXIndexFile::Split(ZDXIndexPage& page, ZDXIndexPage& newpage, ZDXIndexEntry& promoted) const {
  const uint32_t total = page.numentries();
  const uint32_t middle = total - 1 - total / 2;
  promoted = page.entry(middle);
  newpage.Setchildpage(0, page.childpage(middle + 1));
  for (uint32_t i = middle + 1; i < total; ++i) {
    newpage.Insert(newpage.numentries(), page.childpage(i + 1), page.entry(i));
  }
  page.Setnumentries(middle);
}

int ZDXIndexFile::DoInsert(ZDXIndexEntry entry) {
  if (!DescendToInsert(entry)) return 0;
  std::vector<ZDXIndexPage> created;
  uint32_t child = 0;
  size_t level = stack_.depth();
  bool promoting = true;
  while (promoting && level > 0) {
    ZDXIndexPage& page = stack_.At(--level);
    page.Insert(page.cursor, child, entry);
    promoting = page.numentries() > header_.shape.order;
    if (!promoting) break;
    if (!AllocatePage(child)) return 0;
    created.emplace_back().Clear(child, header_.shape);
    Split(page, created.back(), entry);
  }
  uint32_t newroot = 0;
  if (promoting) {
    if (!AllocatePage(newroot)) return 0;
    ZDXIndexPage& root = created.emplace_back();
    root.Clear(newroot, header_.shape);
    root.Setchildpage(0, header_.startingpage);
    root.Insert(0, child, entry);
  }
  return WriteInsertion(created, level, newroot) ? 1 : 0;
}

bool ZDXIndexFile::WriteInsertion(const std::vector<ZDXIndexPage>& created, size_t first_changed,
                                  uint32_t newroot) {
  if (!created.empty() && WriteHeader() == 0) return false;
  for (const ZDXIndexPage& page : created) {
    if (WritePage(page) == 0) return false;
  }
  if (newroot != 0) {
    header_.startingpage = newroot;
    if (WriteHeader() == 0) return false;
  }
  // From the top down: a page gives keys away only after its parent refers to where they are.
  for (size_t level = first_changed; level < stack_.depth(); ++level) {
    if (WritePage(stack_.At(level)) == 0) return false;
  }
  ++header_.updatecount;
  return WriteHeader() != 0;
}

}  // namespace vexa
