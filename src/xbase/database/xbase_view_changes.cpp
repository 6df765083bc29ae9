// Changing records: adding, updating, deleting, and the table that shows the structure of another;
// see xbase_database_view.h.
//
// A new record is written before its keys. An update inserts new keys before it writes the record
// and deletes old ones after it. So a process that dies in between leaves a record without keys, or
// under one key too many, but no key that leads to nothing.

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

int XBaseDatabaseView::FailIndex(const XBaseIndex& index) {
  (void)Fail(index.error());
  return 0;
}

// --- Adding ----------------------------------------------------------------------------------

DataResult XBaseDatabaseView::Add() {
  error_.clear();
  if (!database_.MayChange(error_)) return DataResult::Failed;
  std::vector<String> keys;
  if (database_.indexes().Keys(keys) == 0) return FailIndexes();
  const DataResult result = AddLocked(keys);
  if (result != DataResult::Done) return result;
  record_.Stored(database_.table().recordnum());
  record_.SetEOF(false);
  return DataResult::Done;
}

DataResult XBaseDatabaseView::AddLocked(const std::vector<String>& keys) {
  XBaseTable& table = database_.table();
  XBaseIndexSet& indexes = database_.indexes();
  std::vector<XBaseIndexLock> locks;
  if (indexes.Lock(locks) == 0) return FailIndexes();
  const HeldTableLock held(database_.tablelock());
  // From here on nobody else appends, so what was appended can be taken out again.
  if (!indexes.empty() && database_.tablelock().TakeHeader(table) == 0) {
    return Fail(database_.tablelock().error());
  }
  for (size_t i = 0; i < keys.size(); ++i) {
    XBaseIndex& index = indexes.members()[i]->index;
    if (index.CheckUnique(keys[i], 0) == 0) return Fail(index.error());
  }
  const XBaseRecord::Position former = record_.Save();
  if (table.Append() == 0) return FailTable();
  IndexChanges done;
  for (size_t i = 0; i < keys.size(); ++i) {
    XBaseIndex& index = indexes.members()[i]->index;
    if (done.Insert(index, static_cast<uint32_t>(table.recordnum()), keys[i]) != 0) continue;
    (void)Fail(index.error());
    done.TakeBack();
    TakeBackAppend(former);
    return DataResult::Failed;
  }
  done.Keep();
  return DataResult::Done;
}

void XBaseDatabaseView::TakeBackAppend(const XBaseRecord::Position& former) {
  // The first failure is being reported; a second one adds nothing.
  (void)database_.table().RemoveLast();
  if (former.number == 0 || record_.Read(former.number) == 0) record_.Clear();
  record_.Apply(former.edits);
}

// --- Updating --------------------------------------------------------------------------------

DataResult XBaseDatabaseView::Update() {
  error_.clear();
  if (!database_.MayChange(error_)) return DataResult::Failed;
  if (record_.current() == 0) return DataResult::EndOfData;
  const DataResult result = UpdateLocked();
  if (result == DataResult::Done) record_.Stored(record_.current());
  return result;
}

DataResult XBaseDatabaseView::UpdateLocked() {
  XBaseTable& table = database_.table();
  const int number = record_.current();
  std::vector<XBaseIndexLock> locks;
  if (database_.indexes().Lock(locks) == 0) return FailIndexes();
  const HeldTableLock held(database_.tablelock());
  const XBaseDatabase::Holding holding(database_);
  if (database_.tablelock().TakeRecord(table, number) == 0) {
    return Fail(database_.tablelock().error());
  }
  // What others changed since the record was read stays, where the page did not edit it too.
  const int generation = table.generation();
  const bool lost = record_.Lost();
  const std::vector<XBaseRecord::Edit> edits = record_.Edits();
  if (!lost && record_.Read(number) == 0) return FailTable();
  if (lost || generation != table.generation()) {
    record_.Clear();
    record_.Apply(edits);
    return Fail(String::Concat({"Error writing to '", table.dataerrorpath(),
                                "': The table was replaced by another process"}));
  }
  std::vector<KeyChange> changes;
  if (CollectChanges(edits, changes) == 0) return FailIndexes();
  IndexChanges done;
  if (CheckChanges(changes) == 0 || InsertNewKeys(changes, done) == 0) return DataResult::Failed;
  if (table.Update() == 0) {
    (void)FailTable();
    WriteBack();
    return DataResult::Failed;
  }
  if (DeleteOldKeys(changes, done) == 0) {
    WriteBack();
    return DataResult::Failed;
  }
  done.Keep();
  if (!changes.empty()) cursor_record_ = 0;
  return DataResult::Done;
}

