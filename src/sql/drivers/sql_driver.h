// SqlDriver: one connection to an SQL server, and all that differs between the servers.
//
//   SqlSession (sql/sql_session)       shares a driver among the databases of a page; transactions
//   SqlView (sql/sql_view)             walks, finds and changes with statements made of the texts
//   here Sqlite3Driver, PostgresqlDriver    the drivers
//
// A driver runs one statement at a time, to its end: nothing stays open between two calls but the
// connection, the transaction that a page began, and the results that were kept. Every call ends
// by the request's deadline (host.timeremaining(), host.timedout()), on the server too, and tells
// so as SqlFault::TimedOut; without a deadline it waits.
//
// Operations return false with `fault` set; nothing else is changed then. Messages are the
// engine's, not HTML, without any password. Texts and names from pages never become part of a
// statement but through QuotedName (sql_text.h) for names and Mark for values.

#ifndef VEXA_SQL_DRIVERS_SQL_DRIVER_H_
#define VEXA_SQL_DRIVERS_SQL_DRIVER_H_

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "core/string.h"
#include "sql/drivers/sql_table.h"
#include "sql/drivers/sql_value.h"
#include "vexa.h"

namespace vexa {

struct SqlFault {
  enum class Kind : uint8_t {
    Other,
    NoLibrary,     // the message says all; the database is not named beside it
    Refused,       // a path that the sandbox refuses; the message is HTML, and says all
    DuplicateKey,  // a unique key is there already
    TimedOut,
    NoMemory,
    Gone,  // the connection is lost: so is everything that is asked of it from now on
  };
  Kind kind = Kind::Other;
  String message;
};

// Where a database is, as a page wrote it; the part of DATABASE before the last `#`.
struct SqlPlace {
  String place;
  String user;
  String password;
  // It may be made when there is none (for servers where a page can do that).
  bool create = false;
};

struct SqlStatement {
  String text;
  SqlRow parameters;  // parameters[0] is for Mark(1)
};

// How much of its rows a statement gives back; it runs to its end all the same.
struct SqlWanted {
  int64_t rows = 0;
  // No further row once those before it have this many bytes. At least one row is given.
  int64_t bytes = 4 << 20;
};

struct SqlResult {
  std::vector<SqlRow> rows;  // as many as were wanted
  int64_t yielded = 0;       // rows in all
  bool yields = false;       // whether it is a statement that yields rows, be there any or none
  int64_t changed = 0;       // rows that an INSERT, UPDATE or DELETE changed, else 0
};

// How a query is cut into words, besides '...', "..." and -- comments and C comments.
struct SqlLexis {
  bool backticks;        // `name`
  bool brackets;         // [name]
  bool nested_comments;  // /* /* */ */
  bool dollar_quotes;    // $tag$ ... $tag$
  bool escape_strings;   // E'...' with backslashes
  // The engine's own parameters, which pages do not write: first characters that stand alone
  // outside quotes ("?@$"), or `$` only before a digit.
  std::string_view placeholders;
  bool dollar_digits;
};

// A condition of a WHERE with what its marks stand for.
struct SqlCondition {
  String text;
  // Appended to the statement's parameters; marks go on from `first_mark`.
  SqlRow parameters;
};

// A field that VxCREATE declares: the letter of its type (C, N, D, L, M), lower-case name, length
// in characters or digits, decimals.
struct SqlField {
  String name;
  char letter;
  int length;
  int decimals;
};

struct SqlNewIndex {
  SqlTable table;
  String name;
  std::vector<SqlTerm> terms;  // column, function, descending; in byte order, NULL first as rising
  bool unique = false;
};

class SqlDriver {
 public:
  virtual ~SqlDriver() = default;

  // The type as VxOPEN names it.
  [[nodiscard]] virtual std::string_view type() const = 0;

  // --- The connection ---
  // A text that two places have in common exactly when one connection serves both. Asks no server.
  [[nodiscard]] virtual bool Identify(const SqlPlace& place, String& identity, SqlFault& fault) = 0;
  // REQUIRES of all that follows: Connect was called once and did.
  [[nodiscard]] virtual bool Connect(const SqlPlace& place, SqlFault& fault) = 0;
  // Whether a transaction is open on the server.
  [[nodiscard]] virtual bool InTransaction() = 0;

