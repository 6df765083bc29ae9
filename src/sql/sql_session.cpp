// Statements and transactions; see sql_session.h.

#include "sql/sql_session.h"

#include <new>
#include <utility>

#include "core/encoding.h"
#include "core/memory_limit.h"
#include "sql/query_text.h"

namespace vexa {

namespace {

constexpr std::string_view kTransactionFailed = "The transaction has failed";

}  // namespace

SqlSession::SqlSession(Vexa& host, std::unique_ptr<SqlDriver> driver, String identity, String name)
    : host_(host),
      driver_(std::move(driver)),
      identity_(std::move(identity)),
      name_(std::move(name)) {}

SqlSession::~SqlSession() {
  if (!in_transaction_) return;
  const MemoryLimitLifted lifted;
  try {
    RollBack();
    host_.logfile().Write(LogLevel::Errors, "ROLLEDBACK", name_);
  } catch (const std::bad_alloc&) {
    // The server rolls back what a lost connection began.
  }
}

String SqlSession::Worded(const SqlFault& fault) {
  if (fault.kind == SqlFault::Kind::NoMemory) ThrowNoMemory();
  if (fault.kind == SqlFault::Kind::Refused) return fault.message;
  const String message = EntityEncoded(fault.message);
  if (fault.kind != SqlFault::Kind::DuplicateKey) return message;
  return "The key already exists: " + message;
}

bool SqlSession::Failed(const SqlFault& fault, String& message) {
  message = Worded(fault);
  if (in_transaction_) failed_ = true;
  return false;
}

bool SqlSession::MayRun(String& message) const {
  if (failed_) message = kTransactionFailed;
  return !failed_;
}

void SqlSession::LookAtTransaction() {
  const bool now = driver_->InTransaction();
  if (now && !in_transaction_) ++transaction_;
  in_transaction_ = now;
}

void SqlSession::EndRolledBack() {
  const uint64_t ended = transaction_;
  in_transaction_ = failed_ = false;
  ++changes_;
  for (User* user : users_) user->RolledBack(ended);
}

void SqlSession::RollBack() {
  SqlResult result;
  SqlFault ignored;
  if (driver_->InTransaction()) (void)driver_->Run({"ROLLBACK", {}}, {}, result, ignored);
  EndRolledBack();
}

bool SqlSession::Read(const SqlStatement& statement, const SqlWanted& wanted, SqlResult& result,
                      String& message) {
  SqlFault fault;
  if (!MayRun(message)) return false;
  return driver_->Run(statement, wanted, result, fault) || Failed(fault, message);
}

bool SqlSession::Change(const SqlStatement& statement, const SqlWanted& wanted, SqlResult& result,
                        String& message) {
  ++changes_;
  return Read(statement, wanted, result, message);
}

bool SqlSession::BeginTogether(bool& alone, String& message) {
  SqlResult result;
  alone = !in_transaction_;
  if (alone && !Change({driver_->begin(), {}}, {}, result, message)) return false;
  LookAtTransaction();
  return MayRun(message);
}

bool SqlSession::EndTogether(bool alone, bool done, String& message) {
  SqlResult result;
  if (alone && done) done = Change({"COMMIT", {}}, {}, result, message);
  if (!done) failed_ = in_transaction_;
  if (alone && !done) RollBack();
  if (alone) LookAtTransaction();
  return done;
}

bool SqlSession::ChangeTogether(const std::vector<String>& statements, String& message) {
  bool alone;
  if (!BeginTogether(alone, message)) return false;
  bool done = true;
  SqlResult result;
  for (const String& statement : statements) {
    done = done && Change({statement, {}}, {}, result, message);
  }
  return EndTogether(alone, done, message);
}

bool SqlSession::Query(const SqlStatement& statement, const SqlWanted& wanted, SqlResult& result,
                       String& message) {
  const TransactionStep step = StepOf(statement.text);
  ++changes_;
  result = {};
  for (User* user : users_) {
    if (step != TransactionStep::None && user->IsBusy(message)) return false;
  }
  if (failed_ && step != TransactionStep::Rollback && step != TransactionStep::RollbackTo) {
    message = kTransactionFailed;
    if (step == TransactionStep::Commit) RollBack();
    return false;
  }
  if (in_transaction_ && step == TransactionStep::Rollback) {
    SqlFault fault;
    if (driver_->InTransaction() && !driver_->Run(statement, wanted, result, fault)) {
      return Failed(fault, message);
    }
    EndRolledBack();
    LookAtTransaction();
    return true;
  }
  SqlStatement run = statement;
  if (step == TransactionStep::Begin) run.text = driver_->begin();
  SqlFault fault;
  if (!driver_->Run(run, wanted, result, fault)) {
    const bool inside = in_transaction_;
    (void)Failed(fault, message);
    if (inside && step == TransactionStep::Commit) RollBack();
    return false;
  }
  // Another one may have begun at once.
  if (step == TransactionStep::Commit) in_transaction_ = false;
  if (step == TransactionStep::RollbackTo) {
    failed_ = false;
    for (User* user : users_) user->RolledBack(transaction_);
  }
  LookAtTransaction();
  return true;
}

bool SqlSession::Keep(const SqlStatement& query, int& id, std::vector<SqlColumn>& columns,
                      int64_t& count, String& message) {
  SqlFault fault;
  if (!MayRun(message)) return false;
  id = ++last_kept_;
  return driver_->Keep(id, query, columns, count, fault) || Failed(fault, message);
}

bool SqlSession::ReadKept(int id, int64_t first, const SqlWanted& wanted, std::vector<SqlRow>& rows,
                          String& message) {
  SqlFault fault;
  if (!MayRun(message)) return false;
  return driver_->ReadKept(id, first, wanted, rows, fault) || Failed(fault, message);
}

void SqlSession::DropKept(int id) {
  // What was kept goes with a transaction that failed.
  if (failed_) return;
  try {
    driver_->DropKept(id);
  } catch (const std::bad_alloc&) {
    // Then it goes with the connection.
  }
}

}  // namespace vexa
