// The tables of the built-in functions, one row each. The first is constant data in the order of
// the manual: nothing is done with it when the program starts. The further ones, whose names all
// begin with `vexa_`, are made when such a name is first looked up: constant rows hold addresses,
// which would have to be adjusted at every start, also for pages that call none of them.
//
// A further table stands in the file of its functions:
//
//   std::span<const LateBuiltin> AnswerBuiltins() {
//     static const LateBuiltin rows[] = {
//         {"vexa_status", "code", Status, kNotInKeys},
//     };
//     return rows;
//   }
//
// It is declared in builtins.h and asked by FindLateBuiltin in builtin_table.cpp.

#ifndef VEXA_EXPR_BUILTIN_TABLE_H_
#define VEXA_EXPR_BUILTIN_TABLE_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "expr/builtin_call.h"
#include "expr/expression_context.h"

namespace vexa {

// What is known of a built-in besides its name, parameters and work.
enum BuiltinFlag : uint8_t {
  // The handler asks for its first argument by LookAtFirst alone, and runs nothing of the page: the
  // text need not be copied.
  kLooksAtFirst = 1,
  // The key of an index may not call it: it reads or changes files, sets a language, or touches the
  // answer, the request or a session (key_rule.h).
  kNotInKeys = 2,
};

class BuiltinFunction : public Callable {
 public:
  // `name` must live as long as the program. `parameters` lists the parameters for the reader,
  // separated by ", "; only their count is kept. `flags` are BuiltinFlag bits.
  constexpr BuiltinFunction(std::string_view name, std::string_view parameters,
                            BuiltinHandler handler, uint8_t flags = 0)
      : Callable(Kind::BuiltIn,
                 parameters.empty()
                     ? 0
                     : 1 + static_cast<int>(std::count(parameters.begin(), parameters.end(), ','))),
        name_(name),
        handler_(handler),
        flags_(flags) {}
  [[nodiscard]] constexpr std::string_view name() const { return name_; }
  [[nodiscard]] BuiltinHandler handler() const { return handler_; }
  [[nodiscard]] bool Has(BuiltinFlag flag) const { return (flags_ & flag) != 0; }

 private:
  std::string_view name_;
  BuiltinHandler handler_;
  uint8_t flags_;
};

// A row of a further table.
class LateBuiltin final : public BuiltinFunction {
 public:
  // Not constexpr, on purpose: the compiler would make constant data of the rows.
  LateBuiltin(std::string_view name, std::string_view parameters, BuiltinHandler handler,
              uint8_t flags = 0)
      : BuiltinFunction(name, parameters, handler, flags) {}
};

inline constexpr size_t kBuiltinCount = 92;

// The built-in of that name in all tables, letter case ignored, or null.
[[nodiscard]] const BuiltinFunction* FindBuiltin(std::string_view name);
// Those of the first table, in the order of the manual.
[[nodiscard]] std::span<const BuiltinFunction, kBuiltinCount> Builtins();

}  // namespace vexa

#endif  // VEXA_EXPR_BUILTIN_TABLE_H_
