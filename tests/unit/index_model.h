// IndexModel: what an index must hold, as a plain list of entries in order, and a walk through the
// bytes of an index file that checks the invariants of its tree.

#ifndef VEXA_TESTS_UNIT_INDEX_MODEL_H_
#define VEXA_TESTS_UNIT_INDEX_MODEL_H_

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "core/byte_order.h"
#include "xbase/index/index_header.h"

namespace vexa {

class IndexModel {
 public:
  struct Entry {
    std::string key;
    uint32_t record;
    friend bool operator==(const Entry&, const Entry&) = default;
  };

  explicit IndexModel(uint32_t flags) : flags_(flags) {}

  // The order of two keys. Simpler than the tested code: only for keys that are all numbers or
  // none.
  [[nodiscard]] int Compare(const std::string& a, const std::string& b) const {
    int order = a.compare(b);
    if ((flags_ & kIndexString) == 0 && IsNumber(a) && IsNumber(b)) {
      const double difference = std::strtod(a.c_str(), nullptr) - std::strtod(b.c_str(), nullptr);
      order = difference < 0 ? -1 : difference > 0 ? 1 : 0;
    }
    return (flags_ & kIndexDescending) != 0 ? -order : order;
  }
  // Where the first entry not less than `key` is.
  [[nodiscard]] size_t LowerBound(const std::string& key) const {
    return static_cast<size_t>(
        std::partition_point(entries_.begin(), entries_.end(),
                             [&](const Entry& entry) { return Compare(key, entry.key) > 0; }) -
        entries_.begin());
  }
  [[nodiscard]] bool Holds(const std::string& key) const {
    const size_t at = LowerBound(key);
    return at < entries_.size() && Compare(key, entries_[at].key) == 0;
  }
  // A new entry comes before those that are equal.
  void Insert(uint32_t record, const std::string& key) {
    entries_.insert(entries_.begin() + static_cast<ptrdiff_t>(LowerBound(key)), {key, record});
  }
  void Erase(size_t at) { entries_.erase(entries_.begin() + static_cast<ptrdiff_t>(at)); }
  [[nodiscard]] const std::vector<Entry>& entries() const { return entries_; }

 private:
  static bool IsNumber(const std::string& key) {
    char* end;
    (void)std::strtod(key.c_str(), &end);
    return end == key.c_str() + key.size();
  }

  uint32_t flags_;
  std::vector<Entry> entries_;
};

// The tree in `bytes`: its entries in order, and the first invariant that does not hold.
struct TreeWalk {
  std::vector<IndexModel::Entry> entries;
  std::string fault;
};

// Recurses, which is all right here: the files are the test's own.
class TreeWalker {
 public:
  static TreeWalk Walk(const std::string& bytes) {
    TreeWalker walker(bytes);
    const uint32_t root = Get32(bytes.data() + 13);
    if (root == 0 || root >= walker.pages_) walker.Fault("the root is outside");
    walker.Visit(root, 0);
    if (bytes.size() > size_t{walker.pages_} * walker.pagesize_) {
      walker.Fault("there are more pages than counted");
    }
    return walker.walk_;
  }

 private:
  explicit TreeWalker(const std::string& bytes)
      : bytes_(bytes),
        pages_(Get32(bytes.data() + 9)),
        order_(Get16(bytes.data() + 17)),
        pagesize_(Get16(bytes.data() + 19)),
        width_(Get16(bytes.data() + 21)) {}

  void Fault(const std::string& text) {
    if (walk_.fault.empty()) walk_.fault = text;
  }
  void Visit(uint32_t number, size_t depth) {
    if (!walk_.fault.empty()) return;
    if (number >= pages_ || !reached_.insert(number).second ||
        size_t{number + 1} * pagesize_ > bytes_.size()) {
      return Fault("page " + std::to_string(number) + " is outside or reached twice");
    }
    const char* page = bytes_.data() + size_t{number} * pagesize_;
    const uint32_t count = Get32(page);
    const uint32_t fewest = depth == 0 ? 0 : std::max(1u, order_ / 2u - 1u);
    if (count < fewest || count > order_) {
      return Fault("page " + std::to_string(number) + " has " + std::to_string(count) + " keys");
    }
    const bool leaf = Get32(page + 4) == 0;
    if (leaf && leaf_depth_ == SIZE_MAX) leaf_depth_ = depth;
    if (leaf && leaf_depth_ != depth) return Fault("leaves at different depths");
    for (uint32_t i = 0; i <= count; ++i) {
      const char* entry = page + 4 + size_t{i} * width_;
      const uint32_t child = Get32(entry);
      if ((child == 0) != leaf) return Fault("page " + std::to_string(number) + " lacks a child");
      if (!leaf) Visit(child, depth + 1);
      if (i < count) walk_.entries.push_back({entry + 8, Get32(entry + 4)});
    }
  }

  const std::string& bytes_;
  uint32_t pages_;
  uint32_t order_;
  uint32_t pagesize_;
  uint32_t width_;
  std::set<uint32_t> reached_;
  size_t leaf_depth_ = SIZE_MAX;
  TreeWalk walk_;
};

}  // namespace vexa

#endif  // VEXA_TESTS_UNIT_INDEX_MODEL_H_
