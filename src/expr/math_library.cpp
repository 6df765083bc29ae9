// Loading the mathematics library. It stays loaded until the process ends.

#include "expr/math_library.h"

#include <dlfcn.h>

#include "core/string.h"

namespace vexa {

void* FindMathFunction(const char* name, ExpressionContext& context) {
  static void* const library = dlopen("libm.so.6", RTLD_LAZY | RTLD_LOCAL);
  void* function = library == nullptr ? nullptr : dlsym(library, name);
  if (function == nullptr) context.ReportExpressionError("Unable to load " + String(dlerror()));
  return function;
}

}  // namespace vexa
