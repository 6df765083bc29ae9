// Opening and locking indexes, and making keys; see index_set.h.

#include "xbase/database/index_set.h"

#include <algorithm>
#include <utility>

#include "core/encoding.h"
#include "core/text.h"

namespace vexa {

std::unique_ptr<XBaseIndexSet::Member> XBaseIndexSet::OpenMember(const String& name) {
  String path;
  error_.clear();
  if (host_.ResolvePath(name, path, PathType::DataPath, error_) == 0) return nullptr;
  auto member = std::make_unique<Member>(host_.filemanager());
  if (member->index.Open(name, path, name) == 0) {
    error_ = EntityEncoded(member->index.error());
    return nullptr;
  }
  error_.clear();
  if (!record_.Parse(member->index.KeyExpression(), member->key)) return nullptr;
  return member;
}

int XBaseIndexSet::Open(const String& list) {
  Members opened;
  for (PieceReader names(list, ","); names.Next();) {
    const std::string_view name = Stripped(names.piece());
    if (name.empty()) continue;
    auto member = OpenMember(name);
    if (member == nullptr) return 0;
    for (const auto& other : opened) {
      // Every change would be made twice.
      if (other->index.filepath() != member->index.filepath()) continue;
      error_ = String::Concat({"Index '", EntityEncoded(name), "' is listed twice"});
      return 0;
    }
    opened.push_back(std::move(member));
  }
  ++version_;
  members_ = std::move(opened);
  primary_ = members_.empty() ? nullptr : members_.front().get();
  return 1;
}

int XBaseIndexSet::Add(const String& name) {
  auto member = OpenMember(name);
  if (member == nullptr) return 0;
  ++version_;
  Member* const opened = member.get();
  const auto former = std::find_if(members_.begin(), members_.end(), [&](const auto& other) {
    return other->index.filepath() == opened->index.filepath();
  });
  if (former == members_.end()) {
    members_.push_back(std::move(member));
    if (members_.size() == 1) primary_ = opened;
    return 1;
  }
  if (primary_ == former->get()) primary_ = opened;
  *former = std::move(member);
  return 1;
}

XBaseIndex* XBaseIndexSet::SetPrimary(const String& name) {
  for (const auto& member : members_) {
    if (!(member->index.name() == name)) continue;
    ++version_;
    primary_ = member.get();
    return &member->index;
  }
  return nullptr;
}

void XBaseIndexSet::Close() {
  ++version_;
  primary_ = nullptr;
  members_.clear();
}

int XBaseIndexSet::Key(const Member& member, String& key) {
  error_.clear();
  if (!record_.Evaluate(member.key, key)) return 0;
  // What an entry holds, so that keys are compared as they stand in the index.
  const std::string_view text = key.view().substr(0, key.view().find('\0'));
  key.Truncate(std::min<size_t>(text.size(), member.index.Shape().keysize() - 1));
  return 1;
}

int XBaseIndexSet::Keys(std::vector<String>& keys) {
  keys.clear();
  for (const auto& member : members_) {
    if (Key(*member, keys.emplace_back()) == 0) return 0;
  }
  return 1;
}

int XBaseIndexSet::OriginalKey(const Member& member, String& key) {
  record_.table().SwapOriginal();
  const int result = Key(member, key);
  record_.table().SwapOriginal();
  return result;
}

int XBaseIndexSet::Lock(std::vector<XBaseIndexLock>& locks) {
  std::vector<XBaseIndex*> ordered;
  for (const auto& member : members_) ordered.push_back(&member->index);
  std::sort(ordered.begin(), ordered.end(), [](const XBaseIndex* a, const XBaseIndex* b) {
    return a->filepath().view() < b->filepath().view();
  });
  for (XBaseIndex* index : ordered) {
    if (locks.emplace_back().Take(*index) != 0) continue;
    error_ = EntityEncoded(index->error());
    locks.clear();
    return 0;
  }
  return 1;
}

}  // namespace vexa
