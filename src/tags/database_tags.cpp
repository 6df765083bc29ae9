// Opening and closing databases, and the tags about indexes, views and whole tables.

#include <utility>

#include "core/encoding.h"
#include "engine/tag_call.h"
#include "tags/chosen_database.h"
#include "tags/handlers.h"

namespace vexa {

namespace {

// An empty database of the type and name that `tag` asks for; null with `message` set.
std::unique_ptr<Database> MakeDatabase(const TagCall& call, String& message) {
  const String& name = call.Text("NAME");
  if (call.host().FindDatabase(name) == nullptr) {
    return call.host().NewDatabase(call.Text("TYPE"), name, message);
  }
  message =
      String::Concat({"A database with the name '", EntityEncoded(name), "' is already open"});
  return nullptr;
}

// Hands an open database over to the host.
StateResult Register(const TagCall& call, std::unique_ptr<Database> database) {
  Vexa& host = call.host();
  Database* const opened = database.get();
  host.AddDatabase(std::move(database));
  if (host.PrimaryDB() == nullptr) host.SetPrimaryDB(opened);
  host.logfile().Write(LogLevel::Files, "DATABASEOPENED", opened->name());
  return StateResult::Handled;
}

StateResult CloseAndRemove(const TagCall& call, Database& database) {
  database.Close();
  (void)call.host().RemoveDatabase(&database);
  return StateResult::Handled;
}

// What a tag makes of the result of an operation on `database`.
StateResult ResultOf(const TagCall& call, const Database& database, int result) {
  return result != 0 ? StateResult::Handled : ReportFailure(call, database.error());
}

}  // namespace

StateResult ProcessVxOPEN(TagCall& call) {
  String message;
  std::unique_ptr<Database> database = MakeDatabase(call, message);
  if (database == nullptr) return call.Fail(message);
  const String& indexes = call.Text("INDEXES");
  if (database->Open(call.Text("DATABASE"), call.Text("USER"), call.Text("PASSWORD")) == 0 ||
      (!indexes.empty() && database->OpenIndexes(indexes) == 0)) {
    return ReportFailure(call, database->error());
  }
  return Register(call, std::move(database));
}

StateResult ProcessVxCREATE(TagCall& call) {
  String message;
  std::unique_ptr<Database> database = MakeDatabase(call, message);
  if (database == nullptr) return call.Fail(message);
  if (database->Create(call.Text("DATABASE"), call.Text("FIELDS")) == 0) {
    return ReportFailure(call, database->error());
  }
  return Register(call, std::move(database));
}

StateResult ProcessVxCLOSE(TagCall& call) {
  String message;
  Database* const database = GetDatabase(call, message);
  if (database == nullptr) return call.Fail(message);
  if (database->InUse()) return call.Fail(InUseMessage(*database));
  return CloseAndRemove(call, *database);
}

StateResult ProcessVxPRIMARY(TagCall& call) {
  Database* const database = call.host().FindDatabase(call.Text("NAME"));
  if (database == nullptr) {
    return call.Fail(NotOpenMessage(call.Text("NAME")));
  }
  // Nothing becomes primary when one of the three cannot.
  DatabaseView* view = nullptr;
  if (call.Has("VIEW")) {
    String message;
    view = FindViewOf(call, *database, message);
    if (view == nullptr) return call.Fail(message);
  }
  if (call.Has("INDEX") && database->SetPrimaryIndex(call.Text("INDEX")) == 0) {
    return ReportFailure(call, database->error());
  }
  if (view != nullptr) database->SetPrimaryView(view);
  call.host().SetPrimaryDB(database);
  return StateResult::Handled;
}

StateResult ProcessVxSETINDEX(TagCall& call) {
  String message;
  Database* const database = GetDatabase(call, message);
  if (database == nullptr) return call.Fail(message);
  return ResultOf(call, *database, database->OpenIndexes(call.Text("INDEXES")));
}

StateResult ProcessVxMAKEINDEX(TagCall& call) {
  const NameValuePair* expression = call.Find("EXPR");
  if (expression == nullptr) expression = call.Find("EXPRESSION");
  if (expression == nullptr) {
    return call.Fail(
        String::Concat({call.row().name, " requires the EXPR attribute to be specified"}));
  }
  String message;
  Database* const database = GetDatabase(call, message);
  if (database == nullptr) return call.Fail(message);
  return ResultOf(
      call, *database,
      database->CreateIndex(call.Text("INDEXFILE"), expression->value.text(), call.Text("FLAGS")));
}

StateResult ProcessVxREINDEX(TagCall& call) {
  String message;
  Database* const database = GetDatabase(call, message);
  if (database == nullptr) return call.Fail(message);
  return ResultOf(call, *database, database->Reindex());
}

StateResult ProcessVxPACK(TagCall& call) {
  String message;
  Database* const database = GetDatabase(call, message);
  if (database == nullptr) return call.Fail(message);
  if (database->InUse()) return call.Fail(InUseMessage(*database));
  if (database->Pack() != DataResult::Failed) return StateResult::Handled;
  const StateResult result = ReportFailure(call, database->error());
  // What a pack that failed left open is not to be trusted.
  (void)CloseAndRemove(call, *database);
  return result;
}

StateResult ProcessVxOPENVIEW(TagCall& call) {
  String message;
  Database* const database = GetDatabase(call, message);
  if (database == nullptr) return call.Fail(message);
  const String& view = call.Text("VIEW");
  if (database->FindView(view) != nullptr) {
    return call.Fail(String::Concat({"Database '", EntityEncoded(database->name()),
                                     "' already has a view named '", EntityEncoded(view), "'"}));
  }
  return ResultOf(call, *database, database->OpenView(view, call.Text("QUERY")));
}

StateResult ProcessVxCLOSEVIEW(TagCall& call) {
  String message;
  Database* database;
  DatabaseView* const view = GetView(call, database, message);
  if (view == nullptr) return call.Fail(message);
  if (database->InUse()) return call.Fail(InUseMessage(*database));
  database->RemoveView(view);
  return StateResult::Handled;
}

StateResult ProcessVxQUERY(TagCall& call) {
  String message;
  Database* const database = GetDatabase(call, message);
  if (database == nullptr) return call.Fail(message);
  return ResultOf(call, *database, database->RunQuery(call.Text("QUERY")));
}

}  // namespace vexa
