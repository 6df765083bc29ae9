// Building indexes from all records, and packing; see xbase_database.h.
//
// All that can fail, an expression, two equal keys, a full disk, does so while the new indexes are
// written beside the old ones. They are put in place at the very end.

#include <algorithm>
#include <utility>

#include "core/encoding.h"
#include "core/text.h"
#include "xbase/database/xbase_database.h"
#include "xbase/database/xbase_database_view.h"

namespace vexa {

namespace {

constexpr std::string_view kIndexExtension = ".vxx";

struct FlagWord {
  std::string_view word;
  uint32_t set;
  uint32_t clear;
};
constexpr FlagWord kFlagWords[] = {{"ascending", 0, kIndexDescending},
                                   {"descending", kIndexDescending, 0},
                                   {"unique", kIndexUnique, 0},
                                   {"nounique", 0, kIndexUnique},
                                   {"string", kIndexString, 0}};

// Reads a list of flags. 1, or 0 with `message` set.
int ParseFlags(const String& list, uint32_t& flags, String& message) {
  flags = 0;
  for (PieceReader pieces(list, ","); pieces.Next();) {
    const std::string_view word = Stripped(pieces.piece());
    const auto* known =
        std::find_if(std::begin(kFlagWords), std::end(kFlagWords),
                     [word](const FlagWord& flag) { return EqualsIgnoreCase(flag.word, word); });
    if (known == std::end(kFlagWords)) {
      if (word.empty()) continue;
      message = String::Concat({"Unknown index flag '", word, "'"});
      return 0;
    }
    flags = (flags & ~known->clear) | known->set;
  }
  return 1;
}

bool HasIndexExtension(std::string_view path) {
  return path.size() >= kIndexExtension.size() &&
         EqualsIgnoreCase(path.substr(path.size() - kIndexExtension.size()), kIndexExtension);
}

}  // namespace

// --- Walking over all records ----------------------------------------------------------------

int XBaseDatabase::ForEachRecord(const std::function<int(int)>& visit) {
  const XBaseRecord::Position former = record_.Save();
  const int result = VisitRecords(visit);
  return record_.Restore(former) != 0 || result == 0 ? result : FailTable();
}

int XBaseDatabase::VisitRecords(const std::function<int(int)>& visit) {
  if (table_.Refresh() == 0) return FailTable();
  const int generation = table_.generation();
  for (int number = 1; number <= table_.numrecords(); ++number) {
    if (host_.timedout()) return Fail("Timed out while reading all records");
    if (record_.Read(number) == 0) return FailTable();
    if (generation != table_.generation()) {
      return Fail(String::Concat(
          {"The table '", table_.dataerrorpath(), "' was replaced by another process"}));
    }
    if (visit(number) == 0) return 0;
  }
  return 1;
}

// --- One new index ---------------------------------------------------------------------------

int XBaseDatabase::MayReplace(const String& name, const String& path) {
  FileManager& files = host_.filemanager();
  if (IsOpenTable(path)) {
    return Fail(
        String::Concat({"Error creating '", name, "': The file is in use by an open database"}));
  }
  // A damaged index may be made anew, but what is no index at all is kept.
  if (!files.Exists(path) || HasIndexExtension(path)) return 1;
  XBaseIndex index(files);
  return index.Open(name, path, name) != 0 ? 1 : Fail(index.error());
}

int XBaseDatabase::CreateIndex(const String& indexfile, const String& expression,
                               const String& flags) {
  error_.clear();
  if (!MayBegin(error_)) return 0;
  ZDXIndexSpec spec;
  spec.keyexpression = expression;
  String path;
  String message;
  if (ParseFlags(flags, spec.flags, message) == 0) return Fail(message);
  if (host_.ResolvePath(indexfile, path, PathType::DataPath, error_) == 0) return 0;
  if (MayReplace(indexfile, path) == 0) return 0;
  Expression key;
  if (!record_.Parse(expression, key)) return 0;
  {
    // Processes that have the index open that is there wait until it is replaced.
    XBaseIndex former(host_.filemanager());
    XBaseIndexLock lock;
    if (host_.filemanager().Exists(path) && former.Open(indexfile, path, indexfile) != 0 &&
        lock.Take(former) == 0) {
      return Fail(former.error());
    }
    const Holding holding(*this);
    XBaseIndexBuilder builder(host_.filemanager(), spec);
    if (BuildIndex(indexfile, path, key, builder) == 0) return 0;
  }
  if (indexes_.Add(indexfile) != 0) return 1;
  (void)host_.filemanager().Delete(path);
  return FailIndexes();
}

int XBaseDatabase::BuildIndex(const String& name, const String& path, const Expression& key,
                              XBaseIndexBuilder& builder) {
  String text;
  const int visited = ForEachRecord([&](int number) {
    if (!record_.Evaluate(key, text)) return 0;
    builder.Add(static_cast<uint32_t>(number), text);
    return 1;
  });
  if (visited == 0) return 0;
  if (builder.Write(path, name) != 0 && builder.Install() != 0) return 1;
  return Fail(builder.error());
}

// --- All open indexes ------------------------------------------------------------------------

XBaseDatabase::Builders XBaseDatabase::MakeBuilders() {
  Builders builders;
  for (const auto& member : indexes_.members()) {
    const XBaseIndex& index = member->index;
    builders.push_back(std::make_unique<XBaseIndexBuilder>(
        host_.filemanager(), ZDXIndexSpec{index.KeyExpression(), index.Flags(), index.Shape()}));
  }
  return builders;
}

int XBaseDatabase::AddKeys(Builders& builders, int number) {
  std::vector<String> keys;
  if (indexes_.Keys(keys) == 0) return FailIndexes();
  for (size_t i = 0; i < keys.size(); ++i) {
    builders[i]->Add(static_cast<uint32_t>(number), keys[i]);
  }
  return 1;
}

int XBaseDatabase::WriteAll(Builders& builders) {
  for (size_t i = 0; i < builders.size(); ++i) {
    const XBaseIndex& index = indexes_.members()[i]->index;
    if (builders[i]->Write(index.filepath(), index.errorpath()) == 0) {
      return Fail(builders[i]->error());
    }
  }
  return 1;
}

int XBaseDatabase::InstallAll(Builders& builders, OldIndexes old) {
  int result = 1;
  for (size_t i = 0; i < builders.size(); ++i) {
    if (builders[i]->Install() != 0) continue;
    result = Fail(builders[i]->error());
    // A missing index is told of when it is opened; one that names wrong records never.
    if (old == OldIndexes::Wrong) {
      (void)host_.filemanager().Delete(indexes_.members()[i]->index.filepath());
    }
  }
  return result;
}

int XBaseDatabase::Reindex() {
  error_.clear();
  if (!MayBegin(error_)) return 0;
  std::vector<XBaseIndexLock> locks;
  if (indexes_.Lock(locks) == 0) return FailIndexes();
  const Holding holding(*this);
  Builders builders = MakeBuilders();
  const int visited = ForEachRecord([&](int number) { return AddKeys(builders, number); });
  return visited != 0 && WriteAll(builders) != 0 ? InstallAll(builders, OldIndexes::Good) : 0;
}

// --- Packing ---------------------------------------------------------------------------------

DataResult XBaseDatabase::Pack() {
  error_.clear();
  if (!MayChange(error_) || PackLocked() == 0) return DataResult::Failed;
  if (view_ == nullptr) return DataResult::Done;
  const DataResult result = view_->Go(kFirstRow);
  error_ = view_->error();
  return result;
}

int XBaseDatabase::PackLocked() {
  std::vector<XBaseIndexLock> locks;
  if (indexes_.Lock(locks) == 0) return FailIndexes();
  const HeldTableLock held(table_lock_);
  const Holding holding(*this);
  // Nobody changes a deletion mark between here and the pack, so the new numbers are known.
  if (table_lock_.Take(table_, 0, 0) == 0) return Fail(table_lock_.error());
  Builders builders = MakeBuilders();
  int kept = 0;
  const int visited =
      ForEachRecord([&](int) { return table_.deleted() != 0 ? 1 : AddKeys(builders, ++kept); });
  if (visited == 0 || WriteAll(builders) == 0) return 0;
  const int packed = table_.Pack();
  // It may have failed only after the packed table was in place.
  if (packed == 0 && !table_lock_.Replaced()) return FailTable();
  record_.Clear();
  const int installed = InstallAll(builders, OldIndexes::Wrong);
  return packed != 0 ? installed : FailTable();
}

}  // namespace vexa
