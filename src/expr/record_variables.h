// RecordVariables: the variables of a database's current record, and the expressions over them.
//
// The base of the records of all types of databases. While an expression is evaluated the record
// must stay as it is, although the expression may call functions of the page: every operation and
// assignment is refused then. `busy()` says so.

#ifndef VEXA_EXPR_RECORD_VARIABLES_H_
#define VEXA_EXPR_RECORD_VARIABLES_H_

#include <optional>
#include <string_view>

#include "core/string.h"
#include "core/variables.h"
#include "database.h"
#include "expr/expression.h"
#include "vexa.h"

namespace vexa {

class RecordVariables {
 public:
  // `host` is borrowed. `database` is the name used in messages.
  RecordVariables(Vexa& host, String database) : host_(host), database_(std::move(database)) {}
  RecordVariables(const RecordVariables&) = delete;
  RecordVariables& operator=(const RecordVariables&) = delete;

  [[nodiscard]] Variable* FindVariable(Symbol name) { return scope_->Find(name); }
  void SetEOF(bool end);

  // Evaluates with the record's variables before all others. Done, or Reported when it fails.
  [[nodiscard]] DataResult Evaluate(const Expression& expression, String& result);
  // Reads an expression for later. False after the error was reported. REQUIRES: a page is running.
  [[nodiscard]] bool Parse(std::string_view text, Expression& expression);
  // The same for a filter, which may be empty.
  [[nodiscard]] bool ParseFilter(const String& text, Expression& filter);

  [[nodiscard]] bool busy() const { return evaluations_ > 0; }
  // The message of an operation that is refused for that.
  [[nodiscard]] String BusyMessage() const;

 protected:
  ~RecordVariables() = default;
  [[nodiscard]] Vexa& host() const { return host_; }
  [[nodiscard]] VariableTree& scope() { return *scope_; }
  // Adds EOF to the variables, at first 1.
  void AddEOF();
  // Forgets all variables.
  void ForgetVariables();

 private:
  Vexa& host_;
  String database_;
  // Always there; in place, since closing takes no memory.
  std::optional<VariableTree> scope_{kFieldKind};
  Variable* eof_ = nullptr;  // in scope_
  int evaluations_ = 0;      // under way
};

}  // namespace vexa

#endif  // VEXA_EXPR_RECORD_VARIABLES_H_
