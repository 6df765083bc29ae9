// Opening and closing databases, and the tags about indexes, views and whole tables.

#include "tags/database_tags.h"

#include <utility>

#include "core/encoding.h"
#include "engine/script_parser.h"
#include "tags/chosen_database.h"

namespace vexa {

namespace {

// An empty database of the type and name that `tag` asks for; null with `message` set.
std::unique_ptr<Database> MakeDatabase(ScriptParser& parser, const Tag& tag, String& message) {
  const String& name = tag.Value("NAME");
  if (parser.host().FindDatabase(name) == nullptr) {
    return parser.host().NewDatabase(tag.Value("TYPE"), name, message);
  }
  message =
      String::Concat({"A database with the name '", EntityEncoded(name), "' is already open"});
  return nullptr;
}

// Hands an open database over to the host.
StateResult Register(ScriptParser& parser, std::unique_ptr<Database> database) {
  Vexa& host = parser.host();
  Database* const opened = database.get();
  host.AddDatabase(std::move(database));
  if (host.PrimaryDB() == nullptr) host.SetPrimaryDB(opened);
  host.logfile().Write(LogLevel::Files, "DATABASEOPENED", opened->name());
  return StateResult::Handled;
}

StateResult CloseAndRemove(ScriptParser& parser, Database& database) {
  database.Close();
  (void)parser.host().RemoveDatabase(&database);
  return StateResult::Handled;
}

// What a tag makes of the result of an operation on `database`.
StateResult Conclude(ScriptParser& parser, const Tag& tag, const Database& database, int result) {
  return result != 0 ? StateResult::Handled : ReportFailure(parser, tag, database.error());
}

}  // namespace

StateResult ProcessVxOPEN(ScriptParser& parser, Tag& tag) {
  String message;
  std::unique_ptr<Database> database = MakeDatabase(parser, tag, message);
  if (database == nullptr) return parser.RuntimeError(tag, message);
  const String& indexes = tag.Value("INDEXES");
  if (database->Open(tag.Value("DATABASE"), tag.Value("USER"), tag.Value("PASSWORD")) == 0 ||
      (!indexes.empty() && database->OpenIndexes(indexes) == 0)) {
    return ReportFailure(parser, tag, database->error());
  }
  return Register(parser, std::move(database));
}

StateResult ProcessVxCREATE(ScriptParser& parser, Tag& tag) {
  String message;
  std::unique_ptr<Database> database = MakeDatabase(parser, tag, message);
  if (database == nullptr) return parser.RuntimeError(tag, message);
  if (database->Create(tag.Value("DATABASE"), tag.Value("FIELDS")) == 0) {
    return ReportFailure(parser, tag, database->error());
  }
  return Register(parser, std::move(database));
}

StateResult ProcessVxCLOSE(ScriptParser& parser, Tag& tag) {
  String message;
  Database* const database = GetDatabase(parser, tag, message);
  if (database == nullptr) return parser.RuntimeError(tag, message);
  if (database->InUse()) return parser.RuntimeError(tag, InUseMessage(*database));
  return CloseAndRemove(parser, *database);
}

StateResult ProcessVxPRIMARY(ScriptParser& parser, Tag& tag) {
  Database* const database = parser.host().FindDatabase(tag.Value("NAME"));
  if (database == nullptr) {
    return parser.RuntimeError(tag, NotOpenMessage(tag.Value("NAME")));
  }
  // Nothing becomes primary when one of the three cannot.
  DatabaseView* view = nullptr;
  if (tag.Has("VIEW")) {
    String message;
    view = FindViewOf(*database, tag, message);
    if (view == nullptr) return parser.RuntimeError(tag, message);
  }
  if (tag.Has("INDEX") && database->SetPrimaryIndex(tag.Value("INDEX")) == 0) {
    return ReportFailure(parser, tag, database->error());
  }
  if (view != nullptr) database->SetPrimaryView(view);
  parser.host().SetPrimaryDB(database);
  return StateResult::Handled;
}

StateResult ProcessVxSETINDEX(ScriptParser& parser, Tag& tag) {
  String message;
  Database* const database = GetDatabase(parser, tag, message);
  if (database == nullptr) return parser.RuntimeError(tag, message);
  return Conclude(parser, tag, *database, database->OpenIndexes(tag.Value("INDEXES")));
}

StateResult ProcessVxMAKEINDEX(ScriptParser& parser, Tag& tag) {
  const NameValuePair* expression = tag.Find("EXPR");
  if (expression == nullptr) expression = tag.Find("EXPRESSION");
  if (expression == nullptr) {
    return parser.RuntimeError(
        tag, String::Concat({tag.name(), " requires the EXPR attribute to be specified"}));
  }
  String message;
  Database* const database = GetDatabase(parser, tag, message);
  if (database == nullptr) return parser.RuntimeError(tag, message);
  return Conclude(
      parser, tag, *database,
      database->CreateIndex(tag.Value("INDEXFILE"), expression->value, tag.Value("FLAGS")));
}

StateResult ProcessVxREINDEX(ScriptParser& parser, Tag& tag) {
  String message;
  Database* const database = GetDatabase(parser, tag, message);
  if (database == nullptr) return parser.RuntimeError(tag, message);
  return Conclude(parser, tag, *database, database->Reindex());
}

StateResult ProcessVxPACK(ScriptParser& parser, Tag& tag) {
  String message;
  Database* const database = GetDatabase(parser, tag, message);
  if (database == nullptr) return parser.RuntimeError(tag, message);
  if (database->InUse()) return parser.RuntimeError(tag, InUseMessage(*database));
  if (database->Pack() != DataResult::Failed) return StateResult::Handled;
  const StateResult result = ReportFailure(parser, tag, database->error());
  // What a pack that failed left open is not to be trusted.
  (void)CloseAndRemove(parser, *database);
  return result;
}

StateResult ProcessVxOPENVIEW(ScriptParser& parser, Tag& tag) {
  String message;
  Database* const database = GetDatabase(parser, tag, message);
  if (database == nullptr) return parser.RuntimeError(tag, message);
  const String& view = tag.Value("VIEW");
  if (database->FindView(view) != nullptr) {
    return parser.RuntimeError(
        tag, String::Concat({"Database '", EntityEncoded(database->name()),
                             "' already has a view named '", EntityEncoded(view), "'"}));
  }
  return Conclude(parser, tag, *database, database->OpenView(view, tag.Value("QUERY")));
}

StateResult ProcessVxCLOSEVIEW(ScriptParser& parser, Tag& tag) {
  String message;
  Database* database;
  DatabaseView* const view = GetView(parser, tag, database, message);
  if (view == nullptr) return parser.RuntimeError(tag, message);
  if (database->InUse()) return parser.RuntimeError(tag, InUseMessage(*database));
  database->RemoveView(view);
  return StateResult::Handled;
}

StateResult ProcessVxQUERY(ScriptParser& parser, Tag& tag) {
  String message;
  Database* const database = GetDatabase(parser, tag, message);
  if (database == nullptr) return parser.RuntimeError(tag, message);
  return Conclude(parser, tag, *database, database->RunQuery(tag.Value("QUERY")));
}

}  // namespace vexa
