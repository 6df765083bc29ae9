// The calendar of UTC as arithmetic. The C library's own conversion reads the time zone from the
// disk first, which most pages never need.

#ifndef VEXA_CORE_CALENDAR_H_
#define VEXA_CORE_CALENDAR_H_

#include <cstdint>
#include <ctime>

#include "core/string.h"

namespace vexa {

// Days from 1970-01-01 to the first of the month, which is counted from January (0) of the year 0
// and may be negative.
[[nodiscard]] int64_t DaysToMonth(int64_t month);

// The calendar fields of a time in seconds since 1970, of UTC; all zero when the year is beyond
// what the fields can say.
[[nodiscard]] std::tm CalendarTime(int64_t seconds);

// The time as HTTP and cookies write it: "Sun, 06 Nov 1994 08:49:37 GMT", with `separator` between
// day, month and year. The reverse for a space as separator; -1 for what is no such date.
[[nodiscard]] String HTTPDate(int64_t seconds, char separator = ' ');
[[nodiscard]] int64_t ReadHTTPDate(std::string_view text);

}  // namespace vexa

#endif  // VEXA_CORE_CALENDAR_H_
