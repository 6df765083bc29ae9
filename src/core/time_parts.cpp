// Taking the current time apart.

#include "core/time_parts.h"

#include <ctime>
#include <string_view>

#include "core/number.h"

namespace vexa {

namespace {

constexpr std::string_view kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                        "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr std::string_view kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr size_t kLongestZone = 49;

String PartText(TimePart part, const timeval& now, const tm& local) {
  switch (part) {
    case TimePart::Seconds1970:
      return PrintInteger(now.tv_sec);
    case TimePart::Microsecond:
      return PrintInteger(now.tv_usec);
    case TimePart::Second:
      return PrintInteger(local.tm_sec);
    case TimePart::Minute:
      return PrintInteger(local.tm_min);
    case TimePart::Hour:
      return PrintInteger(local.tm_hour);
    case TimePart::DayOfMonth:
      return PrintInteger(local.tm_mday);
    case TimePart::Month:
      return PrintInteger(local.tm_mon + 1);
    case TimePart::MonthName:
      return kMonths[local.tm_mon % 12];
    case TimePart::Year:
      return PrintInteger(local.tm_year + 1900);
    case TimePart::DayOfWeek:
      return PrintInteger(local.tm_wday + 1);
    case TimePart::DayName:
      return kDays[local.tm_wday % 7];
    case TimePart::DayOfYear:
      return PrintInteger(local.tm_yday + 1);
    case TimePart::IsDst:
      return PrintInteger(local.tm_isdst);
    case TimePart::Zone:
      break;
  }
  return std::string_view(tzname[1]).substr(0, kLongestZone);
}

timeval Now() {
  timeval now;
  gettimeofday(&now, nullptr);
  return now;
}

tm LocalTime(const timeval& time) {
  tzset();  // localtime_r itself need not set tzname.
  tm local = {};
  localtime_r(&time.tv_sec, &local);
  return local;
}

}  // namespace

void vx_gettimevalues(TimeValues& values) {
  const timeval now = Now();
  const tm local = LocalTime(now);
  for (size_t i = 0; i < values.parts.size(); ++i) {
    values.parts[i] = PartText(static_cast<TimePart>(i), now, local);
  }
}

String CurrentTimePart(TimePart part) { return TimePartOf(Now(), part); }

String TimePartOf(const timeval& time, TimePart part) {
  return PartText(part, time, LocalTime(time));
}

}  // namespace vexa
