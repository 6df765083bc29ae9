// PostgresqlConnection: a session of a PostgreSQL server, in which nothing is waited for longer
// than the request may run.
//
//   made ─Connect─▶ ready ─Run─▶ ready, whatever the statement came to
//                     └───────▶ gone: out of time, or lost. What was under way is cancelled
//
// The library is only ever asked for what it can do at once; all waiting is WaitFor. The server has
// the limit too: whenever the time that is left is another number of seconds, the session is told,
// so that it ends what this process can no longer end. A connection that is gone stays so: what a
// page believes to be inside a transaction must not happen outside of it.

#ifndef VEXA_SQL_DRIVERS_POSTGRESQL_CONNECTION_H_
#define VEXA_SQL_DRIVERS_POSTGRESQL_CONNECTION_H_

#include <cstdint>
#include <string_view>
#include <vector>

#include "core/string.h"
#include "sql/drivers/postgresql_library.h"
#include "sql/drivers/postgresql_place.h"
#include "sql/drivers/sql_driver.h"
#include "vexa.h"

namespace vexa {

// What a statement came to besides its rows.
struct PostgresqlReply {
  std::vector<SqlColumn> columns;
  int64_t count = 0;  // of its command tag: rows changed, moved over, yielded
  String state;       // SQLSTATE of its failure; empty: none, or not from the server
};

class PostgresqlConnection {
 public:
  explicit PostgresqlConnection(Vexa& host) : host_(host) {}
  ~PostgresqlConnection() { Close(); }
  PostgresqlConnection(const PostgresqlConnection&) = delete;
  PostgresqlConnection& operator=(const PostgresqlConnection&) = delete;

  // False with `fault` set when no server of the place is reached in time.
  [[nodiscard]] bool Connect(const SqlPlace& written, SqlFault& fault);
  // Runs one statement to its end. False with `fault` set. REQUIRES: Connect did.
  [[nodiscard]] bool Run(const SqlStatement& statement, const SqlWanted& wanted, SqlResult& result,
                         PostgresqlReply& reply, SqlFault& fault);
  // Where the session stands; PQTRANS_UNKNOWN when it is gone.
  [[nodiscard]] PGTransactionStatusType transaction() const;
  [[nodiscard]] int version() const { return library_->serverVersion(connection_); }
  // A number that the sessions under way at a server do not share.
  [[nodiscard]] int64_t number() const {
    return static_cast<uint32_t>(library_->backendPID(connection_));
  }

 private:
  // --- Connecting ---
  [[nodiscard]] bool ConnectTo(const PostgresqlServer& server, std::string_view attributes,
                               int64_t servers_left, SqlFault& fault);
  [[nodiscard]] bool Attempt(const PostgresqlServer& server, std::string_view attributes,
                             SqlFault& fault);
  void Start(const PostgresqlServer& server, std::string_view attributes);
  [[nodiscard]] bool Poll(SqlFault& fault);
  void LimitAttempt(int64_t attempts_left);

  // --- The session ---
  [[nodiscard]] bool PrepareSession(SqlFault& fault);
  [[nodiscard]] bool RestoreSession(SqlFault& fault);
  [[nodiscard]] bool LimitTime(SqlFault& fault);
  // Sets them again where a statement of the page changed settings.
  [[nodiscard]] bool KeepLimits(std::string_view statement, SqlFault& fault);
  [[nodiscard]] bool RunOwn(const String& statements, SqlFault& fault);

  // --- Statements ---
  [[nodiscard]] bool Send(const SqlStatement& statement);
  [[nodiscard]] bool Flush(SqlFault& fault);
  // The next result; null behind the last one, and with `fault` set when the time is up.
  [[nodiscard]] PGresult* NextResult(SqlFault& fault);
  [[nodiscard]] bool TakeResults(const SqlWanted& wanted, SqlResult& result, PostgresqlReply& reply,
                                 SqlFault& fault);
  void TakeRows(const PGresult* rows, const SqlWanted& wanted, int64_t& bytes, SqlResult& result,
                PostgresqlReply& reply);
  void TakeFailure(const PGresult* failed, PostgresqlReply& reply, SqlFault& fault);

  // Waits until the socket is ready for one of the events. False with `fault` set.
  [[nodiscard]] bool WaitFor(short events, SqlFault& fault);
  // The connection is of no use any more. Returns false.
  bool Lose(SqlFault::Kind kind, std::string_view message, SqlFault& fault);
  [[nodiscard]] String EngineMessage() const;
  void Close();

  Vexa& host_;
  const PostgresqlLibrary* library_ = nullptr;
  PostgresqlPlace place_;
  PGconn* connection_ = nullptr;
  SqlFault lost_;  // why the connection is gone
  bool gone_ = false;
  int64_t attempt_end_ = 0;  // SteadyTime at which the attempt to connect is given up; 0: never
  int64_t limit_ = -1;       // what timeremaining() was when the server was told; -1: not told
  bool limit_may_revert_ = false;  // it was told inside the transaction that is open
};

}  // namespace vexa

#endif  // VEXA_SQL_DRIVERS_POSTGRESQL_CONNECTION_H_
