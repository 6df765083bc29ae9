// Built-in functions on numbers. They compute in double precision and print as every real of the
// language is printed; what the C library answers outside a function's domain ("nan", "inf") is
// the result.

#ifndef VEXA_EXPR_BUILTINS_MATH_H_
#define VEXA_EXPR_BUILTINS_MATH_H_

#include "expr/builtin_call.h"

// A function of the C library with one and with two real arguments.
template <double (*function)(double)>
bool BuiltinReal(const BuiltinCall& call) {
  return call.ReturnReal(function(call.Real(0)));
}
template <double (*function)(double, double)>
bool BuiltinReal(const BuiltinCall& call) {
  return call.ReturnReal(function(call.Real(0), call.Real(1)));
}

bool BuiltinInt(const BuiltinCall& call);
bool BuiltinRnd(const BuiltinCall& call);
bool BuiltinRandom(const BuiltinCall& call);

#endif  // VEXA_EXPR_BUILTINS_MATH_H_
