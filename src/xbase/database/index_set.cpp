// Opening and locking indexes, and making keys; see index_set.h.

#include "xbase/database/index_set.h"

#include <algorithm>
#include <utility>

#include "core/encoding.h"
#include "core/text.h"

namespace vexa {

DataResult XBaseIndexSet::OpenMember(const String& name, std::unique_ptr<Member>& member) {
  String path;
  if (host_.ResolvePath(name, path, PathType::DataPath, error_) == 0) return DataResult::Failed;
  member = std::make_unique<Member>(host_.filemanager());
  if (member->index.Open(name, path, name) == 0) {
    error_ = EntityEncoded(member->index.error());
    return DataResult::Failed;
  }
  return record_.ParseKey(name, member->index.KeyExpression(), member->key, error_);
}

DataResult XBaseIndexSet::Open(const String& list) {
  Members opened;
  for (PieceReader names(list, ","); names.Next();) {
    const std::string_view name = Stripped(names.piece());
    if (name.empty()) continue;
    std::unique_ptr<Member> member;
    const DataResult result = OpenMember(name, member);
    if (result != DataResult::Done) return result;
    for (const auto& other : opened) {
      // Every change would be made twice.
      if (other->index.filepath() != member->index.filepath()) continue;
      error_ = String::Concat({"Index '", EntityEncoded(name), "' is listed twice"});
      return DataResult::Failed;
    }
    opened.push_back(std::move(member));
  }
  ++version_;
  members_ = std::move(opened);
  primary_ = members_.empty() ? nullptr : members_.front().get();
  return DataResult::Done;
}

void XBaseIndexSet::Add(std::unique_ptr<Member> member) {
  ++version_;
  Member* const opened = member.get();
  const auto former = std::find_if(members_.begin(), members_.end(), [&](const auto& other) {
    return other->index.filepath() == opened->index.filepath();
  });
  if (former == members_.end()) {
    members_.push_back(std::move(member));
    if (members_.size() == 1) primary_ = opened;
    return;
  }
  if (primary_ == former->get()) primary_ = opened;
  *former = std::move(member);
}

bool XBaseIndexSet::unfinished() const {
  return std::any_of(members_.begin(), members_.end(),
                     [](const auto& member) { return member->index.file().unfinished(); });
}

void XBaseIndexSet::ForgetUnfinished() {
  for (const auto& member : members_) member->index.file().ForgetUnfinished();
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

DataResult XBaseIndexSet::Key(const Member& member, String& key) {
  const DataResult evaluated = record_.EvaluateKey(member.index.name(), member.key, key);
  if (evaluated == DataResult::Failed) error_ = EntityEncoded(record_.table().error());
  if (evaluated != DataResult::Done) return evaluated;
  // What an entry holds, so that keys are compared as they stand in the index.
  const std::string_view text = key.view().substr(0, key.view().find('\0'));
  key.Truncate(std::min<size_t>(text.size(), member.index.Shape().keysize() - 1));
  return DataResult::Done;
}

DataResult XBaseIndexSet::Keys(std::vector<String>& keys) {
  keys.clear();
  for (const auto& member : members_) {
    const DataResult result = Key(*member, keys.emplace_back());
    if (result != DataResult::Done) return result;
  }
  return DataResult::Done;
}

DataResult XBaseIndexSet::OriginalKey(const Member& member, String& key) {
  record_.table().SwapOriginal();
  const DataResult result = Key(member, key);
  record_.table().SwapOriginal();
  return result;
}

DataResult XBaseIndexSet::Lock(std::vector<XBaseIndexLock>& locks) {
  std::vector<XBaseIndex*> ordered;
  for (const auto& member : members_) ordered.push_back(&member->index);
  std::sort(ordered.begin(), ordered.end(), [](XBaseIndex* a, XBaseIndex* b) {
    return a->realpath().view() < b->realpath().view();
  });
  for (XBaseIndex* index : ordered) {
    if (locks.emplace_back().Take(*index)) continue;
    error_ = EntityEncoded(index->error());
    locks.clear();
    return DataResult::Failed;
  }
  return DataResult::Done;
}

}  // namespace vexa
