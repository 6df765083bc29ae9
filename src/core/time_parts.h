// The breakdown of the current local time that variables, mail and logs show.

#ifndef VEXA_CORE_TIME_PARTS_H_
#define VEXA_CORE_TIME_PARTS_H_

#include <sys/time.h>

#include <array>

#include "core/string.h"

namespace vexa {

// The fourteen parts of a time, in the order of their variables. Months, days of the week (Sunday
// is 1) and days of the year count from 1.
enum class TimePart : int {
  Seconds1970,  // time_t
  Microsecond,
  Second,
  Minute,
  Hour,
  DayOfMonth,
  Month,
  MonthName,  // "Jan"
  Year,
  DayOfWeek,
  DayName,  // "Sun"
  DayOfYear,
  IsDst,
  Zone,
};
inline constexpr int kTimeParts = 14;

// The current local time as texts, indexed by TimePart. The zone is always the daylight-saving
// name, whether or not it is in force, on purpose.
struct TimeValues {
  std::array<String, kTimeParts> parts;
};
void vx_gettimevalues(TimeValues& values);
// One part alone, of the current time and of `time`.
[[nodiscard]] String CurrentTimePart(TimePart part);
[[nodiscard]] String TimePartOf(const timeval& time, TimePart part);

}  // namespace vexa

#endif  // VEXA_CORE_TIME_PARTS_H_
