// Opening and closing databases, and the tags about indexes, views and whole tables.

#include <utility>

#include "core/encoding.h"
#include "core/number.h"
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

// Whether an operation did what it should. A pack that leaves no record has.
bool Succeeded(DataResult result) {
  return result == DataResult::Done || result == DataResult::EndOfData;
}

// What a tag makes of the result of an operation on `database`.
StateResult ResultOf(const TagCall& call, const Database& database, DataResult result) {
  return Succeeded(result) ? StateResult::Handled : ReportFailure(call, result, database.error());
}

StateResult NotMade(const TagCall& call, const String& message) {
  call.host().vars().AddGlobalVariable("EOF", "1");
  return call.Fail(message);
}

// Hands a database over that was opened, or says why it was not. Loops over its records, which the
// page may begin all the same, must end then.
StateResult Conclude(const TagCall& call, std::unique_ptr<Database> database, DataResult result) {
  if (Succeeded(result)) return Register(call, std::move(database));
  call.host().vars().AddGlobalVariable("EOF", "1");
  return ReportFailure(call, result, database->error());
}

}  // namespace

StateResult ProcessVxOPEN(TagCall& call) {
  String message;
  std::unique_ptr<Database> database = MakeDatabase(call, message);
  if (database == nullptr) return NotMade(call, message);
  const String& indexes = call.Text("INDEXES");
  DataResult result =
      database->Open(call.Text("DATABASE"), call.Text("USER"), call.Text("PASSWORD"));
  if (Succeeded(result) && !indexes.empty()) result = database->OpenIndexes(indexes);
  return Conclude(call, std::move(database), result);
}

StateResult ProcessVxCREATE(TagCall& call) {
  String message;
  std::unique_ptr<Database> database = MakeDatabase(call, message);
  if (database == nullptr) return NotMade(call, message);
  const DataResult result = database->Create(call.Text("DATABASE"), call.Text("FIELDS"));
  return Conclude(call, std::move(database), result);
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
  if (call.Has("INDEX")) {
    const DataResult result = database->SetPrimaryIndex(call.Text("INDEX"));
    if (!Succeeded(result)) return ReportFailure(call, result, database->error());
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
  const DataResult packed = database->Pack();
  if (Succeeded(packed)) return StateResult::Handled;
  const StateResult result = ReportFailure(call, packed, database->error());
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
  QueryOutcome outcome;
  const DataResult result = database->RunQuery(call.Text("QUERY"), outcome);
  if (!Succeeded(result)) return ReportFailure(call, result, database->error());
  const std::string_view tag = call.row().name;
  const StateResult assigned =
      call.Assign(String::Concat({tag, "_Rows"}), ScriptValue(PrintInteger(outcome.rows)));
  if (assigned != StateResult::Handled) return assigned;
  return call.Assign(String::Concat({tag, "_Value"}), ScriptValue(std::move(outcome.value)));
}

}  // namespace vexa
