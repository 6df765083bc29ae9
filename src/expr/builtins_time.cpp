// The time functions. Only `timezone` looks at the server's own zone; everything else is arithmetic
// on UTC, so a page prints the same on every server.

#include "expr/builtins.h"

#include <cstdint>
#include <ctime>

#include "core/calendar.h"

namespace vexa {

namespace {

constexpr int64_t kSecondsPerHour = 3600;
constexpr int64_t kSecondsPerDay = 24 * kSecondsPerHour;

// The calendar fields of the time and zone that the call passes; all zero when the time is beyond
// what the calendar can say.
std::tm Breakdown(const BuiltinCall& call) {
  int64_t local = 0;
  const int64_t zone = call.Integer(1) * kSecondsPerHour;
  if (__builtin_add_overflow(call.Integer64(0), zone, &local)) return {};
  return CalendarTime(local);
}

}  // namespace

bool BuiltinTimeMonth(const BuiltinCall& call) {
  return call.ReturnInteger(Breakdown(call).tm_mon + 1);
}

bool BuiltinTimeYear(const BuiltinCall& call) {
  return call.ReturnInteger(int64_t{Breakdown(call).tm_year} + 1900);
}

bool BuiltinTimeHour(const BuiltinCall& call) {
  return call.ReturnInteger(Breakdown(call).tm_hour);
}

bool BuiltinTimeMin(const BuiltinCall& call) { return call.ReturnInteger(Breakdown(call).tm_min); }

bool BuiltinTimeSec(const BuiltinCall& call) { return call.ReturnInteger(Breakdown(call).tm_sec); }

bool BuiltinTimeDayOfWeek(const BuiltinCall& call) {
  return call.ReturnInteger(Breakdown(call).tm_wday + 1);
}

bool BuiltinTimeDayOfMonth(const BuiltinCall& call) {
  return call.ReturnInteger(Breakdown(call).tm_mday);
}

bool BuiltinTimeDayOfYear(const BuiltinCall& call) {
  return call.ReturnInteger(Breakdown(call).tm_yday + 1);
}

bool BuiltinTimezone(const BuiltinCall& call) {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  tzset();
  localtime_r(&now, &local);
  const long seconds_west = timezone - (local.tm_isdst > 0 ? kSecondsPerHour : 0);
  return call.ReturnInteger(-(seconds_west / kSecondsPerHour));
}

// The inverse of the breakdown. Fields out of their ranges carry over into the larger ones; with
// fields of 32 bits no step can overflow 64.
bool BuiltinMktime(const BuiltinCall& call) {
  const int64_t month = int64_t{call.Integer(0)} * 12 + call.Integer(1) - 1;
  const int64_t days = DaysToMonth(month) + call.Integer(2) - 1;
  const int64_t hours = int64_t{call.Integer(3)} - call.Integer(6);
  return call.ReturnInteger(days * kSecondsPerDay + hours * kSecondsPerHour +
                            int64_t{call.Integer(4)} * 60 + call.Integer(5));
}

}  // namespace vexa
