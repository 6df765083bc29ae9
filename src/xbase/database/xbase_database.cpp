// Opening, creating and closing a database; see xbase_database.h. Building indexes and packing are
// in xbase_database_indexes.cpp.

#include "xbase/database/xbase_database.h"

#include <algorithm>
#include <utility>

#include "core/encoding.h"
#include "core/text.h"
#include "xbase/database/xbase_database_view.h"
#include "xbase/table/field_list.h"
#include "xbase/table/table_pack.h"

namespace vexa {

namespace {

constexpr char kMemoExtension[] = ".dbt";

}  // namespace

XBaseDatabase::XBaseDatabase(Vexa& host, const String& name)
    : host_(host),
      name_(name),
      type_(kType),
      table_(host.filemanager()),
      table_lock_(host.filemanager()),
      record_(host, table_, EntityEncoded(name)),
      indexes_(host, record_) {}

XBaseDatabase::~XBaseDatabase() { Close(); }

int XBaseDatabase::Fail(std::string_view message) {
  error_ = EntityEncoded(message);
  return 0;
}

int XBaseDatabase::FailIndexes() {
  error_ = indexes_.error();
  return 0;
}

// --- Opening and creating --------------------------------------------------------------------

int XBaseDatabase::ResolveTable(const String& name, XBaseTableNames& names, String& message) {
  FileManager& files = host_.filemanager();
  names.dataerrorpath = name;
  names.memoerrorpath = files.StripExtension(name) + kMemoExtension;
  if (host_.ResolvePath(name, names.datapath, PathType::DataPath, message) == 0) return 0;
  names.memopath = files.StripExtension(names.datapath) + kMemoExtension;
  // Files beside the table that are links must not lead out of the data directory either.
  String ignored;
  for (const String& beside :
       {names.memoerrorpath, PackName(names.dataerrorpath), PackName(names.memoerrorpath)}) {
    if (host_.ResolvePath(beside, ignored, PathType::DataPath, message) == 0) return 0;
  }
  return 1;
}

int XBaseDatabase::CheckMemoName(const XBaseTableNames& names, bool has_memo) {
  if (!has_memo || !(names.datapath == names.memopath)) return 1;
  return Fail(String::Concat(
      {"The table '", names.dataerrorpath, "' has the name that its memo file would have"}));
}

int XBaseDatabase::OpenTable(const String& name, const String& path) {
  read_only_.clear();
  if (table_.Open(path, name, OpenRead | OpenWrite) != 0) return 1;
  const String message = table_.error();
  const String reason = host_.filemanager().error();
  // Without the right to write, reading may still be allowed. What is wrong with the file itself is
  // wrong the second time too.
  if (table_.Open(path, name, OpenRead) == 0) return Fail(message);
  read_only_ = reason;
  return 1;
}

int XBaseDatabase::Open(const String& database, const String& /*user*/,
                        const String& /*password*/) {
  Close();
  error_.clear();
  XBaseTableNames names;
  if (ResolveTable(database, names, error_) == 0 || OpenTable(database, names.datapath) == 0) {
    return 0;
  }
  if (CheckMemoName(names, table_.version() == kVersionWithMemo) == 0) {
    table_.Close();
    return 0;
  }
  Begin();
  return GoFirst();
}

int XBaseDatabase::Create(const String& database, const String& fields) {
  Close();
  error_.clear();
  std::vector<XBaseField::Declaration> declared;
  String message;
  if (ParseFieldList(fields, declared, message) == 0) return Fail(message);
  if (CreateTable(table_, database, declared, error_) == 0) return 0;
  Begin();
  return 1;
}

int XBaseDatabase::CreateTable(XBaseTable& table, const String& name,
                               const std::vector<XBaseField::Declaration>& fields,
                               String& message) {
  XBaseTableNames names;
  if (ResolveTable(name, names, message) == 0) return 0;
  const bool has_memo = std::any_of(fields.begin(), fields.end(), [](const auto& field) {
    return field.type == XBaseFieldType::MEMO;
  });
  if (CheckMemoName(names, has_memo) == 0) {
    message = error_;
    return 0;
  }
  if (IsOpenTable(names.datapath) || IsOpenTable(names.memopath)) {
    message = EntityEncoded(
        String::Concat({"Error creating '", name, "': The table is in use by an open database"}));
    return 0;
  }
  if (table.Create(names, fields) != 0) return 1;
  message = EntityEncoded(table.error());
  return 0;
}

bool XBaseDatabase::IsOpenTable(const String& path) {
  for (const auto& open : host_.databases()) {
    const auto* other = dynamic_cast<const XBaseDatabase*>(open.get());
    if (other == nullptr || !other->table_.is_open()) continue;
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

int XBaseDatabase::GoFirst() {
  if (view_ == nullptr || view_->Go(kFirstRow) != DataResult::Failed) return 1;
  error_ = view_->error();
  return 0;
}

void XBaseDatabase::Close() {
  primary_view_ = view_pointer_ = nullptr;
  view_.reset();
  indexes_.Close();
  record_.Unbind();
  table_lock_.Close();
  table_.Close();
}

// --- Views and the order ---------------------------------------------------------------------

int XBaseDatabase::OpenIndexes(const String& indexes) {
  error_.clear();
  if (!MayBegin(error_)) return 0;
  if (indexes_.Open(indexes) == 0) return FailIndexes();
  return GoFirst();
}

int XBaseDatabase::SetPrimaryIndex(const String& index) {
  error_.clear();
  if (!MayBegin(error_)) return 0;
  if (indexes_.SetPrimary(index) != nullptr) return 1;
  return Fail(String::Concat({"Index '", index, "' is not open"}));
}

int XBaseDatabase::OpenView(const String& /*name*/, const String& /*query*/) {
  return Fail("VxOPENVIEW is not currently supported for databases of type 'xbase3'");
}

int XBaseDatabase::RunQuery(const String& /*query*/) {
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
  for (const auto& open : host_.databases()) {
    const auto* other = dynamic_cast<const XBaseDatabase*>(open.get());
    if (other == nullptr || !other->holding_) continue;
    if (!(other->table_.datapath() == table_.datapath())) continue;
    message = other->record_.BusyMessage();
    return false;
  }
  return true;
}

}  // namespace vexa
