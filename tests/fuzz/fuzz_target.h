// What fuzz programs share: targets that are chosen by name, and what a target demands besides not
// crashing.

#ifndef VEXA_TESTS_FUZZ_FUZZ_TARGET_H_
#define VEXA_TESTS_FUZZ_FUZZ_TARGET_H_

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <string_view>

namespace vexa {

// Ends the process, as a finding, when `condition` does not hold.
inline void Require(bool condition, const char* text) {
  if (condition) return;
  std::fprintf(stderr, "%s\n", text);
  std::abort();
}

struct FuzzTarget {
  std::string_view name;
  void (*use)(std::string_view input);
};

// Gives the input to the target that VEXA_FUZZ_TARGET names in the environment.
inline int UseTarget(std::initializer_list<FuzzTarget> targets, const uint8_t* data, size_t size) {
  static const FuzzTarget chosen = [&] {
    const char* name = std::getenv("VEXA_FUZZ_TARGET");
    for (const FuzzTarget& target : targets) {
      if (name != nullptr && target.name == name) return target;
    }
    std::fputs("VEXA_FUZZ_TARGET names no target of this program\n", stderr);
    std::exit(2);
  }();
  chosen.use({reinterpret_cast<const char*>(data), size});
  return 0;
}

}  // namespace vexa

#endif  // VEXA_TESTS_FUZZ_FUZZ_TARGET_H_
