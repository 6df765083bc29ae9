// Statements, and results that the server keeps.

#include "sql/drivers/postgresql_driver.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "core/number.h"
#include "sql/drivers/postgresql_statement.h"

namespace vexa {

namespace {

constexpr SqlWanted kAll = {INT64_MAX, INT64_MAX};
constexpr int64_t kRowsAtOnce = 64;
constexpr int kSinceMaterialized = 120000;  // version of the server

// What failed, as SQLSTATE: a query that changes something in a transaction that must not; one
// that a cursor cannot be for.
constexpr std::string_view kReadOnly = "25006";
constexpr std::string_view kNotSupported = "0A000";

int64_t BytesOf(const SqlRow& row) {
  int64_t bytes = 0;
  for (const SqlValue& value : row) {
    bytes += static_cast<int64_t>(sizeof value) + value.text.length();
  }
  return bytes;
}

}  // namespace

std::unique_ptr<SqlDriver> MakePostgresqlDriver(Vexa& host) {
  return std::make_unique<PostgresqlDriver>(host);
}

bool PostgresqlDriver::Identify(const SqlPlace& place, String& identity, SqlFault& /*fault*/) {
  identity.clear();
  for (const String* part : {&place.place, &place.user, &place.password}) {
    identity.Append(String::Concat({PrintInteger(part->length()), ":", *part}));
  }
  return true;
}

bool PostgresqlDriver::Connect(const SqlPlace& place, SqlFault& fault) {
  return connection_.Connect(place, fault);
}

bool PostgresqlDriver::InTransaction() {
  const PGTransactionStatusType where = connection_.transaction();
  return where == PQTRANS_INTRANS || where == PQTRANS_INERROR;
}

bool PostgresqlDriver::Run(const SqlStatement& statement, const SqlWanted& wanted,
                           SqlResult& result, SqlFault& fault) {
  PostgresqlReply reply;
  return connection_.Run(statement, wanted, result, reply, fault);
}

bool PostgresqlDriver::Ask(std::string_view text, SqlRow parameters, std::vector<SqlRow>& rows,
                           SqlFault& fault) {
  SqlResult result;
  if (!Run({text, std::move(parameters)}, kAll, result, fault)) return false;
  rows = std::move(result.rows);
  return true;
}

bool PostgresqlDriver::Do(std::string_view text, SqlFault& fault) {
  SqlResult ignored;
  return Run({text, {}}, {}, ignored, fault);
}

// --- Results that are kept -------------------------------------------------------------------

// Where a pool gives the next statement to another session, it must not meet the view of a page
// that runs there.
String PostgresqlDriver::CursorName(int id) const {
  return String::Concat({"vexa_view_", PrintInteger(connection_.number()), "_", PrintInteger(id)});
}

bool PostgresqlDriver::Keep(int id, const SqlStatement& query, std::vector<SqlColumn>& columns,
                            int64_t& count, SqlFault& fault) {
  fault = {};
  const PostgresqlStatementForm form = ReadPostgresqlStatement(query.text);
  if (form.several) fault.message = kSeveralStatements;
  if (form.several || !form.queries) return false;
  const bool in_transaction = InTransaction();
  PostgresqlReply reply;
  // In a transaction of the page reading alone is allowed for a while: until a savepoint is left.
  const bool begun = in_transaction ? Do("SAVEPOINT vexa_view", fault) &&
                                          Do("SET LOCAL transaction_read_only=on", fault)
                                    : Do("BEGIN READ ONLY", fault);
  if (begun && Declare(CursorName(id), query, columns, count, reply, fault) &&
      Do(in_transaction ? "RELEASE SAVEPOINT vexa_view" : "COMMIT", fault)) {
    return true;
  }
  if (reply.state == kReadOnly || reply.state == kNotSupported) fault = {};
  SqlFault ignored;
  if (!in_transaction) {
    if (InTransaction()) (void)Do("ROLLBACK", ignored);
  } else if (Do("ROLLBACK TO SAVEPOINT vexa_view", ignored)) {
    (void)Do("RELEASE SAVEPOINT vexa_view", ignored);
  }
  return false;
}

// The rows are gathered once, when they are counted: what the query calls must not run again, with
// other results, whenever the page goes back.
bool PostgresqlDriver::Declare(const String& cursor, const SqlStatement& query,
                               std::vector<SqlColumn>& columns, int64_t& count,
                               PostgresqlReply& reply, SqlFault& fault) {
  const std::string_view materialized =
      connection_.version() < kSinceMaterialized ? "" : "MATERIALIZED ";
  SqlStatement declare = query;
  declare.text = String::Concat(
      {"DECLARE ", cursor, " SCROLL CURSOR WITH HOLD FOR WITH vexa_view AS ", materialized, "(",
       ReadPostgresqlStatement(query.text).text, "\n) SELECT * FROM vexa_view"});
  SqlResult ignored;
  if (!connection_.Run(declare, {}, ignored, reply, fault)) return false;
  PostgresqlReply described;
  if (!connection_.Run({"FETCH RELATIVE 0 FROM " + cursor, {}}, {}, ignored, described, fault)) {
    return false;
  }
  columns = std::move(described.columns);
  if (!connection_.Run({"MOVE FORWARD ALL FROM " + cursor, {}}, {}, ignored, reply, fault)) {
    return false;
  }
  count = reply.count;
  return true;
}

bool PostgresqlDriver::ReadKept(int id, int64_t first, const SqlWanted& wanted,
                                std::vector<SqlRow>& rows, SqlFault& fault) {
  const String cursor = CursorName(id);
  rows.clear();
  if (!Do(String::Concat({"MOVE ABSOLUTE ", PrintInteger(first - 1), " FROM ", cursor}), fault)) {
    return false;
  }
  // The server sends all that it is asked for: large rows are asked for a few at a time.
  int64_t bytes = 0;
  for (int64_t left = wanted.rows; left > 0 && (rows.empty() || bytes < wanted.bytes);) {
    const int64_t asked = std::min(left, kRowsAtOnce);
    SqlResult result;
    const String fetch = String::Concat({"FETCH FORWARD ", PrintInteger(asked), " FROM ", cursor});
    if (!Run({fetch, {}}, {asked, wanted.bytes - bytes}, result, fault)) return false;
    for (const SqlRow& row : result.rows) bytes += BytesOf(row);
    const auto given = static_cast<int64_t>(result.rows.size());
    std::move(result.rows.begin(), result.rows.end(), std::back_inserter(rows));
    if (given < asked) break;
    left -= asked;
  }
  return true;
}

// Asking for a cursor that has gone would fail the page's transaction.
void PostgresqlDriver::DropKept(int id) {
  SqlFault ignored;
  std::vector<SqlRow> rows;
  if (connection_.transaction() != PQTRANS_IDLE && connection_.transaction() != PQTRANS_INTRANS) {
    return;
  }
  const String cursor = CursorName(id);
  const bool is_there = Ask("SELECT 1 FROM pg_catalog.pg_cursors WHERE name=$1",
                            {SqlValue::Text(cursor)}, rows, ignored) &&
                        !rows.empty();
  if (is_there) (void)Do("CLOSE " + cursor, ignored);
}

}  // namespace vexa
