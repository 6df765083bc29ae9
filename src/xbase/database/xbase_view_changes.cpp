// Changing records: adding, updating, deleting, and the table that shows the structure of another;
// see xbase_database_view.h.
//
// An operation takes all its locks, gathers what it is going to write, and then carries that out as
// one change. Whatever fails before that leaves files and current record as they were.

#include <utility>

#include "core/encoding.h"
#include "core/number.h"
#include "xbase/database/xbase_database_view.h"

namespace vexa {

namespace {

// What RevealStructure says about a field.
struct StructureField {
  const char* name;
  XBaseFieldType type;
  int length;
};
constexpr StructureField kStructureFields[] = {{"FIELD_NAME", XBaseFieldType::CHAR, 10},
                                               {"FIELD_TYPE", XBaseFieldType::CHAR, 1},
                                               {"FIELD_LEN", XBaseFieldType::NUMBER, 3},
                                               {"FIELD_DEC", XBaseFieldType::NUMBER, 3}};

}  // namespace

// --- Adding ----------------------------------------------------------------------------------

DataResult XBaseDatabaseView::Add() {
  error_.clear();
  if (!database_.MayChange(error_)) return DataResult::Failed;
  const DataResult result = database_.Run(error_, [&] { return AddLocked(); });
  if (result != DataResult::Done) return Checked(result);
  record_.Stored(database_.table().recordnum());
  record_.SetEOF(false);
  cursor_record_ = 0;
  return Checked(DataResult::Done);
}

DataResult XBaseDatabaseView::AddLocked() {
  XBaseTable& table = database_.table();
  XBaseIndexSet& indexes = database_.indexes();
  // 1. The keys, before others have to wait.
  std::vector<String> keys;
  const DataResult made = indexes.Keys(keys);
  if (made != DataResult::Done) return Passed(made);
  // 2. All locks: from here on nobody else appends.
  Change change;
  std::vector<XBaseIndexLock> locks;
  const DataResult locked = indexes.Lock(locks);
  if (locked != DataResult::Done) return Passed(locked);
  const TableChange ending(table);
  if (!table.LockHeader()) return FailTable();
  // 3. What the indexes become. A key that is there already shows here.
  const auto number = static_cast<uint32_t>(table.numrecords()) + 1;
  for (size_t i = 0; i < keys.size(); ++i) {
    XBaseIndex& index = indexes.members()[i]->index;
    index.file().Gather(change.writes);
    if (index.Insert(number, keys[i]) == 0) return FailIndex(index);
  }
  // 4. The record and its texts, which nothing names yet; then the change.
  return table.StageAppend(change) ? Commit(change) : FailTable();
}

DataResult XBaseDatabaseView::Commit(Change& change) {
  for (const auto& member : database_.indexes().members()) {
    ChangedFile file;
    if (!member->index.file().gathering() || !member->index.file().DescribeChange(file)) continue;
    file.path = member->index.realpath();
    change.indexes.push_back(std::move(file));
  }
  if (!database_.table().Commit(change)) return FailTable();
  for (const auto& member : database_.indexes().members()) {
    if (member->index.file().gathering()) member->index.file().Committed();
  }
  return DataResult::Done;
}

// --- Updating --------------------------------------------------------------------------------

DataResult XBaseDatabaseView::Update() {
  error_.clear();
  if (!database_.MayChange(error_)) return DataResult::Failed;
  if (record_.current() == 0) return DataResult::EndOfData;
  const DataResult result = database_.Run(error_, [&] { return UpdateLocked(); });
  if (result == DataResult::Done) record_.Stored(record_.current());
  return Checked(result);
}

DataResult XBaseDatabaseView::UpdateLocked() {
  XBaseTable& table = database_.table();
  const std::vector<XBaseRecord::Edit> edits = record_.Edits();
  const int number = record_.current();
  const auto lost = [&] {
    record_.Clear();
    record_.Apply(edits);
    return Fail(String::Concat({"Error writing to '", table.dataerrorpath(),
                                "': The table was replaced by another process"}));
  };
  if (record_.Lost()) return lost();
  // 1. The locks of indexes and record.
  Change change;
  std::vector<XBaseIndexLock> locks;
  const DataResult locked = database_.indexes().Lock(locks);
  if (locked != DataResult::Done) return Passed(locked);
  const TableChange ending(table);
  if (!table.BeginUpdate()) return record_.Lost() ? lost() : FailTable();
  // 2. The record as it is now: what others changed since it was read stays, where the page did not
  // edit it too.
  if (record_.Read(number) == 0) return FailTable();
  std::vector<KeyChange> changes;
  const DataResult collected = CollectChanges(edits, changes);
  if (collected != DataResult::Done) return Passed(collected);
  // 3. The header's lock; then what the indexes become.
  if (!table.LockHeader()) return record_.Lost() ? lost() : FailTable();
  const DataResult gathered = GatherKeys(changes, change);
  if (gathered != DataResult::Done) return gathered;
  // 4. The texts, which nothing names yet; then the change.
  if (!table.StageUpdate(change)) return record_.Lost() ? lost() : FailTable();
  const DataResult result = Commit(change);
  if (result == DataResult::Done && !changes.empty()) cursor_record_ = 0;
  return result;
}

// Brings the edits into the record, which is as the table holds it.
DataResult XBaseDatabaseView::CollectChanges(const std::vector<XBaseRecord::Edit>& edits,
                                             std::vector<KeyChange>& changes) {
  XBaseIndexSet& indexes = database_.indexes();
  std::vector<String> old_keys;
  std::vector<String> new_keys;
  DataResult result = indexes.Keys(old_keys);
  record_.Apply(edits);
  if (result == DataResult::Done) result = indexes.Keys(new_keys);
  if (result != DataResult::Done) return result;
  for (size_t i = 0; i < new_keys.size(); ++i) {
    if (old_keys[i] == new_keys[i]) continue;
    changes.push_back({&indexes.members()[i]->index, old_keys[i], new_keys[i]});
  }
  return DataResult::Done;
}

DataResult XBaseDatabaseView::GatherKeys(const std::vector<KeyChange>& changes, Change& change) {
  const auto number = static_cast<uint32_t>(record_.current());
  for (const KeyChange& key : changes) {
    key.index->file().Gather(change.writes);
    if (!key.index->CheckUnique(key.new_key, number) ||
        key.index->Delete(number, key.old_key) == 0 ||
        key.index->Insert(number, key.new_key) == 0) {
      return FailIndex(*key.index);
    }
  }
  return DataResult::Done;
}

// --- Deletion marks --------------------------------------------------------------------------

DataResult XBaseDatabaseView::Mark(int deleted) {
  error_.clear();
  if (!database_.MayChange(error_)) return DataResult::Failed;
  if (record_.current() == 0) return DataResult::EndOfData;
  return Checked(database_.Run(error_, [&] { return MarkLocked(deleted); }));
}

DataResult XBaseDatabaseView::MarkLocked(int deleted) {
  XBaseTable& table = database_.table();
  if (record_.Lost()) return FailReplaced();
  return table.UpdateDeleted(deleted) != 0 ? DataResult::Done : FailTable();
}

// --- Structure -------------------------------------------------------------------------------

DataResult XBaseDatabaseView::RevealStructure(const String& database) {
  error_.clear();
  if (!database_.MayBegin(error_)) return DataResult::Failed;
  std::vector<XBaseField::Declaration> fields;
  for (const StructureField& field : kStructureFields) {
    fields.push_back({field.name, field.type, field.length, 0});
  }
  std::vector<XBaseRow> rows;
  for (const auto& field : database_.table().fields()) {
    const FieldDescriptor descriptor = field->Descriptor();
    rows.push_back({descriptor.name, String(std::string_view(&descriptor.letter, 1)),
                    PrintInteger(descriptor.length), PrintInteger(descriptor.decimalcount)});
  }
  XBaseTable table(database_.host().filemanager());
  return database_.CreateTable(table, database, fields, rows, error_) ? DataResult::Done
                                                                      : DataResult::Failed;
}

}  // namespace vexa
