// Functions of the C library that few pages call. Every function that the program names is bound
// when it starts, which each page pays for; these are found by their names when first called.
//
//   LateFunction<"socket", decltype(::socket)>()(family, type, protocol)

#ifndef VEXA_CORE_LATE_FUNCTION_H_
#define VEXA_CORE_LATE_FUNCTION_H_

#include <dlfcn.h>

#include <algorithm>
#include <cassert>
#include <cstddef>

namespace vexa {

// The name of such a function as a template argument.
template <size_t kSize>
struct FunctionName {
  consteval FunctionName(const char (&name)[kSize]) { std::copy_n(name, kSize, text); }
  char text[kSize];
};

// The function `kName` of the C library. REQUIRES: it has the type `Function` there.
template <FunctionName kName, typename Function>
[[nodiscard]] Function* LateFunction() {
  static auto* const function = reinterpret_cast<Function*>(dlsym(RTLD_DEFAULT, kName.text));
  assert(function != nullptr);
  return function;
}

}  // namespace vexa

#endif  // VEXA_CORE_LATE_FUNCTION_H_
