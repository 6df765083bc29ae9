// What keeps the embedded engine inside the sandbox: how it opens files, and what statements may
// not do whatever text they come from, a page's or a file's.

#ifndef VEXA_SQL_DRIVERS_SQLITE3_SAFETY_H_
#define VEXA_SQL_DRIVERS_SQLITE3_SAFETY_H_

#include "core/string.h"
#include "sql/drivers/sqlite3_library.h"

namespace vexa {

// Lets the engine open, remove and look at files through no link, in the whole process. Null files
// and pipes of others are not waited for.
void GuardSqlite3Files(const Sqlite3Library& library);

// Asked by the engine what a statement may do, while it is prepared.
class Sqlite3Guard {
 public:
  // Sets limits and switches of a new connection, and has every statement asked about from here on.
  // False when the engine refuses.
  [[nodiscard]] bool Install(const Sqlite3Library& library, sqlite3* database);

  // What the last statement was refused for; empty when it was not. Begin forgets it.
  [[nodiscard]] const String& refusal() const { return refusal_; }
  void Begin() { refusal_.clear(); }

 private:
  static int Ask(void* guard, int action, const char* first, const char* second, const char* schema,
                 const char* source);
  [[nodiscard]] bool MayRun(int action, const char* first, const char* second);
  bool Refuse(std::string_view what);

  String refusal_;
};

}  // namespace vexa

#endif  // VEXA_SQL_DRIVERS_SQLITE3_SAFETY_H_
