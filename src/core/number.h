// Texts read as numbers, and numbers printed as texts: the one place that fixes both.
//
// Reading takes the longest numeric prefix, as strtod and strtol do (leading white space, a sign),
// and reads 0 when there is none. Printing never depends on the locale.

#ifndef VEXA_CORE_NUMBER_H_
#define VEXA_CORE_NUMBER_H_

#include <cstdint>
#include <string_view>

#include "core/string.h"

namespace vexa {

// The real that `text` begins with.
[[nodiscard]] double ReadReal(std::string_view text);
// The base-10 integer that `text` begins with; values beyond 32 bits saturate.
[[nodiscard]] int32_t ReadInteger(std::string_view text);
// The same for times and sizes; values beyond 64 bits saturate.
[[nodiscard]] int64_t ReadInteger64(std::string_view text);
// Reads a text that is wholly a number (the empty text is 0). False when anything is left over or
// the value overflows; `*value` is then unspecified.
[[nodiscard]] bool ReadStrict(std::string_view text, double* value);

// "%f" without trailing zeros and trailing point, in full length.
[[nodiscard]] String PrintReal(double value);
[[nodiscard]] String PrintInteger(int64_t value);
// "%.*f" with `places` decimals, zeros kept. Negative `places` print as "%f" does; more than
// kMostPlaces are cut to it, so that a script cannot ask for gigabytes of zeros.
[[nodiscard]] String PrintRounded(double value, int places);
inline constexpr int kMostPlaces = 1000;

// The next number of the C library's generator, 0 to RAND_MAX: no secret. It is seeded with the
// time when the process first draws one.
[[nodiscard]] int DrawNumber();

}  // namespace vexa

#endif  // VEXA_CORE_NUMBER_H_
