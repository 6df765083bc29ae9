// Opening, creating and closing a database; see xbase_database.h. Building indexes and packing are
// in xbase_database_indexes.cpp.
//
//   Opening    resolve the paths of table, memo file and journal; open the table, only for reading
//              when writing is not allowed; bind the record, make the view, go to the first record
//   Finishing  whoever meets the mark of another process's change completes it (FinishChange) and
//              builds marked indexes anew; no lock is held when that begins. MayFinish keeps the
//              paths that a journal names inside the data directory
//   Guards     MayBegin refuses while an expression is evaluated, MayChange also when the table
//              cannot be written
//
// Locks are not taken here but in the table and the indexes, and none is kept when an operation
// returns.

#include "xbase/database/xbase_database.h"

#include <algorithm>
#include <utility>

#include "core/encoding.h"
#include "core/text.h"
#include "xbase/change/completion.h"
#include "xbase/database/xbase_database_view.h"
#include "xbase/table/field_list.h"

namespace vexa {

XBaseDatabase::XBaseDatabase(Vexa& host, const String& name)
    : host_(host),
      name_(name),
      type_(kType),
      table_(host.filemanager()),
      record_(host, table_, EntityEncoded(name)),
      indexes_(host, record_) {
  durability_ = host.config().durable != 0 ? Durability::PowerCut : Durability::None;
  table_.SetDurability(durability_);
}

XBaseDatabase::~XBaseDatabase() { Close(); }

DataResult XBaseDatabase::Fail(std::string_view message) {
  error_ = EntityEncoded(message);
  return DataResult::Failed;
}

DataResult XBaseDatabase::Passed(DataResult result) {
  if (result == DataResult::Failed) error_ = indexes_.error();
  return result;
}

// --- Opening and creating --------------------------------------------------------------------

bool XBaseDatabase::ResolveTable(const String& name, XBaseTableNames& names, String& message) {
  FileManager& files = host_.filemanager();
  if (host_.ResolvePath(name, names.datapath, PathType::DataPath, message) == 0) return false;
  names.dataerrorpath = name;
  names.memoerrorpath = String::Concat({files.StripExtension(name), kMemoExtensions[0]});
  names.memopath = String::Concat({files.StripExtension(names.datapath), kMemoExtensions[0]});
  // Files beside the table that are links must not lead out of the data directory either.
  String ignored;
  if (host_.ResolvePath(JournalPath(name), ignored, PathType::DataPath, message) == 0) return false;
  for (const std::string_view extension : kMemoExtensions) {
    const String memo = String::Concat({files.StripExtension(name), extension});
    if (host_.ResolvePath(memo, ignored, PathType::DataPath, message) == 0) return false;
  }
  return true;
}

bool XBaseDatabase::MayHaveMemo(const XBaseTableNames& names, bool has_memo, String& message) {
  if (!has_memo || !(names.datapath == names.memopath)) return true;
  message = EntityEncoded(String::Concat(
      {"The table '", names.dataerrorpath, "' has the name that its memo file would have"}));
  return false;
}

DataResult XBaseDatabase::OpenTable(const String& name, const String& path) {
  read_only_.clear();
  if (table_.Open(path, name, OpenRead | OpenWrite) != 0) return DataResult::Done;
  FileManager& files = host_.filemanager();
  const String message = table_.error();
  const String reason = files.error();
  // Without the right to write, reading may still be allowed. Whatever else went wrong would only
  // be hidden by that.
  const bool refused = (files.Exists(path) && !files.MayWrite(path)) ||
                       (files.Exists(table_.memopath()) && !files.MayWrite(table_.memopath()));
  if (!refused || table_.unfinished()) return Fail(message);
  if (table_.Open(path, name, OpenRead) == 0) return Fail(table_.error());
  read_only_ = reason;
  return DataResult::Done;
}

DataResult XBaseDatabase::Open(const String& database, const String& /*user*/,
                               const String& /*password*/) {
  Close();
  error_.clear();
  XBaseTableNames names;
  if (!ResolveTable(database, names, error_)) return DataResult::Failed;
  const DataResult opened = Run(error_, [&] { return OpenTable(database, names.datapath); });
  if (opened != DataResult::Done) return opened;
  if (!MayHaveMemo(names, table_.version() == kVersionWithMemo, error_)) {
    table_.Close();
    return DataResult::Failed;
  }
  Begin();
  return GoFirst();
}

DataResult XBaseDatabase::Create(const String& database, const String& fields) {
  Close();
  error_.clear();
  std::vector<XBaseField::Declaration> declared;
  String message;
  if (!ParseFieldList(fields, declared, message)) return Fail(message);
  if (!CreateTable(table_, database, declared, {}, error_)) return DataResult::Failed;
  read_only_.clear();
  Begin();
  return DataResult::Done;
}

bool XBaseDatabase::CreateTable(XBaseTable& table, const String& name,
                                const std::vector<XBaseField::Declaration>& fields,
                                const std::vector<XBaseRow>& rows, String& message) {
  XBaseTableNames names;
  if (!ResolveTable(name, names, message)) return false;
  const bool has_memo = std::any_of(fields.begin(), fields.end(), [](const auto& field) {
    return field.type == XBaseFieldType::MEMO;
  });
  if (!MayHaveMemo(names, has_memo, message)) return false;
  if (IsOpenTable(names.datapath) || IsOpenTable(names.memopath)) {
    message = EntityEncoded(
        String::Concat({"Error creating '", name, "': The table is in use by an open database"}));
    return false;
  }
  for (int tries = 0; tries < kMostReplacements; ++tries) {
    table.ForgetUnfinished();
    table.SetDurability(durability_);
    if (table.Create(names, fields, rows) != 0) return true;
    message = EntityEncoded(table.error());
    if (!table.unfinished() || FinishChange(table, message) != DataResult::Done) break;
  }
  return false;
}

// --- Changes that another process left -------------------------------------------------------

bool XBaseDatabase::MayFinish(const String& table, const String& path) {
  FileManager& files = host_.filemanager();
  String followed = path;
  // Nothing on the way may have become a link since the path was noted.
  if (files.FollowPath(followed, 0, 0) != 0 || !(followed == path)) return false;
  const auto directory = [](const String& file) {
    return file.view().substr(0, file.view().rfind('/') + 1);
  };
  if (directory(path) == directory(table)) return true;
  String root;
  String ignored;
  if (host_.ResolvePath(".", root, PathType::DataPath, ignored) == 0) return false;
  String real;
  if (files.RealPath(root, real) < 0) return false;
  if (!real.view().ends_with('/')) real.cat("/");
  return path.view().starts_with(real.view());
}

DataResult XBaseDatabase::FinishChange(XBaseTable& table, String& message) {
  FileManager& files = host_.filemanager();
  // Who may not write can only be told.
  if (!files.MayWrite(table.realpath())) return DataResult::Failed;
  const String path = table.realpath();
  const Completion completion{files, path, table.dataerrorpath(),
                              [&](const String& file) { return MayFinish(path, file); },
                              durability_};
  String reason;
  if (!CompleteChange(completion, reason)) {
    message = EntityEncoded(reason);
    return DataResult::Failed;
  }
  if (&table != &table_ || indexes_.empty()) return DataResult::Done;
  const DataResult rebuilt = RebuildMarked();
  if (rebuilt == DataResult::Failed) message = error_;
  return rebuilt;
}

bool XBaseDatabase::IsOpenTable(const String& path) {
  for (const auto& open : host_.databases()) {
    if (!(open->type() == type())) continue;
    const auto* other = static_cast<const XBaseDatabase*>(open.get());
    if (!other->table_.is_open()) continue;
    if (other->table_.datapath() == path) return true;
    if (other->table_.version() == kVersionWithMemo && other->table_.memopath() == path) {
      return true;
    }
  }
  return false;
}

void XBaseDatabase::Begin() {
  record_.Bind();
  view_ = std::make_unique<XBaseDatabaseView>(*this);
  view_pointer_ = primary_view_ = view_.get();
}

DataResult XBaseDatabase::GoFirst() {
  if (view_ == nullptr) return DataResult::Done;
  const DataResult result = view_->Go(kFirstRow);
  if (result == DataResult::Done || result == DataResult::EndOfData) return DataResult::Done;
  error_ = view_->error();
  return result;
}

void XBaseDatabase::Close() {
  primary_view_ = view_pointer_ = nullptr;
  view_.reset();
  indexes_.Close();
  record_.Unbind();
  table_.Close();
}

// --- Views and the order ---------------------------------------------------------------------

DataResult XBaseDatabase::OpenIndexes(const String& indexes) {
  error_.clear();
  if (!MayBegin(error_)) return DataResult::Failed;
  const DataResult opened = indexes_.Open(indexes);
  return opened == DataResult::Done ? GoFirst() : Passed(opened);
}

DataResult XBaseDatabase::SetPrimaryIndex(const String& index) {
  error_.clear();
  if (!MayBegin(error_)) return DataResult::Failed;
  if (indexes_.SetPrimary(index) != nullptr) return DataResult::Done;
  return Fail(String::Concat({"Index '", index, "' is not open"}));
}

DataResult XBaseDatabase::OpenView(const String& /*name*/, const String& /*query*/) {
  return Fail("VxOPENVIEW is not currently supported for databases of type 'xbase3'");
}

DataResult XBaseDatabase::RunQuery(const String& /*query*/, QueryOutcome& /*outcome*/) {
  return Fail("VxQUERY is not currently supported for databases of type 'xbase3'");
}

DatabaseView* XBaseDatabase::FindView(std::string_view name) {
  return view_pointer_ != nullptr && EqualsIgnoreCase(name_, name) ? view_pointer_ : nullptr;
}

void XBaseDatabase::RemoveView(DatabaseView* view) {
  if (view == nullptr || view != view_pointer_) return;
  primary_view_ = view_pointer_ = nullptr;
  view_.reset();
}

// --- What may run at the same time -----------------------------------------------------------

bool XBaseDatabase::MayBegin(String& message) {
  if (!InUse()) return true;
  message = record_.BusyMessage();
  return false;
}

bool XBaseDatabase::MayChange(String& message) {
  if (!MayBegin(message)) return false;
  if (!read_only_.empty()) {
    message = EntityEncoded(
        String::Concat({"Error writing to '", table_.dataerrorpath(), "': ", read_only_}));
    return false;
  }
  return true;
}

}  // namespace vexa
