// Building indexes from all records, and packing; see xbase_database.h.
//
// All that can fail, an expression, two equal keys, a full disk, does so while the new indexes are
// written beside the old ones. They are put in place at the very end.
//
//   CreateIndex    lock of the index that is there, if any; walk; write; open; rename
//   RebuildMarked  the same for one open index that bears a mark its table lacks
//   Reindex        locks of all open indexes; one walk for all of them; then a rename each
//   Pack           locks of all open indexes, then of the whole table; new indexes of the live
//                  records; the new table; one swap of all files
//
// The walk makes one record after the other current and restores the former one; it ends when the
// time is up or another process replaced the table. Keys may run functions of the page, which use
// no tables as long as they do (expr/key_rule.h): locks may be held over them.

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

// Reads a list of flags. False with `message` set.
bool ParseFlags(const String& list, uint32_t& flags, String& message) {
  flags = 0;
  for (PieceReader pieces(list, ","); pieces.Next();) {
    const std::string_view word = Stripped(pieces.piece());
    const auto* known =
        std::find_if(std::begin(kFlagWords), std::end(kFlagWords),
                     [word](const FlagWord& flag) { return EqualsIgnoreCase(flag.word, word); });
    if (known == std::end(kFlagWords)) {
      if (word.empty()) continue;
      message = String::Concat({"Unknown index flag '", word, "'"});
      return false;
    }
    flags = (flags & ~known->clear) | known->set;
  }
  return true;
}

bool HasIndexExtension(std::string_view path) {
  return path.size() >= kIndexExtension.size() &&
         EqualsIgnoreCase(path.substr(path.size() - kIndexExtension.size()), kIndexExtension);
}

}  // namespace

// --- Walking over all records ----------------------------------------------------------------

DataResult XBaseDatabase::ForEachRecord(const Visit& visit) {
  const XBaseRecord::Position former = record_.Save();
  const DataResult result = VisitRecords(visit);
  if (record_.Restore(former) == 0 && result == DataResult::Done) return FailTable();
  return result;
}

DataResult XBaseDatabase::VisitRecords(const Visit& visit) {
  // What was read before the locks of indexes were taken may be older than they are.
  table_.DropBlock();
  if (!table_.Refresh()) return FailTable();
  const int generation = table_.generation();
  for (int number = 1; number <= table_.numrecords(); ++number) {
    if (host_.timedout()) return Fail("Timed out while reading all records");
    if (record_.Read(number) == 0) return FailTable();
    if (generation != table_.generation()) {
      return Fail(String::Concat(
          {"The table '", table_.dataerrorpath(), "' was replaced by another process"}));
    }
    const DataResult result = visit(number);
    if (result != DataResult::Done) return result;
  }
  return DataResult::Done;
}

// --- One new index ---------------------------------------------------------------------------

DataResult XBaseDatabase::MayReplace(const String& name, const String& path) {
  FileManager& files = host_.filemanager();
  if (IsOpenTable(path)) {
    return Fail(
        String::Concat({"Error creating '", name, "': The file is in use by an open database"}));
  }
  // A damaged index may be made anew, but what is no index at all is kept.
  if (!files.Exists(path) || HasIndexExtension(path)) return DataResult::Done;
  XBaseIndex index(files);
  return index.Open(name, path, name) != 0 ? DataResult::Done : Fail(index.error());
}

DataResult XBaseDatabase::CreateIndex(const String& indexfile, const String& expression,
                                      const String& flags) {
  error_.clear();
  if (!MayBegin(error_)) return DataResult::Failed;
  ZDXIndexSpec spec;
  spec.keyexpression = expression;
  String path;
  String message;
  if (!ParseFlags(flags, spec.flags, message)) return Fail(message);
  if (host_.ResolvePath(indexfile, path, PathType::DataPath, error_) == 0) {
    return DataResult::Failed;
  }
  const DataResult replaced = MayReplace(indexfile, path);
  if (replaced != DataResult::Done) return replaced;
  Expression key;
  const DataResult parsed = record_.ParseKey(indexfile, expression, key, error_);
  if (parsed != DataResult::Done) return parsed;
  return Run(error_, [&] { return CreateIndexLocked(indexfile, path, key, spec); });
}

DataResult XBaseDatabase::CreateIndexLocked(const String& name, const String& path,
                                            const Expression& key, const ZDXIndexSpec& spec) {
  FileManager& files = host_.filemanager();
  // Processes that have the index open that is there wait until it is replaced.
  XBaseIndex former(files);
  XBaseIndexLock lock;
  if (files.Exists(path) && former.Open(name, path, name) != 0 &&
      !lock.Take(former, ZDXIndexFile::Marks::Ignored)) {
    return Fail(former.error());
  }
  XBaseIndexBuilder builder(files, spec);
  const DataResult built = BuildIndex(name, path, key, builder);
  if (built != DataResult::Done) return built;
  // It is opened before it takes its place: once it stands there nothing can fail any more.
  auto member = std::make_unique<XBaseIndexSet::Member>(files);
  if (member->index.Open(name, builder.newpath(), name) == 0) return Fail(member->index.error());
  if (!record_.Parse(spec.keyexpression, member->key)) return DataResult::Reported;
  if (!builder.Install()) return Fail(builder.error());
  member->index.Renamed(path);
  indexes_.Add(std::move(member));
  return DataResult::Done;
}

