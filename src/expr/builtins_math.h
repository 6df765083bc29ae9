// Built-in functions on numbers. They compute in double precision and print as every real of the
// language is printed; what the C library answers outside a function's domain ("nan", "inf") is
// the result.

#ifndef VEXA_EXPR_BUILTINS_MATH_H_
#define VEXA_EXPR_BUILTINS_MATH_H_

#include "expr/builtin_call.h"
#include "expr/math_library.h"

namespace vexa {

// A function that the compiler turns into a few instructions.
template <double (*function)(double)>
bool BuiltinPlainReal(const BuiltinCall& call) {
  return call.ReturnReal(function(call.Real(0)));
}

// Functions of the mathematics library with one and with two real arguments.
template <MathName kName>
bool BuiltinReal(const BuiltinCall& call) {
  double result;
  return CallMathFunction<kName>(call.context(), result, call.Real(0)) && call.ReturnReal(result);
}
template <MathName kName>
bool BuiltinReal2(const BuiltinCall& call) {
  double result;
  return CallMathFunction<kName>(call.context(), result, call.Real(0), call.Real(1)) &&
         call.ReturnReal(result);
}

bool BuiltinInt(const BuiltinCall& call);
bool BuiltinRnd(const BuiltinCall& call);
bool BuiltinRandom(const BuiltinCall& call);

}  // namespace vexa

#endif  // VEXA_EXPR_BUILTINS_MATH_H_
