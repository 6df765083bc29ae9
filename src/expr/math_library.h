// The C library's mathematics. Few pages compute sines, and loading the library would cost every
// other page a noticeable part of its start-up, so it is loaded when a function is first called.

#ifndef VEXA_EXPR_MATH_LIBRARY_H_
#define VEXA_EXPR_MATH_LIBRARY_H_

#include <algorithm>
#include <cstddef>

#include "expr/expression_context.h"

namespace vexa {

// The address of the function `name` of the mathematics library. Null, after an expression error
// was reported, when the system cannot load it.
[[nodiscard]] void* FindMathFunction(const char* name, ExpressionContext& context);

// The name of such a function as a template argument.
template <size_t kSize>
struct MathName {
  consteval MathName(const char (&name)[kSize]) { std::copy_n(name, kSize, text); }
  char text[kSize];
};

// Calls the function `kName` on its one or two arguments. False after an error was reported.
template <MathName kName, typename... Reals>
[[nodiscard]] bool CallMathFunction(ExpressionContext& context, double& result,
                                    Reals... arguments) {
  using Pointer = double (*)(Reals...);
  static auto function = reinterpret_cast<Pointer>(FindMathFunction(kName.text, context));
  if (function == nullptr) return false;
  result = function(arguments...);
  return true;
}

}  // namespace vexa

#endif  // VEXA_EXPR_MATH_LIBRARY_H_
