// Guarding files and statements of the embedded engine; see sqlite3_safety.h.

#include "sql/drivers/sqlite3_safety.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <new>
#include <string_view>

#include "core/late_function.h"
#include "core/linkless_open.h"
#include "core/text.h"

namespace vexa {

namespace {

// --- Files -----------------------------------------------------------------------------------

// Opens what `path` names when no part of it is a link: what the sandbox found good is then what is
// opened, whatever somebody put in its place meanwhile.
int OpenWithoutLinks(const char* path, int flags, int mode) {
  const int descriptor =
      OpenPath(path, flags | O_NONBLOCK, static_cast<mode_t>(mode), LinkRule::Refuse);
  struct stat status;
  if (descriptor < 0 || ::fstat(descriptor, &status) != 0) return descriptor;
  if (!S_ISFIFO(status.st_mode) && !S_ISSOCK(status.st_mode)) return descriptor;
  (void)::close(descriptor);
  errno = ENXIO;
  return -1;
}

// A journal is removed from the directory that was held good, never from one behind a link.
int RemoveWithoutLinks(const char* path) {
  const String directory = std::string_view(path).substr(0, std::string_view(path).rfind('/') + 1);
  const int held = OpenPath(directory.empty() ? "." : directory.c_str(), O_PATH | O_DIRECTORY, 0,
                            LinkRule::Refuse);
  if (held < 0) return -1;
  const auto unlink_at = LateFunction<"unlinkat", decltype(::unlinkat)>();
  const int result = unlink_at(held, path + directory.size(), 0);
  const int reason = errno;
  (void)::close(held);
  errno = reason;
  return result;
}

int LookWithoutLinks(const char* path, struct stat* status) {
  return LookAtPath(path, 0, *status, LinkRule::Refuse);
}

// A link at the end is what is looked at: the engine refuses it then.
int LookAtLastLink(const char* path, struct stat* status) {
  return LookAtPath(path, O_NOFOLLOW, *status, LinkRule::Refuse);
}

// The engine is not made for what is thrown through it.
template <auto Call, typename... Arguments>
int WithoutThrowing(Arguments... arguments) {
  try {
    return Call(arguments...);
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return -1;
  }
}

// --- Statements ------------------------------------------------------------------------------

// What statements may ask the engine about its state: nothing here changes anything.
constexpr std::string_view kQuestions =
    " collation_list compile_options data_version encoding foreign_keys freelist_count"
    " function_list page_count page_size schema_version ";
// Questions whose value is the name of what they tell about, if they have one.
constexpr std::string_view kNamedQuestions =
    " foreign_key_check foreign_key_list index_info index_list index_xinfo integrity_check"
    " quick_check table_info table_list table_xinfo ";

bool IsOneOf(std::string_view names, std::string_view name) {
  const String word = String::Concat({" ", name, " "}).lower();
  return names.find(word.view()) != names.npos;
}

bool MayAskOrSet(std::string_view pragma, const char* value) {
  if (EqualsIgnoreCase(pragma, "user_version")) return true;
  if (EqualsIgnoreCase(pragma, "journal_mode")) {
    return value == nullptr || EqualsIgnoreCase(value, "wal") || EqualsIgnoreCase(value, "delete");
  }
  return IsOneOf(kNamedQuestions, pragma) || (value == nullptr && IsOneOf(kQuestions, pragma));
}

// Sizes beyond which no honest statement or file goes; the engine's own are larger.
struct Limit {
  int id;
  int most;
};
constexpr Limit kLimits[] = {
    {SQLITE_LIMIT_LENGTH, 1 << 28},   {SQLITE_LIMIT_SQL_LENGTH, 1'000'000},
    {SQLITE_LIMIT_EXPR_DEPTH, 500},   {SQLITE_LIMIT_TRIGGER_DEPTH, 50},
    {SQLITE_LIMIT_WORKER_THREADS, 0}, {SQLITE_LIMIT_LIKE_PATTERN_LENGTH, 1000},
};

struct Switch {
  int id;
  int on;
};
constexpr Switch kSwitches[] = {
    {SQLITE_DBCONFIG_ENABLE_FKEY, 1},
    {SQLITE_DBCONFIG_DEFENSIVE, 1},
    {SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0},
    {SQLITE_DBCONFIG_ENABLE_LOAD_EXTENSION, 0},
    // A quoted name that is no column (any more) is an error, and not a text.
    {SQLITE_DBCONFIG_DQS_DML, 0},
};

}  // namespace

void GuardSqlite3Files(const Sqlite3Library& library) {
  sqlite3_vfs* const files = library.vfs_find(nullptr);
  if (files == nullptr || files->iVersion < 3 || files->xSetSystemCall == nullptr) return;
  const auto set = [&](const char* name, auto* function) {
    (void)files->xSetSystemCall(files, name, reinterpret_cast<sqlite3_syscall_ptr>(function));
  };
  set("open", &WithoutThrowing<&OpenWithoutLinks, const char*, int, int>);
  set("unlink", &WithoutThrowing<&RemoveWithoutLinks, const char*>);
  set("stat", &WithoutThrowing<&LookWithoutLinks, const char*, struct stat*>);
  set("lstat", &WithoutThrowing<&LookAtLastLink, const char*, struct stat*>);
}

bool Sqlite3Guard::Install(const Sqlite3Library& library, sqlite3* database) {
  for (const Limit& limit : kLimits) (void)library.limit(database, limit.id, limit.most);
  for (const Switch& row : kSwitches) {
    if (library.db_config(database, row.id, row.on, nullptr) != SQLITE_OK) return false;
  }
  return library.set_authorizer(database, &Sqlite3Guard::Ask, this) == SQLITE_OK;
}

int Sqlite3Guard::Ask(void* guard, int action, const char* first, const char* second,
                      const char* /*schema*/, const char* /*source*/) {
  try {
    return static_cast<Sqlite3Guard*>(guard)->MayRun(action, first, second) ? SQLITE_OK
                                                                            : SQLITE_DENY;
  } catch (const std::bad_alloc&) {
    return SQLITE_DENY;
  }
}

bool Sqlite3Guard::MayRun(int action, const char* first, const char* second) {
  const std::string_view name = first == nullptr ? "" : first;
  switch (action) {
    case SQLITE_ATTACH:
      // Packing a file goes through a further database without a name, which is a temporary file.
      return (first != nullptr && name.empty()) || Refuse("Opening another file");
    case SQLITE_PRAGMA:
      return MayAskOrSet(name, second) || Refuse(String::Concat({"PRAGMA ", name}));
    case SQLITE_FUNCTION:
      return !EqualsIgnoreCase(second == nullptr ? "" : second, "load_extension") ||
             Refuse("load_extension");
    default:
      return true;
  }
}

bool Sqlite3Guard::Refuse(std::string_view what) {
  refusal_ = String::Concat({what, " is not allowed"});
  return false;
}

}  // namespace vexa
