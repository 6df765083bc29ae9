// Reading the text of a query: the parameters in it, and what it does to transactions.

#ifndef VEXA_SQL_QUERY_TEXT_H_
#define VEXA_SQL_QUERY_TEXT_H_

#include <string_view>
#include <vector>

#include "core/string.h"
#include "sql/drivers/sql_driver.h"

namespace vexa {

// A query as the server gets it: `:name` became the mark of a parameter, each place its own.
struct QueryText {
  String text;
  std::vector<String> names;  // of the variables, in the order of the marks
};

// Reads what a page wrote. A parameter is a colon and a name with its scopes, outside quotes and
// comments and not behind another colon. False with `message` set, when the engine's own parameters
// stand there.
[[nodiscard]] bool ReadQueryText(std::string_view query, const SqlDriver& driver, QueryText& read,
                                 String& message);

// What a statement does to the transaction.
enum class TransactionStep {
  None,
  Begin,  // the bare word
  Commit,
  Rollback,
  RollbackTo,  // a savepoint
};
[[nodiscard]] TransactionStep StepOf(std::string_view statement);

}  // namespace vexa

#endif  // VEXA_SQL_QUERY_TEXT_H_
