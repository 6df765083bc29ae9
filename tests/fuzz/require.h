// What a fuzz target demands besides not crashing.

#ifndef VEXA_TESTS_FUZZ_REQUIRE_H_
#define VEXA_TESTS_FUZZ_REQUIRE_H_

#include <cstdio>
#include <cstdlib>

namespace vexa {

// Ends the process, as a finding, when `condition` does not hold.
inline void Require(bool condition, const char* text) {
  if (condition) return;
  std::fprintf(stderr, "%s\n", text);
  std::abort();
}

}  // namespace vexa

#endif  // VEXA_TESTS_FUZZ_REQUIRE_H_
