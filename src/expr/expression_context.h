// What the expression engine asks of the script that an expression stands in. The executor
// implements it; unit tests implement it with a few lines.

#ifndef VEXA_EXPR_EXPRESSION_CONTEXT_H_
#define VEXA_EXPR_EXPRESSION_CONTEXT_H_

#include <cstdint>
#include <span>
#include <string_view>

#include "core/script_value.h"
#include "core/string.h"
#include "core/symbol.h"
#include "vexa.h"

namespace vexa {

// What may be called from an expression: the language's own functions (BuiltinFunction), the
// script's (Function), and those of packages, which the host knows. No virtual functions, on
// purpose: each row of the built-ins would hold an address more, to be adjusted at every start.
class Callable {
 public:
  enum class Kind : uint8_t { BuiltIn, OfScript, OfPackage };
  constexpr Callable(Kind kind, int parameter_count)
      : kind_(kind), parameter_count_(parameter_count) {}
  [[nodiscard]] int parameter_count() const { return parameter_count_; }
  [[nodiscard]] Kind kind() const { return kind_; }
  [[nodiscard]] bool builtin() const { return kind_ == Kind::BuiltIn; }

 protected:
  ~Callable() = default;
  void SetParameterCount(int count) { parameter_count_ = count; }

 private:
  Kind kind_;
  int parameter_count_;
};

class ExpressionContext {
 public:
  virtual ~ExpressionContext() = default;

  [[nodiscard]] virtual Vexa& host() = 0;
  // Reports an error of an expression at the place where the script stands. Always returns false,
  // so that callers can return what it returns.
  virtual bool ReportExpressionError(std::string_view message) = 0;
  // Reports that a file function could not do its work. The page goes on unless the page's
  // settings say otherwise; false when it must stop.
  virtual bool ReportFileError(std::string_view message) = 0;
  // Sets `function` to the function of that name: a built-in, one of the script's own, which is
  // looked for further down in the script when it is not known yet, or one of a package. Null when
  // there is none. It stays valid while the script runs. False when looking for it ended in
  // an error; that was then reported.
  [[nodiscard]] virtual bool FindFunction(Symbol name, const Callable*& function) = 0;
  // Runs `function`. False when the script must stop; the error was then already reported.
  // REQUIRES: as many arguments as the function has parameters.
  [[nodiscard]] virtual bool CallFunction(const Callable& function,
                                          std::span<ScriptValue> arguments,
                                          ScriptValue& result) = 0;
  // Writes to where the script writes now; nowhere when it is only read.
  virtual void WriteValue(std::string_view) {}

  // The number of the script: which of its own functions a name means may be noted together with
  // it. 0: nothing may be noted.
  [[nodiscard]] uint64_t script_number() const { return script_number_; }

 protected:
  // Gives the script a number that no other has or had.
  void NumberScript() {
    static constinit uint64_t last = 0;
    script_number_ = ++last;
  }

 private:
  uint64_t script_number_ = 0;
};

}  // namespace vexa

#endif  // VEXA_EXPR_EXPRESSION_CONTEXT_H_