DataResult XBaseDatabase::BuildIndex(const String& name, const String& path, const Expression& key,
                                     XBaseIndexBuilder& builder) {
  String text;
  const DataResult visited = ForEachRecord([&](int number) {
    const DataResult evaluated = record_.EvaluateKey(name, key, text);
    if (evaluated == DataResult::Failed) return FailTable();
    if (evaluated != DataResult::Done) return evaluated;
    builder.Add(static_cast<uint32_t>(number), text);
    return DataResult::Done;
  });
  if (visited != DataResult::Done) return visited;
  return builder.Write(path, name) ? DataResult::Done : Fail(builder.error());
}

DataResult XBaseDatabase::RebuildMarked() {
  for (const auto& member : indexes_.members()) {
    XBaseIndex& index = member->index;
    if (!index.file().unfinished()) continue;
    XBaseIndexLock lock;
    if (!lock.Take(index, ZDXIndexFile::Marks::Ignored)) return Fail(index.error());
    if (!index.file().marked()) continue;
    XBaseIndexBuilder builder(host_.filemanager(),
                              {index.KeyExpression(), index.Flags(), index.Shape()});
    const DataResult built = BuildIndex(index.name(), index.filepath(), member->key, builder);
    if (built != DataResult::Done) {
      // The table bears a mark: its change is finished first, with no lock held.
      if (table_.unfinished()) continue;
      return built;
    }
    if (!builder.Install()) return Fail(builder.error());
    index.file().Adopt(builder.TakeFile());
  }
  return DataResult::Done;
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

DataResult XBaseDatabase::AddKeys(Builders& builders, int number) {
  std::vector<String> keys;
  const DataResult made = indexes_.Keys(keys);
  if (made != DataResult::Done) return Passed(made);
  for (size_t i = 0; i < keys.size(); ++i) {
    builders[i]->Add(static_cast<uint32_t>(number), keys[i]);
  }
  return DataResult::Done;
}

DataResult XBaseDatabase::Reindex() {
  error_.clear();
  if (!MayBegin(error_)) return DataResult::Failed;
  return Run(error_, [&] { return ReindexLocked(); });
}

// Each index is put in place by one rename: whichever is there fits the table.
DataResult XBaseDatabase::ReindexLocked() {
  std::vector<XBaseIndexLock> locks;
  const DataResult locked = indexes_.Lock(locks);
  if (locked != DataResult::Done) return Passed(locked);
  Builders builders = MakeBuilders();
  const DataResult visited = ForEachRecord([&](int number) { return AddKeys(builders, number); });
  if (visited != DataResult::Done) return visited;
  for (size_t i = 0; i < builders.size(); ++i) {
    const XBaseIndex& index = indexes_.members()[i]->index;
    if (!builders[i]->Write(index.filepath(), index.errorpath())) {
      return Fail(builders[i]->error());
    }
  }
  for (size_t i = 0; i < builders.size(); ++i) {
    if (!builders[i]->Install()) return Fail(builders[i]->error());
    indexes_.members()[i]->index.file().Adopt(builders[i]->TakeFile());
  }
  return DataResult::Done;
}

// --- Packing ---------------------------------------------------------------------------------

DataResult XBaseDatabase::Pack() {
  error_.clear();
  if (!MayChange(error_)) return DataResult::Failed;
  const DataResult packed = Run(error_, [&] { return PackLocked(); });
  if (packed != DataResult::Done || view_ == nullptr) return packed;
  // The table is packed, whether its first record can be read or not.
  return view_->Go(kFirstRow) == DataResult::EndOfData ? DataResult::EndOfData : DataResult::Done;
}

DataResult XBaseDatabase::PackLocked() {
  // 1. All locks. Nobody changes a deletion mark from here on, so the new numbers are known.
  std::vector<XBaseIndexLock> locks;
  const DataResult locked = indexes_.Lock(locks);
  if (locked != DataResult::Done) return Passed(locked);
  const TableChange ending(table_);
  FileSwap swap(host_.filemanager());
  if (!table_.BeginPack(swap)) return FailTable();
  // 2. The new files, beside the old ones. All that can be wrong with the records shows here.
  Builders builders = MakeBuilders();
  int kept = 0;
  const DataResult visited = ForEachRecord(
      [&](int) { return table_.deleted() != 0 ? DataResult::Done : AddKeys(builders, ++kept); });
  if (visited != DataResult::Done) return visited;
  for (size_t i = 0; i < builders.size(); ++i) {
    XBaseIndex& index = indexes_.members()[i]->index;
    // Where the rename is to take place there must be no link in the way.
    if (host_.filemanager().FollowsLink(index.filepath())) {
      return Fail(
          String::Concat({"Error creating '", index.errorpath(), "': ", kNoReplacementOfLinks}));
    }
    if (!builders[i]->Write(index.realpath(), index.errorpath(), swap.number)) {
      return Fail(builders[i]->error());
    }
    swap.swaps.push_back({builders[i]->newpath(), index.realpath(), index.errorpath()});
    swap.indexes.push_back(index.realpath());
  }
  if (!table_.StagePack(swap)) return FailTable();
  // 3. In place.
  const int generation = table_.generation();
  const bool done = table_.CommitPack(swap);
  if (table_.generation() != generation) {
    record_.Clear();
    for (size_t i = 0; i < builders.size(); ++i) {
      // One that did not get there is put in place by whoever finishes the change.
      const bool in_place = done || !host_.filemanager().Exists(builders[i]->newpath());
      builders[i]->Installed();
      if (in_place) indexes_.members()[i]->index.file().Adopt(builders[i]->TakeFile());
    }
  }
  return done ? DataResult::Done : FailTable();
}

}  // namespace vexa
