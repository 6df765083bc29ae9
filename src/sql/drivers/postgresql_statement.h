// What has to be known of a statement before the server gets it.

#ifndef VEXA_SQL_DRIVERS_POSTGRESQL_STATEMENT_H_
#define VEXA_SQL_DRIVERS_POSTGRESQL_STATEMENT_H_

#include <string_view>

namespace vexa {

inline constexpr std::string_view kSeveralStatements = "More than one statement";

struct PostgresqlStatementForm {
  bool queries = false;   // it begins with SELECT, VALUES or WITH, in parentheses or not
  bool copies = false;    // it is a COPY from or to the client
  bool several = false;   // more follows behind its semicolon
  std::string_view text;  // the statement without its semicolon and what follows
};

// Reads it token by token, as the server does. `text` of the result is a part of `statement`.
[[nodiscard]] PostgresqlStatementForm ReadPostgresqlStatement(std::string_view statement);

}  // namespace vexa

#endif  // VEXA_SQL_DRIVERS_POSTGRESQL_STATEMENT_H_
