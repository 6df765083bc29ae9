// The three functions that are more than a function of the C library on its arguments.

#include "expr/builtins.h"

#include <cstdint>

#include "core/number.h"

namespace vexa {

bool BuiltinInt(const BuiltinCall& call) { return call.ReturnInteger(call.Integer(0)); }

bool BuiltinRnd(const BuiltinCall& call) {
  return call.ReturnRounded(call.Real(0), call.Integer(1));
}

bool BuiltinRandom(const BuiltinCall& call) {
  const int64_t maximum = call.Integer(0);
  return call.ReturnInteger(maximum < 1 ? 0 : DrawNumber() % (maximum + 1));
}

}  // namespace vexa
