// Sqlite3Driver: one open file of the embedded engine.
//
//   sqlite3_driver.cpp     the connection, running statements, results that are kept
//   sqlite3_schema.cpp     what tables and indexes hold
//   sqlite3_texts.cpp      texts of statements
//   sqlite3_safety         what statements may not do, and how files are opened
//
// A place is a data path. Values have types of their own here, whatever their column declares, so
// they are kept and bound as what they are: comparing a key with itself then never converts it.

#ifndef VEXA_SQL_DRIVERS_SQLITE3_DRIVER_H_
#define VEXA_SQL_DRIVERS_SQLITE3_DRIVER_H_

#include <compare>
#include <list>
#include <memory>
#include <string_view>
#include <vector>

#include "core/held_files.h"
#include "sql/drivers/sql_driver.h"
#include "sql/drivers/sqlite3_library.h"
#include "sql/drivers/sqlite3_safety.h"

namespace vexa {

class Sqlite3Driver final : public SqlDriver {
 public:
  static constexpr std::string_view kType = "sqlite3";

  explicit Sqlite3Driver(Vexa& host) : host_(host) {}
  ~Sqlite3Driver() override;

  [[nodiscard]] std::string_view type() const override { return kType; }
  [[nodiscard]] bool Identify(const SqlPlace& place, String& identity, SqlFault& fault) override;
  [[nodiscard]] bool Connect(const SqlPlace& place, SqlFault& fault) override;
  [[nodiscard]] bool InTransaction() override;
  [[nodiscard]] bool Run(const SqlStatement& statement, const SqlWanted& wanted, SqlResult& result,
                         SqlFault& fault) override;
  [[nodiscard]] bool Keep(int id, const SqlStatement& query, std::vector<SqlColumn>& columns,
                          int64_t& count, SqlFault& fault) override;
  [[nodiscard]] bool ReadKept(int id, int64_t first, const SqlWanted& wanted,
                              std::vector<SqlRow>& rows, SqlFault& fault) override;
  void DropKept(int id) override;
  [[nodiscard]] bool DescribeTable(const String& name, SqlTable& table, bool& found,
                                   SqlFault& fault) override;
  [[nodiscard]] bool DescribeIndex(const SqlTable& table, const String& name, SqlIndex& index,
                                   bool& found, SqlFault& fault) override;
  [[nodiscard]] const SqlLexis& lexis() const override;
  [[nodiscard]] std::string_view begin() const override { return "BEGIN IMMEDIATE"; }
  [[nodiscard]] String Mark(size_t number) const override;
  [[nodiscard]] String TermText(const SqlTable& table, const SqlTerm& term) const override;
  [[nodiscard]] String ValueText(const SqlTable& table, const SqlTerm& term,
                                 size_t number) const override;
  [[nodiscard]] String OrderText(const SqlTable& table, const SqlTerm& term,
                                 bool reversed) const override;
  [[nodiscard]] bool FindCondition(const SqlTable& table, const SqlTerm& term, const String& value,
                                   bool prefix, size_t first_mark,
                                   SqlCondition& condition) const override;
  [[nodiscard]] bool MayFollow(const std::vector<SqlTerm>& order, const SqlRow& row,
                               const SqlRow& next, bool backward, SqlFault& fault) const override;
  [[nodiscard]] std::vector<String> CreateTable(const String& name,
                                                const std::vector<SqlField>& fields) override;
  [[nodiscard]] std::vector<String> CreateIndex(const SqlNewIndex& index) override;
  [[nodiscard]] String PackText(const SqlTable& table) const override;
  [[nodiscard]] String ReindexText(const SqlTable& table) const override;

 private:
  // How two values of a term stand: before, equal, behind; unordered where the engine alone knows.
  [[nodiscard]] std::partial_ordering Compare(const SqlTerm& term, const SqlValue& one,
                                              const SqlValue& other) const;
  // A statement that was prepared, and may be run again.
  struct Prepared {
    String text;
    sqlite3_stmt* statement;
  };

  // Keeps the engine's message, or what stands behind it. Returns false.
  bool Fail(int code, SqlFault& fault);
  // The path of a place, in the sandbox.
  [[nodiscard]] bool Resolve(const SqlPlace& place, String& path, SqlFault& fault);
  [[nodiscard]] bool OpenFile(const String& path, bool create, SqlFault& fault);
  // Asked by the engine while it waits for a lock and while it works: non-zero goes on, and stops.
  static int WaitForLock(void* driver, int tries);
  static int LookAtClock(void* driver);

  // The prepared statement of that text; null with `fault` set. It stays the driver's, and is valid
  // until the next one is prepared.
  [[nodiscard]] sqlite3_stmt* Prepare(const String& text, SqlFault& fault);
  [[nodiscard]] bool IsOneStatement(const char* rest, const char* end);
  [[nodiscard]] bool Bind(sqlite3_stmt* statement, const SqlRow& parameters, SqlFault& fault);
  void ReadRow(sqlite3_stmt* statement, SqlRow& row, int64_t& bytes);
  [[nodiscard]] bool Step(sqlite3_stmt* statement, const SqlWanted& wanted, SqlResult& result,
                          SqlFault& fault);
  // Forgets a statement that failed, so that nothing of it stays open.
  void Forget(sqlite3_stmt* statement);
  // Rows of a question about the schema.
  [[nodiscard]] bool Ask(std::string_view text, SqlRow parameters, std::vector<SqlRow>& rows,
                         SqlFault& fault);
  [[nodiscard]] bool DescribeColumns(SqlTable& table, std::vector<int>& key, bool& key_may_be_null,
                                     SqlFault& fault);
  [[nodiscard]] bool DescribeKey(SqlTable& table, const std::vector<int>& key, bool key_may_be_null,
                                 SqlFault& fault);

  Vexa& host_;
  const Sqlite3Library* library_ = nullptr;
  sqlite3* database_ = nullptr;
  Sqlite3Guard guard_;
  std::unique_ptr<HeldFile> held_;
  std::list<Prepared> prepared_;   // the last used first
  bool bytes_order_texts_ = true;  // texts are kept as pages hold them, byte by byte
};

// The column that a declared type makes.
[[nodiscard]] SqlColumn DeclaredColumn(std::string_view name, std::string_view declared);

}  // namespace vexa

#endif  // VEXA_SQL_DRIVERS_SQLITE3_DRIVER_H_
