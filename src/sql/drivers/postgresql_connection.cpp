// Connecting, and statements sent and answered in steps that never block.

#include "sql/drivers/postgresql_connection.h"

#include <poll.h>

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <new>
#include <utility>

#include "core/number.h"
#include "core/outside.h"
#include "core/text.h"
#include "sql/drivers/postgresql_cancel.h"
#include "sql/drivers/postgresql_lookup.h"
#include "sql/drivers/postgresql_statement.h"
#include "sql/drivers/postgresql_values.h"
#include "sql/drivers/sql_text.h"

namespace vexa {

namespace {

constexpr int kLongestWait = 500;  // milliseconds
constexpr int64_t kSecond = 1'000'000'000;
constexpr int64_t kMillisecond = 1'000'000;
// For one of several servers on a site without a deadline.
constexpr int64_t kUsualSeconds = 10;
constexpr std::string_view kTimedOut = "Timed out";
constexpr int kSinceWatchingClients = 140000;  // version of the server

// What values look like on their way, whatever the server, the role or the page prefer.
constexpr std::string_view kForms =
    "SET client_encoding='UTF8';SET DateStyle=ISO;SET standard_conforming_strings=on;"
    "SET bytea_output=hex;SET extra_float_digits=3";
// Those of them that the server reports when they change, as it does then.
constexpr std::pair<const char*, std::string_view> kReported[] = {
    {"client_encoding", "UTF8"}, {"DateStyle", "ISO"}, {"standard_conforming_strings", "on"}};

// The first line of a message of the library; the others guess at reasons or repeat it.
String FirstLine(const char* message) {
  const std::string_view text = Stripped(message == nullptr ? "" : message);
  return text.substr(0, text.find('\n'));
}

// What failed, as SQLSTATE.
constexpr std::string_view kCancelled = "57014";
constexpr std::string_view kDuplicateKey = "23505";

// Whether the command of this tag counts rows that it changed.
bool ChangesRows(std::string_view tag) {
  constexpr std::string_view kChanges[] = {"INSERT", "UPDATE", "DELETE", "MERGE"};
  return std::ranges::any_of(kChanges,
                             [tag](std::string_view one) { return tag.starts_with(one); });
}

// Tells the server how many seconds the page has left; empty for a page without a limit. Limits
// that others set stay when they are shorter. Ours are known by their 7 milliseconds, since a
// rollback may bring back any former one.
String LimitText(int64_t remaining) {
  if (remaining < 0) return {};
  const String seconds = PrintInteger(remaining + 1);
  return String::Concat(
      {"SELECT set_config(n,CASE WHEN current_setting(n) NOT LIKE '%007ms' AND "
       "current_setting(n)::interval BETWEEN '1ms' AND '",
       seconds, "s' THEN current_setting(n) ELSE '", seconds,
       "007ms' END,false) FROM (VALUES('statement_timeout'),"
       "('idle_in_transaction_session_timeout')) AS t(n)"});
}

void IgnoreNotice(void*, const PGresult*) {}

}  // namespace

// --- Connecting ------------------------------------------------------------------------------

bool PostgresqlConnection::Connect(const SqlPlace& written, SqlFault& fault) {
  assert(connection_ == nullptr);
  library_ = PostgresqlLibrary::Load();
  if (library_ == nullptr) {
    fault = {SqlFault::Kind::NoLibrary,
             "Databases of type 'postgresql' need libpq.so.5, which is not installed"};
    return false;
  }
  if (!ReadPostgresqlPlace(*library_, host_.config(), written, place_, fault)) return false;
  // Each server is tried by itself, so that one that is silent does not use up the time of others.
  const bool prefers = place_.session_attributes == "prefer-standby";
  String reasons;
  for (const std::string_view attributes :
       {prefers ? std::string_view("standby") : place_.session_attributes.view(),
        std::string_view("any")}) {
    auto left = static_cast<int64_t>(place_.servers.size());
    for (const PostgresqlServer& server : place_.servers) {
      if (ConnectTo(server, attributes, left--, fault)) return PrepareSession(fault);
      if (fault.kind == SqlFault::Kind::TimedOut) return false;
      reasons.cat(reasons.empty() ? "" : "; ");
      reasons.cat(fault.message);
    }
    if (!prefers) break;
  }
  fault = {SqlFault::Kind::Other, reasons};
  return false;
}

// Connects to the first address of the server that answers.
bool PostgresqlConnection::ConnectTo(const PostgresqlServer& server, std::string_view attributes,
                                     int64_t servers_left, SqlFault& fault) {
  const bool is_local = server.host.empty() || server.host[0] == '/' || server.host[0] == '@';
  if (is_local || !server.address.empty()) {
    LimitAttempt(servers_left);
    return Attempt(server, attributes, fault);
  }
  std::vector<String> addresses;
  fault.kind = SqlFault::Kind::Other;
  const LookupResult found = LookUpServer(host_, server.host, addresses, fault.message);
  if (found == LookupResult::TimedOut) fault = {SqlFault::Kind::TimedOut, kTimedOut};
  auto left = static_cast<int64_t>(addresses.size());
  for (String& address : addresses) {
    LimitAttempt(servers_left - 1 + left--);
    if (Attempt({server.host, std::move(address), server.port}, attributes, fault)) return true;
    if (fault.kind == SqlFault::Kind::TimedOut) break;
  }
  return false;
}

// An attempt has the time that the place gives it, else an equal part of what is left.
void PostgresqlConnection::LimitAttempt(int64_t attempts_left) {
  int64_t seconds = place_.seconds_each;
  if (seconds == 0 && attempts_left > 1) {
    const int64_t remaining = host_.timeremaining();
    seconds = remaining < 0 ? kUsualSeconds : std::max<int64_t>(1, remaining / attempts_left);
  }
  attempt_end_ = seconds == 0 ? 0 : SteadyTime() + seconds * kSecond;
}

bool PostgresqlConnection::Attempt(const PostgresqlServer& server, std::string_view attributes,
                                   SqlFault& fault) {
  Start(server, attributes);
  const bool connected = Poll(fault);
  attempt_end_ = 0;
  if (!connected) {
    Close();
    return false;
  }
  (void)library_->setnonblocking(connection_, 1);
  library_->setNoticeReceiver(connection_, IgnoreNotice, nullptr);
  return true;
}

void PostgresqlConnection::Start(const PostgresqlServer& server, std::string_view attributes) {
  std::vector<const char*> keys, values;
  const auto add = [&](const char* key, const char* value) {
    keys.push_back(key);
    values.push_back(value);
  };
  const String wanted(attributes);
  for (const PostgresqlPlace::Option& option : place_.options) {
    add(option.key.c_str(), option.value.c_str());
  }
  add("host", server.host.c_str());
  add("hostaddr", server.address.c_str());
  add("port", server.port.c_str());
  add("target_session_attrs", wanted.c_str());
  add(nullptr, nullptr);
  const EmptySurroundings surroundings;
  connection_ = library_->connectStartParams(keys.data(), values.data(), 0);
  if (connection_ == nullptr) throw std::bad_alloc();
}

bool PostgresqlConnection::Poll(SqlFault& fault) {
  PostgresPollingStatusType state = PGRES_POLLING_WRITING;
  if (library_->status(connection_) == CONNECTION_BAD) state = PGRES_POLLING_FAILED;
  while (state != PGRES_POLLING_OK) {
    if (state == PGRES_POLLING_FAILED) {
      fault = {SqlFault::Kind::Other, EngineMessage()};
      return false;
    }
    if (!WaitFor(state == PGRES_POLLING_READING ? POLLIN : POLLOUT, fault)) return false;
    const EmptySurroundings surroundings;
    state = library_->connectPoll(connection_);
  }
  return true;
}

// --- The session -----------------------------------------------------------------------------

bool PostgresqlConnection::PrepareSession(SqlFault& fault) {
  // Times that name no zone are of UTC.
  String statements = String::Concat({kForms, ";SET TimeZone='UTC'"});
  // A statement whose client has died ends within a second, where the server's system can tell.
  if (version() >= kSinceWatchingClients) {
    statements.cat(
        ";SELECT set_config('client_connection_check_interval','1s',false)"
        " WHERE version() LIKE '%linux%'");
  }
  statements.cat(";");
  limit_ = host_.timeremaining();
  statements.cat(LimitText(limit_));
  return RunOwn(statements, fault);
}

// What a page set differently, and would not be read as it is meant.
bool PostgresqlConnection::RestoreSession(SqlFault& fault) {
  const bool is_ours = std::ranges::all_of(kReported, [this](const auto& setting) {
    const char* const value = library_->parameterStatus(connection_, setting.first);
    return value == nullptr || std::string_view(value).starts_with(setting.second);
  });
  return is_ours || transaction() == PQTRANS_INERROR || RunOwn(kForms, fault);
}

bool PostgresqlConnection::LimitTime(SqlFault& fault) {
  const PGTransactionStatusType where = transaction();
  if (limit_may_revert_ && where == PQTRANS_IDLE) {
    limit_may_revert_ = false;
    limit_ = -1;
  }
  const int64_t remaining = host_.timeremaining();
  if (remaining < 0 || remaining == limit_ || where == PQTRANS_INERROR) return true;
  limit_ = remaining;
  limit_may_revert_ = where == PQTRANS_INTRANS;
  return RunOwn(LimitText(remaining), fault);
}

// A page may do without our settings, but not work on the server for longer than its time.
bool PostgresqlConnection::KeepLimits(std::string_view statement, SqlFault& fault) {
  size_t ignored;
  const std::string_view word = FirstWord(statement, ignored);
  if (EqualsIgnoreCase(word, "RESET") || EqualsIgnoreCase(word, "DISCARD")) {
    return PrepareSession(fault);
  }
  if (EqualsIgnoreCase(word, "SET")) limit_ = -1;
  return true;
}

bool PostgresqlConnection::RunOwn(const String& statements, SqlFault& fault) {
  SqlResult ignored;
  PostgresqlReply reply;
  if (library_->sendQuery(connection_, statements.c_str()) == 0) {
    return Lose(SqlFault::Kind::Gone, EngineMessage(), fault);
  }
  return Flush(fault) && TakeResults({}, ignored, reply, fault);
}

PGTransactionStatusType PostgresqlConnection::transaction() const {
  return gone_ || connection_ == nullptr ? PQTRANS_UNKNOWN
                                         : library_->transactionStatus(connection_);
}

// --- Statements ------------------------------------------------------------------------------

bool PostgresqlConnection::Run(const SqlStatement& statement, const SqlWanted& wanted,
                               SqlResult& result, PostgresqlReply& reply, SqlFault& fault) {
  result = {};
  reply = {};
  if (gone_) {
    fault = lost_;
    return false;
  }
  const bool has_zero = statement.text.contains('\0') ||
                        std::ranges::any_of(statement.parameters, [](const SqlValue& value) {
                          return value.kind == SqlValue::Kind::Text && value.text.contains('\0');
                        });
  if (has_zero) {
    fault = {SqlFault::Kind::Other, kByteZeroInText};
    return false;
  }
  const PostgresqlStatementForm form = ReadPostgresqlStatement(statement.text);
  if (form.several || form.copies) {
    fault = {SqlFault::Kind::Other,
             form.several ? kSeveralStatements : "COPY from or to the client is not supported"};
    return false;
  }
  if (!LimitTime(fault)) return false;
  if (!Send(statement)) return Lose(SqlFault::Kind::Gone, EngineMessage(), fault);
  (void)library_->setSingleRowMode(connection_);
  const bool done = Flush(fault) && TakeResults(wanted, result, reply, fault);
  if (gone_) return false;
  SqlFault ignored;
  const bool restored = RestoreSession(done ? fault : ignored);
  return done && restored && KeepLimits(statement.text, fault);
}

bool PostgresqlConnection::Send(const SqlStatement& statement) {
  const size_t count = statement.parameters.size();
  std::vector<String> numbers(count);  // those that are no texts yet
  std::vector<const char*> values(count, nullptr);
  std::vector<int> lengths(count, 0), formats(count, 0);
  for (size_t i = 0; i < count; ++i) {
    const SqlValue& value = statement.parameters[i];
    const bool is_text = value.kind == SqlValue::Kind::Text || value.kind == SqlValue::Kind::Bytes;
    if (value.kind == SqlValue::Kind::Null) continue;
    if (value.kind == SqlValue::Kind::Integer) numbers[i] = PrintInteger(value.integer);
    if (value.kind == SqlValue::Kind::Real) numbers[i] = PlainDecimals(value.real);
    values[i] = is_text ? value.text.c_str() : numbers[i].c_str();
    lengths[i] = is_text ? value.text.length() : numbers[i].length();
    formats[i] = value.kind == SqlValue::Kind::Bytes ? 1 : 0;
  }
  return library_->sendQueryParams(connection_, statement.text.c_str(), static_cast<int>(count),
                                   nullptr, values.data(), lengths.data(), formats.data(), 0) != 0;
}

bool PostgresqlConnection::Flush(SqlFault& fault) {
  for (;;) {
    const int left = library_->flush(connection_);
    // The server may have said why before it hung up: what it said is read as a result.
    if (left <= 0) return true;
    if (!WaitFor(POLLIN | POLLOUT, fault)) return false;
    // A server that answers before it has read all must be listened to.
    (void)library_->consumeInput(connection_);
  }
}

PGresult* PostgresqlConnection::NextResult(SqlFault& fault) {
  while (library_->isBusy(connection_) != 0) {
    if (!WaitFor(POLLIN, fault)) return nullptr;
    // What the server said before it hung up comes first.
    if (library_->consumeInput(connection_) == 0 && library_->isBusy(connection_) != 0) {
      (void)Lose(SqlFault::Kind::Gone, EngineMessage(), fault);
      return nullptr;
    }
  }
  return library_->getResult(connection_);
}

bool PostgresqlConnection::TakeResults(const SqlWanted& wanted, SqlResult& result,
                                       PostgresqlReply& reply, SqlFault& fault) {
  bool done = true;
  int64_t bytes = 0;
  for (;;) {
    const PostgresqlOwned<PGresult> next(NextResult(fault), {library_});
    if (gone_) return false;
    if (next == nullptr) break;
    const ExecStatusType status = library_->resultStatus(next.get());
    switch (status) {
      case PGRES_SINGLE_TUPLE:
      case PGRES_TUPLES_OK:
        TakeRows(next.get(), wanted, bytes, result, reply);
        [[fallthrough]];
      case PGRES_COMMAND_OK:
        reply.count = ReadInteger64(library_->cmdTuples(next.get()));
        if (ChangesRows(library_->cmdStatus(next.get()))) result.changed = reply.count;
        break;
      case PGRES_EMPTY_QUERY:
        fault = {SqlFault::Kind::Other, "The statement is empty"};
        done = false;
        break;
      case PGRES_COPY_IN:
      case PGRES_COPY_OUT:
      case PGRES_COPY_BOTH:
        return Lose(SqlFault::Kind::Gone, "The server wants to copy from or to the page", fault);
      default:
        if (done) TakeFailure(next.get(), reply, fault);
        done = false;
    }
  }
  if (library_->status(connection_) != CONNECTION_BAD) return done;
  return Lose(SqlFault::Kind::Gone, done ? EngineMessage() : fault.message, fault);
}

void PostgresqlConnection::TakeFailure(const PGresult* failed, PostgresqlReply& reply,
                                       SqlFault& fault) {
  const auto field = [&](int code) -> std::string_view {
    const char* const text = library_->resultErrorField(failed, code);
    return text == nullptr ? "" : text;
  };
  reply.state = field(PG_DIAG_SQLSTATE);
  // Its first line alone: the others may show rows.
  String message = field(PG_DIAG_MESSAGE_PRIMARY);
  if (message.empty()) message = FirstLine(library_->resultErrorMessage(failed));
  if (reply.state == kCancelled && host_.timedout()) {
    fault = {SqlFault::Kind::TimedOut, kTimedOut};
  } else if (field(PG_DIAG_SEVERITY_NONLOCALIZED) == "FATAL") {
    (void)Lose(SqlFault::Kind::Gone, message, fault);
  } else {
    fault = {reply.state == kDuplicateKey ? SqlFault::Kind::DuplicateKey : SqlFault::Kind::Other,
             message};
  }
}

void PostgresqlConnection::TakeRows(const PGresult* rows, const SqlWanted& wanted, int64_t& bytes,
                                    SqlResult& result, PostgresqlReply& reply) {
  const int count = library_->nfields(rows);
  result.yields = true;
  if (reply.columns.empty()) {
    for (int i = 0; i < count; ++i) {
      SqlColumn column;
      column.name = library_->fname(rows, i);
      DescribePostgresqlType(library_->ftype(rows, i), library_->fmod(rows, i), column);
      reply.columns.push_back(std::move(column));
    }
  }
  for (int row = 0; row < library_->ntuples(rows); ++row) {
    ++result.yielded;
    const auto given = static_cast<int64_t>(result.rows.size());
    if (given >= wanted.rows || (given > 0 && bytes >= wanted.bytes)) continue;
    SqlRow values;
    values.reserve(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) {
      values.push_back(PostgresqlValue(*library_, rows, row, i));
      bytes += static_cast<int64_t>(sizeof(SqlValue)) + values.back().text.length();
    }
    result.rows.push_back(std::move(values));
  }
}

// --- Waiting, and the end --------------------------------------------------------------------

bool PostgresqlConnection::WaitFor(short events, SqlFault& fault) {
  LookOutside();
  for (;;) {
    if (host_.timedout()) return Lose(SqlFault::Kind::TimedOut, kTimedOut, fault);
    int64_t wait = kLongestWait;
    if (attempt_end_ != 0) {
      wait = std::min(wait, (attempt_end_ - SteadyTime()) / kMillisecond);
      if (wait <= 0) {
        fault = {SqlFault::Kind::Other, "The server does not answer"};
        return false;
      }
    }
    pollfd waiting = {library_->socket(connection_), events, 0};
    // Whatever else may be wrong with the socket, the library will say.
    const int ready = ::poll(&waiting, 1, static_cast<int>(wait));
    if (ready > 0 || (ready < 0 && errno != EINTR)) return true;
  }
}

bool PostgresqlConnection::Lose(SqlFault::Kind kind, std::string_view message, SqlFault& fault) {
  fault = {kind, message};
  if (gone_) return false;
  gone_ = true;
  lost_ = fault;
  if (library_->status(connection_) == CONNECTION_OK &&
      library_->transactionStatus(connection_) == PQTRANS_ACTIVE) {
    CancelPostgresqlStatement(*library_, connection_);
  }
  return false;
}

String PostgresqlConnection::EngineMessage() const {
  return FirstLine(library_->errorMessage(connection_));
}

void PostgresqlConnection::Close() {
  if (connection_ != nullptr) library_->finish(connection_);
  connection_ = nullptr;
}

}  // namespace vexa
