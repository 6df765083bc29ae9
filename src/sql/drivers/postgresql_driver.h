// PostgresqlDriver: one session of a PostgreSQL server.
//
//   postgresql_place         who and where: connection texts, attributes, the site's setting
//   postgresql_connection    connecting, sending and waiting, limits of time, what is lost
//   postgresql_statement     what has to be known of a statement before it is sent
//   postgresql_values        values and types
//   postgresql_driver.cpp    statements, and results that are kept
//   postgresql_schema.cpp    what tables and indexes hold
//   postgresql_texts.cpp     texts of statements
//
// Parameters are sent as texts whose types the server infers. A result that is kept is a cursor
// that outlives transactions: the server fills it when the query runs, or, inside a transaction of
// the page, when that is committed, from rows that it has gathered by then.

#ifndef VEXA_SQL_DRIVERS_POSTGRESQL_DRIVER_H_
#define VEXA_SQL_DRIVERS_POSTGRESQL_DRIVER_H_

#include <string_view>
#include <vector>

#include "sql/drivers/postgresql_connection.h"
#include "sql/drivers/sql_driver.h"

namespace vexa {

class PostgresqlDriver final : public SqlDriver {
 public:
  static constexpr std::string_view kType = "postgresql";

  explicit PostgresqlDriver(Vexa& host) : connection_(host) {}

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
  [[nodiscard]] std::string_view begin() const override { return "BEGIN"; }
  [[nodiscard]] String Mark(size_t number) const override;
  [[nodiscard]] String TermText(const SqlTable& table, const SqlTerm& term) const override;
  [[nodiscard]] String ValueText(const SqlTable& table, const SqlTerm& term,
                                 size_t number) const override;
  [[nodiscard]] String OrderText(const SqlTable& table, const SqlTerm& term,
                                 bool reversed) const override;
  [[nodiscard]] bool FindCondition(const SqlTable& table, const SqlTerm& term, const String& value,
                                   bool prefix, size_t first_mark,
                                   SqlCondition& condition) const override;
  [[nodiscard]] bool MayFollow(const std::vector<SqlTerm>& /*order*/, const SqlRow& /*row*/,
                               const SqlRow& /*next*/, bool /*backward*/,
                               SqlFault& /*fault*/) const override {
    return true;
  }
  [[nodiscard]] std::vector<String> CreateTable(const String& name,
                                                const std::vector<SqlField>& fields) override;
  [[nodiscard]] std::vector<String> CreateIndex(const SqlNewIndex& index) override;
  [[nodiscard]] String PackText(const SqlTable& table) const override;
  [[nodiscard]] String ReindexText(const SqlTable& table) const override;

 private:
  // All rows of a statement of ours.
  [[nodiscard]] bool Ask(std::string_view text, SqlRow parameters, std::vector<SqlRow>& rows,
                         SqlFault& fault);
  [[nodiscard]] bool Do(std::string_view text, SqlFault& fault);
  [[nodiscard]] String CursorName(int id) const;
  // Declares the cursor, describes it and counts its rows. `reply` tells how it failed.
  [[nodiscard]] bool Declare(const String& cursor, const SqlStatement& query,
                             std::vector<SqlColumn>& columns, int64_t& count,
                             PostgresqlReply& reply, SqlFault& fault);
  [[nodiscard]] bool DescribeColumns(SqlTable& table, SqlFault& fault);

  PostgresqlConnection connection_;
};

}  // namespace vexa

#endif  // VEXA_SQL_DRIVERS_POSTGRESQL_DRIVER_H_