void XBaseDatabaseView::WriteBack() {
  XBaseTable& table = database_.table();
  table.SwapOriginal();
  // The first failure is being reported; a second one adds nothing.
  (void)table.Update();
  table.SwapOriginal();
}

// Brings the edits into the record, which is as the table holds it.
int XBaseDatabaseView::CollectChanges(const std::vector<XBaseRecord::Edit>& edits,
                                      std::vector<KeyChange>& changes) {
  XBaseIndexSet& indexes = database_.indexes();
  std::vector<String> old_keys;
  std::vector<String> new_keys;
  int result = indexes.Keys(old_keys);
  record_.Apply(edits);
  if (result != 0) result = indexes.Keys(new_keys);
  if (result == 0) return 0;
  for (size_t i = 0; i < new_keys.size(); ++i) {
    if (old_keys[i] == new_keys[i]) continue;
    XBaseIndex& index = indexes.members()[i]->index;
    const bool equal = ZDXIndexFile::Compare(new_keys[i], old_keys[i], 1, index.Flags()) == 0;
    changes.push_back({&index, old_keys[i], new_keys[i], equal});
  }
  return 1;
}

int XBaseDatabaseView::CheckChanges(const std::vector<KeyChange>& changes) {
  const auto number = static_cast<uint32_t>(record_.current());
  for (const KeyChange& change : changes) {
    bool found;
    if (change.index->CheckUnique(change.new_key, number) == 0 ||
        change.index->Seek(change.old_key, number, found) == 0) {
      return FailIndex(*change.index);
    }
    if (!found) {
      (void)Fail("Record is not in index");
      return 0;
    }
  }
  return 1;
}

int XBaseDatabaseView::InsertNewKeys(const std::vector<KeyChange>& changes, IndexChanges& done) {
  const auto number = static_cast<uint32_t>(record_.current());
  for (const KeyChange& change : changes) {
    if (change.in_place && done.Delete(*change.index, number, change.old_key) == 0) {
      return FailIndex(*change.index);
    }
    if (done.Insert(*change.index, number, change.new_key) == 0) return FailIndex(*change.index);
  }
  return 1;
}

int XBaseDatabaseView::DeleteOldKeys(const std::vector<KeyChange>& changes, IndexChanges& done) {
  const auto number = static_cast<uint32_t>(record_.current());
  for (const KeyChange& change : changes) {
    if (change.in_place) continue;
    if (done.Delete(*change.index, number, change.old_key) == 0) return FailIndex(*change.index);
  }
  return 1;
}

// --- Deletion marks --------------------------------------------------------------------------

DataResult XBaseDatabaseView::Mark(int deleted) {
  error_.clear();
  if (!database_.MayChange(error_)) return DataResult::Failed;
  if (record_.current() == 0) return DataResult::EndOfData;
  if (database_.table().UpdateDeleted(deleted) != 0) return DataResult::Done;
  return FailTable();
}

// --- Structure -------------------------------------------------------------------------------

DataResult XBaseDatabaseView::RevealStructure(const String& database) {
  error_.clear();
  if (!database_.MayBegin(error_)) return DataResult::Failed;
  std::vector<XBaseField::Declaration> fields;
  for (const StructureField& field : kStructureFields) {
    fields.push_back({field.name, field.type, field.length, 0});
  }
  XBaseTable table(database_.host().filemanager());
  if (database_.CreateTable(table, database, fields, error_) == 0) return DataResult::Failed;
  if (WriteStructure(table) != 0) return DataResult::Done;
  (void)Fail(table.error());
  const String path = table.datapath();
  table.Close();
  (void)database_.host().filemanager().Delete(path);
  return DataResult::Failed;
}

int XBaseDatabaseView::WriteStructure(XBaseTable& table) {
  for (const auto& field : database_.table().fields()) {
    const FieldDescriptor descriptor = field->Descriptor();
    const String values[] = {descriptor.name, String(std::string_view(&descriptor.letter, 1)),
                             PrintInteger(descriptor.length),
                             PrintInteger(descriptor.decimalcount)};
    for (size_t i = 0; i < std::size(values); ++i) table.fields()[i]->Set(values[i]);
    if (table.Append() == 0) return 0;
  }
  return 1;
}

}  // namespace vexa
