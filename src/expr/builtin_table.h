// The table of the built-in functions: constant data, one row each, in the order of the manual.
// Nothing is done with it when the program starts.

#ifndef VEXA_EXPR_BUILTIN_TABLE_H_
#define VEXA_EXPR_BUILTIN_TABLE_H_

#include <algorithm>
#include <cstddef>
#include <span>
#include <string_view>

#include "expr/builtin_call.h"
#include "expr/expression_context.h"

namespace vexa {

// What a built-in does with its first argument. A text that is only looked at need not be copied.
enum class FirstArgument { Taken, LookedAt };

class BuiltinFunction final : public Callable {
 public:
  // `parameters` is the list of the parameter names separated by ", ". Both texts must live as
  // long as the program.
  constexpr BuiltinFunction(std::string_view name, std::string_view parameters,
                            BuiltinHandler handler,
                            FirstArgument first_argument = FirstArgument::Taken)
      : Callable(Kind::BuiltIn),
        name_(name),
        parameters_(parameters),
        parameter_count_(parameters.empty() ? 0
                                            : 1 + static_cast<int>(std::count(
                                                      parameters.begin(), parameters.end(), ','))),
        handler_(handler),
        first_argument_(first_argument) {}
  // Written out so that the compiler can build the table.
  constexpr ~BuiltinFunction() override {}
  [[nodiscard]] constexpr std::string_view name() const { return name_; }
  // The parameter names separated by ", "; empty when it takes none.
  [[nodiscard]] constexpr std::string_view parameters() const { return parameters_; }
  [[nodiscard]] int parameter_count() const override { return parameter_count_; }
  [[nodiscard]] BuiltinHandler handler() const { return handler_; }
  // LookedAt only where the handler asks for it by LookAtFirst, and runs nothing of the page.
  [[nodiscard]] FirstArgument first_argument() const { return first_argument_; }

 private:
  std::string_view name_;
  std::string_view parameters_;
  int parameter_count_;
  BuiltinHandler handler_;
  FirstArgument first_argument_;
};

inline constexpr size_t kBuiltinCount = 92;

// The built-in of that name, letter case ignored, or null.
[[nodiscard]] const BuiltinFunction* FindBuiltin(std::string_view name);
// All of them, in the order of the manual.
[[nodiscard]] std::span<const BuiltinFunction, kBuiltinCount> Builtins();

}  // namespace vexa

#endif  // VEXA_EXPR_BUILTIN_TABLE_H_
