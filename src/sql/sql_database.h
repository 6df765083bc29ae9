// SqlDatabase: a place on an SQL server, with a table of it or without one.
//
//   SqlDatabase        opening and creating, indexes, views, queries
//   SqlView            the way through rows, filters, changes of rows (sql_view)
//   SqlWalk            from one row to the next by key (sql_walk)
//   SqlRecord          the current row as variables (sql_record, sql_variables)
//   SqlSession         the connection, which databases in the same place share (sql_session)
//   SqlDriver          what differs between the servers (drivers/)
//
// Nothing stays open on the server between two tags but the connection, a transaction that the page
// began, and results that views keep. Messages are HTML.

#ifndef VEXA_SQL_SQL_DATABASE_H_
#define VEXA_SQL_SQL_DATABASE_H_

#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "database.h"
#include "sql/drivers/sql_driver.h"
#include "sql/sql_session.h"
#include "sql/sql_view.h"
#include "vexa.h"

namespace vexa {

class SqlDatabase final : public Database, private SqlSession::User {
 public:
  using MakeDriver = std::unique_ptr<SqlDriver> (*)(Vexa& host);

  // `host` is borrowed. `name` is what scripts call the database.
  SqlDatabase(Vexa& host, const String& name, MakeDriver make_driver);
  ~SqlDatabase() override;

  [[nodiscard]] DataResult Open(const String& database, const String& user,
                                const String& password) override;
  [[nodiscard]] DataResult OpenIndexes(const String& indexes) override;
  [[nodiscard]] DataResult SetPrimaryIndex(const String& index) override;
  [[nodiscard]] DataResult Create(const String& database, const String& fields) override;
  [[nodiscard]] DataResult CreateIndex(const String& indexfile, const String& expression,
                                       const String& flags) override;
  void Close() override;
  [[nodiscard]] DataResult OpenView(const String& name, const String& query) override;
  [[nodiscard]] DataResult RunQuery(const String& query, QueryOutcome& outcome) override;
  [[nodiscard]] DataResult Pack() override;
  [[nodiscard]] DataResult Reindex() override;
  [[nodiscard]] const String& name() const override { return name_; }
  [[nodiscard]] const String& type() const override { return type_; }
  [[nodiscard]] const String& error() const override { return error_; }
  // The primary one first.
  [[nodiscard]] std::span<DatabaseView* const> views() override { return view_pointers_; }
  [[nodiscard]] DatabaseView* FindView(std::string_view name) override;
  [[nodiscard]] DatabaseView* PrimaryView() override { return primary_view_; }
  void SetPrimaryView(DatabaseView* view) override;
  void RemoveView(DatabaseView* view) override;
  [[nodiscard]] bool InUse() const override;

  // --- For its views ---
  [[nodiscard]] Vexa& host() { return host_; }
  [[nodiscard]] SqlSession* session() { return session_.get(); }
  // Whether an operation may begin now; else `message` says why not.
  [[nodiscard]] bool MayBegin(String& message);
  // Makes a table that shows the columns of `table`, where `database` says. False with `message`.
  [[nodiscard]] bool RevealStructure(const SqlTable& table, const String& database,
                                     String& message);

 private:
  // DATABASE taken apart.
  struct Place {
    String place;
    String table;
  };

  void RolledBack(uint64_t transaction) override;
  [[nodiscard]] bool IsBusy(String& message) override { return !MayBegin(message); }

  // `message` is no HTML yet. Returns Failed.
  DataResult Fail(std::string_view message);
  [[nodiscard]] static Place TakeApart(const String& database);
  // The session of a place: that of a database that is open there, or a new one.
  [[nodiscard]] std::shared_ptr<SqlSession> SessionAt(const SqlPlace& place, String& message);
  [[nodiscard]] bool Connect(const SqlPlace& place);
  // Connects where a table is to be made that is not there yet.
  [[nodiscard]] bool ConnectForNew(const Place& place);
  // Makes the table and opens it.
  [[nodiscard]] DataResult MakeTable(const String& table, const std::vector<SqlField>& columns);
  // Adds a row that shows the column; for the database of a table of such rows.
  [[nodiscard]] bool AddColumnRow(const SqlColumn& column);
  [[nodiscard]] DataResult OpenTable(const String& table);
  [[nodiscard]] DataResult OpenRows(std::unique_ptr<SqlView> view);
  void AddView(std::unique_ptr<SqlView> view);
  void ListViews();
  // Has the table's view go by the primary index.
  void ApplyOrder();
  // Whether there is a table; else error() is set.
  [[nodiscard]] bool HasTable();
  [[nodiscard]] DataResult DescribeIndexes(const String& list, std::vector<SqlIndex>& indexes);
  // A query of the page with the values of its parameters.
  [[nodiscard]] bool ReadQuery(const String& query, SqlStatement& statement);
  [[nodiscard]] DataResult RunAlone(const String& statement);
  [[nodiscard]] DataResult GoFirst();

  Vexa& host_;
  String name_;
  MakeDriver make_driver_;
  String type_;
  String error_;
  SqlPlace place_;
  std::shared_ptr<SqlSession> session_;
  SqlTable table_;  // its name is empty when there is none
  std::vector<SqlIndex> indexes_;
  size_t primary_index_ = 0;
  std::vector<std::unique_ptr<SqlView>> views_;
  std::vector<DatabaseView*> view_pointers_;
  SqlView* table_view_ = nullptr;  // of views_; null when it was closed
  DatabaseView* primary_view_ = nullptr;
};

}  // namespace vexa

#endif  // VEXA_SQL_SQL_DATABASE_H_
