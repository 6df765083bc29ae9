// The one switch of everything that only saves work: numbers kept beside texts, appending in place,
// remembered sites. What a page prints, every message and every line number is the same with all of
// it switched off, and the tests run both ways.
//
// A test build looks at VEXA_NO_SITES in the environment when it first asks. In a release build the
// shortcuts are always on, and the compiler drops the question.

#ifndef VEXA_CORE_SHORTCUTS_H_
#define VEXA_CORE_SHORTCUTS_H_

#include <cstdlib>

namespace vexa {

#ifdef NDEBUG
[[nodiscard]] constexpr bool UseShortcuts() { return true; }
#else
// For tests that compare both ways in one process.
inline bool& ShortcutsSwitch() {
  static bool on = std::getenv("VEXA_NO_SITES") == nullptr;
  return on;
}
[[nodiscard]] inline bool UseShortcuts() { return ShortcutsSwitch(); }
#endif

}  // namespace vexa

#endif  // VEXA_CORE_SHORTCUTS_H_
