// OpenDatabases, and the table of the types.

#include "host/open_databases.h"

#include <algorithm>
#include <cassert>
#include <utility>

#include "core/encoding.h"
#include "core/text.h"
#include "sql/sql_database.h"
#include "xbase/database/xbase_database.h"

namespace vexa {

namespace {

std::unique_ptr<Database> MakeXBase(Vexa& host, const String& name) {
  return std::make_unique<XBaseDatabase>(host, name);
}

template <SqlDatabase::MakeDriver kMakeDriver>
std::unique_ptr<Database> MakeSql(Vexa& host, const String& name) {
  return std::make_unique<SqlDatabase>(host, name, kMakeDriver);
}

struct DatabaseType {
  std::string_view name;
  std::unique_ptr<Database> (*make)(Vexa& host, const String& name);
};

constexpr DatabaseType kDatabaseTypes[] = {
    {XBaseDatabase::kType, MakeXBase},
    {"sqlite3", MakeSql<MakeSqlite3Driver>},
    {"postgresql", MakeSql<MakePostgresqlDriver>},
};

}  // namespace

std::unique_ptr<Database> MakeDatabase(Vexa& host, const String& type, const String& name,
                                       String& message) {
  for (const DatabaseType& row : kDatabaseTypes) {
    if (EqualsIgnoreCase(row.name, type)) return row.make(host, name);
  }
  message = String::Concat({"Unsupported database type '", EntityEncoded(type), "'"});
  return nullptr;
}

void OpenDatabases::Add(std::unique_ptr<Database> database) {
  assert(database != nullptr);
  databases_.push_back(std::move(database));
  SetHasFields(true);
}

bool OpenDatabases::Remove(Database* database) {
  auto found = std::find_if(databases_.begin(), databases_.end(),
                            [database](const auto& open) { return open.get() == database; });
  if (found == databases_.end()) return false;
  if (primary_ == database) primary_ = nullptr;
  databases_.erase(found);
  SetHasFields(!databases_.empty());
  return true;
}

void OpenDatabases::SetPrimary(Database* database) {
  assert(database == nullptr ||
         std::any_of(databases_.begin(), databases_.end(),
                     [database](const auto& open) { return open.get() == database; }));
  primary_ = database;
}

void OpenDatabases::Clear() {
  primary_ = nullptr;
  databases_.clear();
  SetHasFields(false);
}

Database* OpenDatabases::Find(std::string_view name) const {
  auto found = std::find_if(databases_.begin(), databases_.end(), [name](const auto& open) {
    return EqualsIgnoreCase(open->name(), name);
  });
  return found == databases_.end() ? nullptr : found->get();
}

DatabaseView* OpenDatabases::FindView(std::string_view name) const {
  for (const auto& database : databases_) {
    if (DatabaseView* view = database->FindView(name)) return view;
  }
  return nullptr;
}

Variable* OpenDatabases::FindField(Symbol field, std::string_view database) {
  for (const auto& open : databases_) {
    if (!database.empty() && !EqualsIgnoreCase(open->name(), database)) continue;
    for (DatabaseView* view : open->views()) {
      if (Variable* variable = view->FindVariable(field)) return variable;
    }
  }
  // The name may be that of a view.
  if (database.empty() || Find(database) != nullptr) return nullptr;
  DatabaseView* const view = FindView(database);
  return view == nullptr ? nullptr : view->FindVariable(field);
}

}  // namespace vexa
