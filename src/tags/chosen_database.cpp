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

Database* GetDatabase(ScriptParser& parser, const Tag& tag, String& message) {
  const NameValuePair* const name = tag.Find("NAME");
  if (name == nullptr) {
    Database* const primary = parser.host().PrimaryDB();
    if (primary == nullptr) {
      message = "There is no primary database, and no database was specified";
    }
    return primary;
  }
  Database* const database = parser.host().FindDatabase(name->value);
  if (database == nullptr) message = NotOpenMessage(name->value);
  return database;
}

DatabaseView* FindViewOf(Database& database, const Tag& tag, String& message) {
  const String& name = tag.Value("VIEW");
  DatabaseView* const view = database.FindView(name);
  if (view == nullptr) {
    message = String::Concat({"Database '", EntityEncoded(database.name()), "' has no view named '",
                              EntityEncoded(name), "'"});
  }
  return view;
}

DatabaseView* GetView(ScriptParser& parser, const Tag& tag, Database*& database, String& message) {
  database = GetDatabase(parser, tag, message);
  if (database == nullptr) return nullptr;
  if (tag.Has("VIEW")) return FindViewOf(*database, tag, message);
  DatabaseView* const view = database->PrimaryView();
  if (view == nullptr) {
    message =
        String::Concat({"Database '", EntityEncoded(database->name()), "' has no primary view"});
  }
  return view;
}

DatabaseView* GetView(ScriptParser& parser, const Tag& tag, String& message) {
  Database* database;
  return GetView(parser, tag, database, message);
}

StateResult ReportFailure(ScriptParser& parser, const Tag& tag, const String& message) {
  return message.empty() ? StateResult::Failed : parser.RuntimeError(tag, message);
}

StateResult Conclude(ScriptParser& parser, const Tag& tag, DatabaseView& view, DataResult result) {
  if (result == DataResult::Failed) return ReportFailure(parser, tag, view.error());
  if (result == DataResult::EndOfData) parser.SetErrorVariable(tag.form(), "EOF");
  return StateResult::Handled;
}

}  // namespace vexa
