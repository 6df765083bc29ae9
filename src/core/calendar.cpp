// The calendar of UTC. Years begin in March here, so that the leap day is the last of its year.

#include "core/calendar.h"

#include <limits>

#include "core/number.h"
#include "core/text.h"

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

constexpr std::string_view kDayNames = "SunMonTueWedThuFriSat";
constexpr std::string_view kMonthNames = "JanFebMarAprMayJunJulAugSepOctNovDec";

std::string_view ShortName(std::string_view names, int number) {
  return names.substr(static_cast<size_t>(number) * 3, 3);
}

// The two digits at `text`, -1 when they are none.
int TwoDigits(std::string_view text) {
  return IsDigit(text[0]) && IsDigit(text[1]) ? (text[0] - '0') * 10 + (text[1] - '0') : -1;
}

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

String HTTPDate(int64_t seconds, char separator) {
  const std::tm fields = CalendarTime(seconds);
  const auto put = [](char* to, int number) {
    to[0] = static_cast<char>('0' + number / 10);
    to[1] = static_cast<char>('0' + number % 10);
  };
  char day[] = {'0', '0', separator};
  put(day, fields.tm_mday);
  char time[] = " 00:00:00 GMT";
  put(time + 1, fields.tm_hour);
  put(time + 4, fields.tm_min);
  put(time + 7, fields.tm_sec);
  return String::Concat({ShortName(kDayNames, fields.tm_wday),
                         ", ",
                         {day, 3},
                         ShortName(kMonthNames, fields.tm_mon),
                         {&separator, 1},
                         PrintInteger(fields.tm_year + kFirstTmYear),
                         time});
}

int64_t ReadHTTPDate(std::string_view text) {
  constexpr std::string_view kPattern = "Sun, 06 Nov 1994 08:49:37 GMT";
  if (text.size() != kPattern.size()) return -1;
  const size_t month = kMonthNames.find(text.substr(8, 3));
  const int day = TwoDigits(text.substr(5));
  const int century = TwoDigits(text.substr(12));
  const int year = TwoDigits(text.substr(14));
  const int hour = TwoDigits(text.substr(17));
  const int minute = TwoDigits(text.substr(20));
  const int second = TwoDigits(text.substr(23));
  if (month == kMonthNames.npos || day < 1 || century < 0 || year < 0 || hour < 0 || minute < 0 ||
      second < 0) {
    return -1;
  }
  const int64_t days =
      DaysToMonth((century * 100 + year) * 12 + static_cast<int64_t>(month / 3)) + day - 1;
  const int64_t seconds = days * kSecondsPerDay + hour * 3600 + minute * 60 + second;
  // What is written otherwise, or names no real day, differs here.
  return seconds >= 0 && HTTPDate(seconds) == text ? seconds : -1;
}

}  // namespace vexa