  // --- Statements ---
  // Runs one statement. A text of more than one fails before anything runs; an empty one fails.
  [[nodiscard]] virtual bool Run(const SqlStatement& statement, const SqlWanted& wanted,
                                 SqlResult& result, SqlFault& fault) = 0;

  // --- Results that the engine keeps, to be read both ways ---
  // Runs a query that must change nothing (else Other, with an empty message), keeps what it
  // yields under the number `id`, and describes it. The page's transaction goes on as it was.
  [[nodiscard]] virtual bool Keep(int id, const SqlStatement& query,
                                  std::vector<SqlColumn>& columns, int64_t& count,
                                  SqlFault& fault) = 0;
  // Up to `wanted` rows from position `first` on, from 1.
  [[nodiscard]] virtual bool ReadKept(int id, int64_t first, const SqlWanted& wanted,
                                      std::vector<SqlRow>& rows, SqlFault& fault) = 0;
  // Gives it up. It may be gone already.
  virtual void DropKept(int id) = 0;

  // --- What is there ---
  // `found` is false when there is no table or view of that name.
  [[nodiscard]] virtual bool DescribeTable(const String& name, SqlTable& table, bool& found,
                                           SqlFault& fault) = 0;
  [[nodiscard]] virtual bool DescribeIndex(const SqlTable& table, const String& name,
                                           SqlIndex& index, bool& found, SqlFault& fault) = 0;

  // --- Texts of statements ---
  [[nodiscard]] virtual const SqlLexis& lexis() const = 0;
  // What the bare word BEGIN of a page is to this server.
  [[nodiscard]] virtual std::string_view begin() const = 0;
  // The mark of parameter `number`, from 1.
  [[nodiscard]] virtual String Mark(size_t number) const = 0;
  // `term` as a value to be compared: `"name"`, `upper("name") COLLATE "C"`.
  [[nodiscard]] virtual String TermText(const SqlTable& table, const SqlTerm& term) const = 0;
  // Parameter `number`, which holds a value of the term's column, as TermText would give it:
  // `upper($1)`.
  [[nodiscard]] virtual String ValueText(const SqlTable& table, const SqlTerm& term,
                                         size_t number) const = 0;
  // The term with direction and place of NULLs, for ORDER BY; `reversed` for the way back.
  [[nodiscard]] virtual String OrderText(const SqlTable& table, const SqlTerm& term,
                                         bool reversed) const = 0;
  // What a row must fulfil to be found by `value`, as a page wrote it, in `term`. `prefix`: for
  // texts, begin with it, byte by byte. NULL counts as the empty text. False: the type cannot hold
  // the value, no row fulfils it. Marks begin with `first_mark`.
  [[nodiscard]] virtual bool FindCondition(const SqlTable& table, const SqlTerm& term,
                                           const String& value, bool prefix, size_t first_mark,
                                           SqlCondition& condition) const = 0;
  // Whether `next` may stand behind `row` in this order, as far as the driver can tell: in a
  // damaged index it may not, and a walk by keys would go in circles.
  [[nodiscard]] virtual bool MayFollow(const std::vector<SqlTerm>& order, const SqlRow& row,
                                       const SqlRow& next, bool backward,
                                       SqlFault& fault) const = 0;
  // The statements, to be run in one transaction.
  [[nodiscard]] virtual std::vector<String> CreateTable(const String& name,
                                                        const std::vector<SqlField>& fields) = 0;
  // One in the place of the index of that name on this table when there is one.
  [[nodiscard]] virtual std::vector<String> CreateIndex(const SqlNewIndex& index) = 0;
  // The statements of VxPACK and VxREINDEX, which stand alone.
  [[nodiscard]] virtual String PackText(const SqlTable& table) const = 0;
  [[nodiscard]] virtual String ReindexText(const SqlTable& table) const = 0;
};

// The drivers, each closed. `host` is borrowed.
[[nodiscard]] std::unique_ptr<SqlDriver> MakeSqlite3Driver(Vexa& host);
[[nodiscard]] std::unique_ptr<SqlDriver> MakePostgresqlDriver(Vexa& host);

}  // namespace vexa

#endif  // VEXA_SQL_DRIVERS_SQL_DRIVER_H_
