// Sorting keys and writing index pages in order; see index_builder.h.

#include "xbase/index/index_builder.h"

#include <algorithm>
#include <utility>

#include "xbase/change/journal.h"

namespace vexa {

namespace {

constexpr int kPermissionBits = 07777;

uint64_t HeadOf(std::string_view text) {
  uint64_t head = 0;
  for (size_t i = 0; i < 8; ++i) {
    head = head << 8 | (i < text.size() ? static_cast<unsigned char>(text[i]) : 0);
  }
  return head;
}

}  // namespace

XBaseIndexBuilder::XBaseIndexBuilder(FileManager& files, ZDXIndexSpec spec)
    : files_(files), spec_(std::move(spec)) {}

XBaseIndexBuilder::~XBaseIndexBuilder() {
  if (!newpath_.empty()) (void)files_.Delete(newpath_);
}

bool XBaseIndexBuilder::Fail(std::string_view action, std::string_view reason) {
  error_ = String::Concat({"Error ", action, " '", errorpath_, "': ", reason});
  return false;
}

// --- Sorting ---------------------------------------------------------------------------------

void XBaseIndexBuilder::Add(uint32_t recordnum, std::string_view text) {
  text = text.substr(0, text.find('\0')).substr(0, spec_.shape.keysize() - 1);
  Key key{text_.size(), static_cast<uint32_t>(text.size()), recordnum, HeadOf(text), 0};
  text_.append(text);
  const bool is_number = (spec_.flags & kIndexString) == 0 && KeyAsNumber(text, key.number);
  (is_number ? numbers_ : texts_).push_back(key);
}

int XBaseIndexBuilder::CompareTexts(const Key& a, const Key& b) const {
  if (a.head != b.head) return a.head < b.head ? -1 : 1;
  return Text(a).compare(Text(b));
}

int XBaseIndexBuilder::CompareNumbers(const Key& a, const Key& b) const {
  return a.number < b.number ? -1 : a.number > b.number ? 1 : 0;
}

template <typename Compare>
bool XBaseIndexBuilder::Sort(std::vector<Key>& keys, Compare compare) {
  std::sort(keys.begin(), keys.end(), [&](const Key& a, const Key& b) {
    const int order = compare(a, b);
    if (order == 0) return a.recordnum > b.recordnum;
    return Descending() ? order > 0 : order < 0;
  });
  if ((spec_.flags & kIndexUnique) == 0) return true;
  const auto twice = std::adjacent_find(
      keys.begin(), keys.end(), [&](const Key& a, const Key& b) { return compare(a, b) == 0; });
  if (twice == keys.end()) return true;
  error_ = ZDXIndexFile::UniqueMessage(errorpath_, Text(*twice));
  return false;
}

std::vector<XBaseIndexBuilder::Key> XBaseIndexBuilder::Merged() {
  if (numbers_.empty()) return std::move(texts_);
  if (texts_.empty()) return std::move(numbers_);
  std::vector<Key> merged = std::move(Descending() ? texts_ : numbers_);
  const std::vector<Key>& behind = Descending() ? numbers_ : texts_;
  merged.insert(merged.end(), behind.begin(), behind.end());
  return merged;
}

// --- Writing ---------------------------------------------------------------------------------

bool XBaseIndexBuilder::Write(const String& path, const String& errorpath) {
  uint64_t number;
  if (NewChangeNumber(number)) return Write(path, errorpath, number);
  errorpath_ = errorpath;
  return Fail("creating", "The system gives no random numbers");
}

bool XBaseIndexBuilder::Write(const String& path, const String& errorpath, uint64_t number) {
  path_ = path;
  errorpath_ = errorpath;
  if (spec_.keyexpression.length() > kLongestKeyExpression) {
    return Fail("creating", "The key expression is longer than 399 characters");
  }
  if (!spec_.shape.MakesSense()) return Fail("creating", "The page size makes no sense");
  if (!Sort(numbers_, [this](const Key& a, const Key& b) { return CompareNumbers(a, b); }) ||
      !Sort(texts_, [this](const Key& a, const Key& b) { return CompareTexts(a, b); })) {
    return false;
  }
  const String newpath = NewFileName(path_, number);
  file_ = files_.Open(newpath, OpenRead | OpenWrite | OpenCreate | OpenExclusive);
  if (file_ == nullptr) return Fail("creating", files_.error());
  newpath_ = newpath;
  if (files_.Exists(path_)) {
    const int mode = files_.Mode(path_);
    if (mode >= 0) (void)files_.ChangeMode(newpath_, mode & kPermissionBits);
  }
  if (!WriteTree(*file_, Merged())) return false;
  return file_->Sync() >= 0 || Fail("writing to", file_->error());
}

bool XBaseIndexBuilder::WriteTree(File& file, std::vector<Key> keys) {
  ZDXIndexHeader header;
  header.shape = spec_.shape;
  header.flags = spec_.flags;
  header.keyexpression = spec_.keyexpression;
  header.updatecount = static_cast<uint32_t>(keys.size());
  uint32_t number = 1;
  Level level{std::move(keys), {}};
  Level above;
  while (true) {
    if (!WriteLevel(file, level, number, above)) return false;
    if (above.keys.empty()) break;
    level = std::move(above);
    above = Level();
  }
  header.startingpage = number - 1;  // The top level is one page, and the last one written.
  header.numpages = number;
  return WriteHeader(file, header);
}

bool XBaseIndexBuilder::WriteLevel(File& file, const Level& level, uint32_t& number, Level& above) {
  // One place a page is left free, so that the next insertions do not split every page.
  const size_t keys_a_page = std::max(2, spec_.shape.order - 1);
  const size_t places = level.keys.size() + 1;  // Children, each but the last followed by a key.
  const size_t pages = (places + keys_a_page) / (keys_a_page + 1);
  ZDXIndexPage page;
  String reason;
  size_t at = 0;
  for (size_t i = 0; i < pages; ++i) {
    // Shared out evenly, so that no page has too few.
    const size_t end = places * (i + 1) / pages;
    page.Clear(number, spec_.shape);
    page.Setchildpage(0, level.children.empty() ? 0 : level.children[at]);
    for (; at + 1 < end; ++at) {
      const Key& key = level.keys[at];
      page.Insert(page.numentries(), level.children.empty() ? 0 : level.children[at + 1],
                  {key.recordnum, Text(key)});
    }
    if (page.WritePage(file, reason) == 0) return Fail("writing to", reason);
    if (i + 1 < pages) above.keys.push_back(level.keys[at]);
    above.children.push_back(number++);
    ++at;
  }
  return true;
}

bool XBaseIndexBuilder::WriteHeader(File& file, const ZDXIndexHeader& header) {
  char bytes[kIndexHeaderSize];
  header.Encode(bytes);
  String reason;
  if (WriteExactly(file, 0, bytes, kIndexHeaderSize, reason)) return true;
  return Fail("writing to", reason);
}

bool XBaseIndexBuilder::Install() {
  if (newpath_.empty()) return Fail("creating", "There is nothing to install");
  if (files_.FollowsLink(path_)) return Fail("creating", kNoReplacementOfLinks);
  if (files_.Rename(newpath_, path_) < 0) return Fail("creating", files_.error());
  newpath_.clear();
  return true;
}

}  // namespace vexa
