// Choosing databases and views; see chosen_database.h.

#include "tags/chosen_database.h"

#include "core/encoding.h"

namespace vexa {

String NotOpenMessage(const String& name) {
  return String::Concat({"Database '", EntityEncoded(name), "' is not open"});
}

String InUseMessage(const Database& database) {
  return String::Concat({"Database '", EntityEncoded(database.name()),
                         "' is in use by its own filter or key expression"});
}

Database* GetDatabase(const TagCall& call, String& message) {
  const NameValuePair* const name = call.Find("NAME");
  if (name == nullptr) {
    Database* const primary = call.host().PrimaryDB();
    if (primary == nullptr) {
      message = "There is no primary database, and no database was specified";
    }
    return primary;
  }
  Database* const database = call.host().FindDatabase(name->value.text());
  if (database == nullptr) message = NotOpenMessage(name->value.text());
  return database;
}

DatabaseView* FindViewOf(const TagCall& call, Database& database, String& message) {
  const String& name = call.Text("VIEW");
  DatabaseView* const view = database.FindView(name);
  if (view == nullptr) {
    message = String::Concat({"Database '", EntityEncoded(database.name()), "' has no view named '",
                              EntityEncoded(name), "'"});
  }
  return view;
}

DatabaseView* GetView(const TagCall& call, Database*& database, String& message) {
  database = GetDatabase(call, message);
  if (database == nullptr) return nullptr;
  if (call.Has("VIEW")) return FindViewOf(call, *database, message);
  DatabaseView* const view = database->PrimaryView();
  if (view == nullptr) {
    message =
        String::Concat({"Database '", EntityEncoded(database->name()), "' has no primary view"});
  }
  return view;
}

DatabaseView* GetView(const TagCall& call, String& message) {
  Database* database;
  return GetView(call, database, message);
}

StateResult ReportFailure(const TagCall& call, DataResult result, const String& message) {
  return result == DataResult::Reported ? StateResult::Failed : call.Fail(message);
}

StateResult ResultOf(const TagCall& call, DatabaseView& view, DataResult result) {
  if (result == DataResult::Failed || result == DataResult::Reported) {
    return ReportFailure(call, result, view.error());
  }
  if (result == DataResult::EndOfData) call.NoteOutcome("EOF");
  return StateResult::Handled;
}

}  // namespace vexa
