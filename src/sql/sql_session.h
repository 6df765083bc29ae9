// SqlSession: a connection that the databases of a page share when they are in the same place, and
// the transaction on it.
//
// Transactions. BEGIN, COMMIT and ROLLBACK come from the page. When a statement inside one fails,
// every later one fails too until the page rolls back; a commit fails so and rolls back. One that
// is open when the session ends is rolled back. All servers behave alike in this, so it is kept
// here, whatever a server does by itself.
//
// Operations return false with `message` set, which is HTML.

#ifndef VEXA_SQL_SQL_SESSION_H_
#define VEXA_SQL_SQL_SESSION_H_

#include <cstdint>
#include <memory>
#include <vector>

#include "core/string.h"
#include "sql/drivers/sql_driver.h"
#include "vexa.h"

namespace vexa {

class SqlSession {
 public:
  // Who wants to know that what was made in a transaction is gone.
  class User {
   public:
    virtual void RolledBack(uint64_t transaction) = 0;
    // Whether it is in the midst of something, so that nothing of it may go now. `message` is set.
    [[nodiscard]] virtual bool IsBusy(String& message) = 0;

   protected:
    ~User() = default;
  };

  // `driver` is connected. `name` is told to the log.
  SqlSession(Vexa& host, std::unique_ptr<SqlDriver> driver, String identity, String name);
  ~SqlSession();
  SqlSession(const SqlSession&) = delete;
  SqlSession& operator=(const SqlSession&) = delete;

  [[nodiscard]] SqlDriver& driver() { return *driver_; }
  [[nodiscard]] const String& identity() const { return identity_; }
  void AddUser(User* user) { users_.push_back(user); }
  void RemoveUser(User* user) { std::erase(users_, user); }

  // Another number after everything by which this page may have changed rows.
  [[nodiscard]] uint64_t changes() const { return changes_; }
  void NoteChange() { ++changes_; }
  // The number of the transaction under way, 0 when there is none.
  [[nodiscard]] uint64_t transaction() const { return in_transaction_ ? transaction_ : 0; }

  // A statement of ours that reads.
  [[nodiscard]] bool Read(const SqlStatement& statement, const SqlWanted& wanted, SqlResult& result,
                          String& message);
  // One that changes rows.
  [[nodiscard]] bool Change(const SqlStatement& statement, const SqlWanted& wanted,
                            SqlResult& result, String& message);
  // Several that change together or not at all.
  [[nodiscard]] bool ChangeTogether(const std::vector<String>& statements, String& message);
  // The same for changes between the two calls: in a transaction of their own (`alone`), else as a
  // part of the page's, which fails with them. `done` tells whether they went well; returns whether
  // they are there. `message` is left as it is where it tells already what went wrong.
  [[nodiscard]] bool BeginTogether(bool& alone, String& message);
  [[nodiscard]] bool EndTogether(bool alone, bool done, String& message);
  // A statement of the page, which may begin and end transactions.
  [[nodiscard]] bool Query(const SqlStatement& statement, const SqlWanted& wanted,
                           SqlResult& result, String& message);
  // As SqlDriver has them. An empty message of Keep: the query is not one that only reads.
  [[nodiscard]] bool Keep(const SqlStatement& query, int& id, std::vector<SqlColumn>& columns,
                          int64_t& count, String& message);
  [[nodiscard]] bool ReadKept(int id, int64_t first, const SqlWanted& wanted,
                              std::vector<SqlRow>& rows, String& message);
  void DropKept(int id);
  // Returns false, for a call of the driver that failed.
  bool Failed(const SqlFault& fault, String& message);
  // Whether a statement may run now.
  [[nodiscard]] bool MayRun(String& message) const;

  // The message of a failure, as HTML. Where memory ran out there is none: the request ends.
  [[nodiscard]] static String Worded(const SqlFault& fault);

 private:
  // Takes note of where the server stands in transactions after a statement.
  void LookAtTransaction();
  // Rolls back what is open, as far as the server lets us, and forgets the transaction.
  void RollBack();
  void EndRolledBack();

  Vexa& host_;
  std::unique_ptr<SqlDriver> driver_;
  String identity_;
  String name_;
  std::vector<User*> users_;
  uint64_t changes_ = 1;
  uint64_t transaction_ = 0;
  bool in_transaction_ = false;
  bool failed_ = false;  // in it
  int last_kept_ = 0;
};

}  // namespace vexa

#endif  // VEXA_SQL_SQL_SESSION_H_
