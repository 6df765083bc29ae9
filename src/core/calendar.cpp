// The calendar of UTC. Years begin in March here, so that the leap day is the last of its year.

#include "core/calendar.h"

#include <limits>

namespace vexa {

namespace {

constexpr int64_t kSecondsPerDay = 24 * 3600;
constexpr int64_t kDaysOf400Years = 146097;
constexpr int64_t kDaysFromMarchOfYear0 = 719468;  // to 1970-01-01
constexpr int64_t kFirstTmYear = 1900;

constexpr int64_t FloorDivide(int64_t value, int64_t divisor) {
  return (value >= 0 ? value : value - divisor + 1) / divisor;
}

// Days from 0000-03-01 to the first of a month, counted from March of the year 0.
constexpr int64_t DaysToMarchMonth(int64_t month) {
  const int64_t year = FloorDivide(month, 12);
  const int64_t month_of_year = month - year * 12;
  const int64_t leap_days = FloorDivide(year, 4) - FloorDivide(year, 100) + FloorDivide(year, 400);
  return year * 365 + leap_days + (month_of_year * 153 + 2) / 5;
}
static_assert(DaysToMarchMonth(1970 * 12 - 2) == kDaysFromMarchOfYear0);
static_assert(DaysToMarchMonth(2000 * 12) == kDaysFromMarchOfYear0 + 11017);

}  // namespace

int64_t DaysToMonth(int64_t month) { return DaysToMarchMonth(month - 2) - kDaysFromMarchOfYear0; }

std::tm CalendarTime(int64_t seconds) {
  const int64_t day = FloorDivide(seconds, kSecondsPerDay);
  const int64_t second = seconds - day * kSecondsPerDay;
  const int64_t march_day = day + kDaysFromMarchOfYear0;
  const int64_t cycle = FloorDivide(march_day, kDaysOf400Years);
  const int64_t of_cycle = march_day - cycle * kDaysOf400Years;
  const int64_t year_of_cycle =
      (of_cycle - of_cycle / 1460 + of_cycle / 36524 - of_cycle / (kDaysOf400Years - 1)) / 365;
  const int64_t march_year = cycle * 400 + year_of_cycle;
  const int64_t of_year = march_day - DaysToMarchMonth(march_year * 12);
  const int64_t march_month = (5 * of_year + 2) / 153;
  const int64_t month = march_month < 10 ? march_month + 2 : march_month - 10;
  const int64_t year = march_year + (month < 2 ? 1 : 0);

  std::tm fields{};
  const int64_t tm_year = year - kFirstTmYear;
  if (tm_year < std::numeric_limits<int>::min() || tm_year > std::numeric_limits<int>::max()) {
    return fields;
  }
  fields.tm_sec = static_cast<int>(second % 60);
  fields.tm_min = static_cast<int>(second / 60 % 60);
  fields.tm_hour = static_cast<int>(second / 3600);
  fields.tm_mday = static_cast<int>(of_year - (march_month * 153 + 2) / 5 + 1);
  fields.tm_mon = static_cast<int>(month);
  fields.tm_year = static_cast<int>(tm_year);
  fields.tm_wday =
      static_cast<int>(day + 4 - FloorDivide(day + 4, 7) * 7);  // 1970 began on Thursday
  fields.tm_yday = static_cast<int>(day - DaysToMonth(year * 12));
  return fields;
}

}  // namespace vexa
