// The connection to a file, and its statements; see sqlite3_driver.h.

#include "sql/drivers/sqlite3_driver.h"

#include <sys/stat.h>

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cstring>
#include <ctime>

#include "core/file.h"
#include "core/late_function.h"
#include "core/linkless_open.h"
#include "core/memory_limit.h"
#include "core/number.h"
#include "core/outside.h"
#include "core/text.h"
#include "sql/drivers/sql_text.h"

namespace vexa {

namespace {

constexpr size_t kMostPrepared = 24;
constexpr size_t kLongestKept = 8192;  // bytes of a text whose statement is kept
constexpr int kStepsBetweenLooks = 20'000;

String KeptName(int id) { return String::Concat({"temp.vexa_view_", PrintInteger(id)}); }

// Whether statements that begin so change rows and count them.
bool ChangesRows(std::string_view text) {
  size_t ignored;
  const std::string_view word = FirstWord(text, ignored);
  constexpr char kWords[][8] = {"INSERT", "UPDATE", "DELETE", "REPLACE", "WITH"};
  return std::any_of(std::begin(kWords), std::end(kWords),
                     [word](const char* known) { return EqualsIgnoreCase(word, known); });
}

bool IsQuery(std::string_view text) {
  size_t ignored;
  const std::string_view word = FirstWord(text, ignored);
  return EqualsIgnoreCase(word, "SELECT") || EqualsIgnoreCase(word, "VALUES") ||
         EqualsIgnoreCase(word, "WITH");
}

}  // namespace

std::unique_ptr<SqlDriver> MakeSqlite3Driver(Vexa& host) {
  return std::make_unique<Sqlite3Driver>(host);
}

// --- The connection --------------------------------------------------------------------------

Sqlite3Driver::~Sqlite3Driver() {
  for (const Prepared& kept : prepared_) (void)library_->finalize(kept.statement);
  if (database_ != nullptr) (void)library_->close_v2(database_);
}

bool Sqlite3Driver::Fail(int code, SqlFault& fault) {
  const int plain = code & 0xFF;
  const int extended = library_->extended_errcode(database_);
  fault.kind = SqlFault::Kind::Other;
  fault.message = guard_.refusal().empty() ? library_->errmsg(database_) : guard_.refusal().c_str();
  if (plain == SQLITE_INTERRUPT ||
      ((plain == SQLITE_BUSY || plain == SQLITE_LOCKED) && host_.timedout())) {
    fault = {SqlFault::Kind::TimedOut, "Timed out"};
  } else if (plain == SQLITE_NOMEM) {
    fault.kind = SqlFault::Kind::NoMemory;
  } else if (extended == SQLITE_CONSTRAINT_PRIMARYKEY || extended == SQLITE_CONSTRAINT_UNIQUE ||
             extended == SQLITE_CONSTRAINT_ROWID) {
    fault.kind = SqlFault::Kind::DuplicateKey;
  }
  return false;
}

bool Sqlite3Driver::Resolve(const SqlPlace& place, String& path, SqlFault& fault) {
  // What is open here already may be opened again: it is one connection then.
  const HeldFile::Aside aside;
  String resolved;
  if (host_.ResolvePath(place.place, resolved, PathType::DataPath, fault.message) == 0) {
    fault.kind = SqlFault::Kind::Refused;
    return false;
  }
  // Links before the last part were judged there, and are no part of what is opened.
  const size_t slash = resolved.view().rfind('/');
  String directory = resolved.before(static_cast<int>(slash + 1));
  String real;
  path = resolved;
  if (host_.filemanager().RealPath(directory, real) == 0) {
    path = String::Concat(
        {real, real.view().ends_with('/') ? "" : "/", resolved.view().substr(slash + 1)});
  }
  return true;
}

bool Sqlite3Driver::Identify(const SqlPlace& place, String& identity, SqlFault& fault) {
  String path;
  if (!Resolve(place, path, fault)) return false;
  struct stat status;
  identity = path;
  if (LookAtPath(path.c_str(), 0, status, LinkRule::Refuse) == 0) {
    identity = String::Concat({PrintInteger(static_cast<int64_t>(status.st_dev)), ":",
                               PrintInteger(static_cast<int64_t>(status.st_ino))});
  }
  return true;
}

bool Sqlite3Driver::OpenFile(const String& path, bool create, SqlFault& fault) {
  struct stat status;
  const bool is_there = LookAtPath(path.c_str(), 0, status, LinkRule::Refuse) == 0;
  if (!is_there && !create) {
    fault.message = std::strerror(errno);
    return false;
  }
  if (is_there && !S_ISREG(status.st_mode)) {
    fault.message = "It is no file";
    return false;
  }
  if (host_.filemanager().HasOpen(path)) {
    fault.message = "The page has it open as a file";
    return false;
  }
  held_ = std::make_unique<HeldFile>(path);
  const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOFOLLOW | SQLITE_OPEN_NOMUTEX |
                    (create ? SQLITE_OPEN_CREATE : 0);
  const int code = library_->open_v2(path.c_str(), &database_, flags, nullptr);
  if (code == SQLITE_OK) return true;
  if (database_ == nullptr) {
    fault.kind = SqlFault::Kind::NoMemory;
    return false;
  }
  const int reason = library_->system_errno(database_);
  const bool is_link = library_->extended_errcode(database_) == SQLITE_CANTOPEN_SYMLINK;
  (void)Fail(code, fault);
  if (reason != 0) fault.message = std::strerror(reason);
  if (is_link) fault.message = "It is a symbolic link";
  return false;
}

bool Sqlite3Driver::Connect(const SqlPlace& place, SqlFault& fault) {
  assert(database_ == nullptr);
  library_ = Sqlite3Library::Load();
  if (library_ == nullptr) {
    fault = {SqlFault::Kind::NoLibrary,
             "Databases of type 'sqlite3' need libsqlite3.so.0, which is not installed"};
    return false;
  }
  LookOutside();
  GuardSqlite3Files(*library_);
  String path;
  if (!Resolve(place, path, fault)) return false;
  // Kept as long as the process: the engine borrows it.
  static String temporary;
  const SitePlaces places = host_.places();
  const String& directory = host_.config().tempdir.empty() ? places.data : host_.config().tempdir;
  if (host_.filemanager().RealPath(directory, temporary) != 0) temporary = directory;
  *library_->temp_directory = const_cast<char*>(temporary.c_str());
  if (!OpenFile(path, place.create, fault)) return false;
  (void)library_->busy_handler(database_, &Sqlite3Driver::WaitForLock, this);
  library_->progress_handler(database_, kStepsBetweenLooks, &Sqlite3Driver::LookAtClock, this);
  // The header is read here, and damage inside a page is looked for wherever one is read.
  std::vector<SqlRow> rows;
  if (!Ask("PRAGMA cell_size_check=1", {}, rows, fault) ||
      !Ask("PRAGMA synchronous=2", {}, rows, fault)) {
    return false;
  }
  if (!guard_.Install(*library_, database_)) return Fail(SQLITE_ERROR, fault);
  if (!Ask("PRAGMA encoding", {}, rows, fault)) return false;
  bytes_order_texts_ = !rows.empty() && rows[0][0].text == "UTF-8";
  return Ask("SELECT count(*) FROM sqlite_master", {}, rows, fault);
}

bool Sqlite3Driver::InTransaction() { return library_->get_autocommit(database_) == 0; }

int Sqlite3Driver::WaitForLock(void* driver, int tries) {
  constexpr long kMillisecond = 1'000'000;
  constexpr int kLongestWait = 20;
  if (static_cast<Sqlite3Driver*>(driver)->host_.timedout()) return 0;
  const timespec wait = {0, kMillisecond * std::min(tries + 1, kLongestWait)};
  (void)LateFunction<"nanosleep", decltype(::nanosleep)>()(&wait, nullptr);
  return 1;
}

int Sqlite3Driver::LookAtClock(void* driver) {
  return static_cast<Sqlite3Driver*>(driver)->host_.timedout() ? 1 : 0;
}

// --- Statements ------------------------------------------------------------------------------

// Whether behind a statement stands nothing but blanks, comments and semicolons.
bool Sqlite3Driver::IsOneStatement(const char* rest, const char* end) {
  while (rest < end) {
    sqlite3_stmt* further = nullptr;
    const char* tail = end;
    const int code =
        library_->prepare_v2(database_, rest, static_cast<int>(end - rest), &further, &tail);
    (void)library_->finalize(further);
    if (code != SQLITE_OK || further != nullptr) return false;
    rest = tail;
  }
  return true;
}

sqlite3_stmt* Sqlite3Driver::Prepare(const String& text, SqlFault& fault) {
  guard_.Begin();
  for (auto kept = prepared_.begin(); kept != prepared_.end(); ++kept) {
    if (!(kept->text == text)) continue;
    prepared_.splice(prepared_.begin(), prepared_, kept);
    return kept->statement;
  }
  fault.kind = SqlFault::Kind::Other;
  if (text.view().find('\0') != std::string_view::npos) {
    fault.message = "The statement holds a byte 0";
    return nullptr;
  }
  sqlite3_stmt* statement = nullptr;
  const char* rest = nullptr;
  const int code = library_->prepare_v2(database_, text.c_str(), text.length(), &statement, &rest);
  if (code != SQLITE_OK) {
    (void)Fail(code, fault);
    return nullptr;
  }
  if (statement == nullptr) {
    fault.message = "The statement is empty";
    return nullptr;
  }
  if (!IsOneStatement(rest, text.c_str() + text.size())) {
    (void)library_->finalize(statement);
    fault.message = "More than one statement";
    return nullptr;
  }
  prepared_.push_front({text, statement});
  if (prepared_.size() > kMostPrepared) {
    (void)library_->finalize(prepared_.back().statement);
    prepared_.pop_back();
  }
  return statement;
}

void Sqlite3Driver::Forget(sqlite3_stmt* statement) {
  prepared_.remove_if([statement](const Prepared& kept) { return kept.statement == statement; });
  (void)library_->finalize(statement);
}

bool Sqlite3Driver::Bind(sqlite3_stmt* statement, const SqlRow& parameters, SqlFault& fault) {
  if (library_->bind_parameter_count(statement) != static_cast<int>(parameters.size())) {
    fault = {SqlFault::Kind::Other, "The parameters do not fit the statement"};
    return false;
  }
  int number = 0;
  for (const SqlValue& value : parameters) {
    ++number;
    const auto size = static_cast<sqlite3_uint64>(value.text.size());
    int code = SQLITE_OK;
    // The values outlive the run of the statement, which ends with the bindings cleared.
    switch (value.kind) {
      case SqlValue::Kind::Null:
        code = library_->bind_null(statement, number);
        break;
      case SqlValue::Kind::Integer:
        code = library_->bind_int64(statement, number, value.integer);
        break;
      case SqlValue::Kind::Real:
        code = library_->bind_double(statement, number, value.real);
        break;
      case SqlValue::Kind::Text:
        code = library_->bind_text64(statement, number, value.text.c_str(), size, nullptr,
                                     SQLITE_UTF8);
        break;
      case SqlValue::Kind::Bytes:
        code = library_->bind_blob64(statement, number, value.text.c_str(), size, nullptr);
        break;
    }
    if (code != SQLITE_OK) return Fail(code, fault);
  }
  return true;
}

void Sqlite3Driver::ReadRow(sqlite3_stmt* statement, SqlRow& row, int64_t& bytes) {
  const int count = library_->column_count(statement);
  row.reserve(static_cast<size_t>(count));
  for (int i = 0; i < count; ++i) {
    switch (library_->column_type(statement, i)) {
      case SQLITE_INTEGER:
        row.push_back(SqlValue::Integer(library_->column_int64(statement, i)));
        break;
      case SQLITE_FLOAT:
        row.push_back(SqlValue::Real(library_->column_double(statement, i)));
        break;
      case SQLITE_TEXT: {
        const auto* text = reinterpret_cast<const char*>(library_->column_text(statement, i));
        if (text == nullptr) ThrowNoMemory();
        row.push_back(SqlValue::Text(String(text, library_->column_bytes(statement, i))));
        break;
      }
      case SQLITE_BLOB: {
        const auto* data = static_cast<const char*>(library_->column_blob(statement, i));
        if (data == nullptr && library_->extended_errcode(database_) == SQLITE_NOMEM) {
          ThrowNoMemory();
        }
        row.push_back(SqlValue::Bytes(String(data, library_->column_bytes(statement, i))));
        break;
      }
      default:
        row.push_back({});
        break;
    }
    bytes += static_cast<int64_t>(sizeof(SqlValue)) + row.back().text.length();
  }
}

bool Sqlite3Driver::Step(sqlite3_stmt* statement, const SqlWanted& wanted, SqlResult& result,
                         SqlFault& fault) {
  result.yields = library_->column_count(statement) > 0;
  int64_t bytes = 0;
  int code;
  while ((code = library_->step(statement)) == SQLITE_ROW) {
    ++result.yielded;
    const auto given = static_cast<int64_t>(result.rows.size());
    if (given >= wanted.rows || (given > 0 && bytes >= wanted.bytes)) continue;
    SqlRow row;
    ReadRow(statement, row, bytes);
    result.rows.push_back(std::move(row));
  }
  return code == SQLITE_DONE || Fail(code, fault);
}

bool Sqlite3Driver::Run(const SqlStatement& statement, const SqlWanted& wanted, SqlResult& result,
                        SqlFault& fault) {
  LookOutside();
  result = {};
  sqlite3_stmt* const prepared = Prepare(statement.text, fault);
  if (prepared == nullptr) return false;
  if (!Bind(prepared, statement.parameters, fault) || !Step(prepared, wanted, result, fault)) {
    Forget(prepared);
    return false;
  }
  if (library_->stmt_readonly(prepared) == 0 && ChangesRows(statement.text)) {
    result.changed = library_->changes(database_);
  }
  // Giving back what the last step took may fail too: a commit waits until here.
  const int code = library_->reset(prepared);
  (void)library_->clear_bindings(prepared);
  const bool done = code == SQLITE_OK || Fail(code, fault);
  if (!done || statement.text.size() > kLongestKept) Forget(prepared);
  return done;
}

bool Sqlite3Driver::Ask(std::string_view text, SqlRow parameters, std::vector<SqlRow>& rows,
                        SqlFault& fault) {
  constexpr int64_t kAll = INT64_MAX;
  SqlResult result;
  if (!Run({text, std::move(parameters)}, {kAll, kAll}, result, fault)) return false;
  rows = std::move(result.rows);
  return true;
}

// --- Results that are kept -------------------------------------------------------------------

bool Sqlite3Driver::Keep(int id, const SqlStatement& query, std::vector<SqlColumn>& columns,
                         int64_t& count, SqlFault& fault) {
  sqlite3_stmt* const prepared = Prepare(query.text, fault);
  if (prepared == nullptr) return false;
  if (!IsQuery(query.text) || library_->stmt_readonly(prepared) == 0) {
    fault = {};
    Forget(prepared);
    return false;
  }
  columns.clear();
  String names;
  for (int i = 0; i < library_->column_count(prepared); ++i) {
    const char* const name = library_->column_name(prepared, i);
    const char* const declared = library_->column_decltype(prepared, i);
    if (name == nullptr) ThrowNoMemory();
    columns.push_back(DeclaredColumn(name, declared == nullptr ? "" : declared));
    names.Append(String::Concat({i == 0 ? "c" : ",c", PrintInteger(i)}));
  }
  Forget(prepared);
  // A temporary table without types keeps each value as it is, in the order that they came.
  const String name = KeptName(id);
  std::vector<SqlRow> ignored;
  if (!Ask(String::Concat({"CREATE TABLE ", name, "(", names, ")"}), {}, ignored, fault)) {
    return false;
  }
  SqlStatement filling = query;
  filling.text = String::Concat({"INSERT INTO ", name, " ", query.text});
  SqlResult result;
  if (!Run(filling, {}, result, fault)) {
    DropKept(id);
    return false;
  }
  count = result.changed;
  return true;
}

bool Sqlite3Driver::ReadKept(int id, int64_t first, const SqlWanted& wanted,
                             std::vector<SqlRow>& rows, SqlFault& fault) {
  SqlResult result;
  const String text = String::Concat(
      {"SELECT * FROM ", KeptName(id), " WHERE rowid>=?1 AND rowid<?2 ORDER BY rowid"});
  const SqlRow range = {SqlValue::Integer(first), SqlValue::Integer(first + wanted.rows)};
  if (!Run({text, range}, wanted, result, fault)) return false;
  rows = std::move(result.rows);
  return true;
}

void Sqlite3Driver::DropKept(int id) {
  SqlFault ignored;
  std::vector<SqlRow> rows;
  (void)Ask(String::Concat({"DROP TABLE IF EXISTS ", KeptName(id)}), {}, rows, ignored);
}

}  // namespace vexa
