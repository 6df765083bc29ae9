// Reading a zone's rule, and the two changes of a year.

#include "expr/zone_rule.h"

#include <algorithm>
#include <ctime>

#include "core/calendar.h"
#include "core/text.h"

namespace vexa {

namespace {

constexpr int64_t kSecondsPerDay = 24 * 3600;

bool Take(std::string_view& text, char c) {
  if (!text.starts_with(c)) return false;
  text.remove_prefix(1);
  return true;
}

bool TakeNumber(std::string_view& text, int least, int most, int* number) {
  size_t digits = 0;
  *number = 0;
  for (; digits < std::min<size_t>(3, text.size()) && IsDigit(text[digits]); ++digits) {
    *number = *number * 10 + (text[digits] - '0');
  }
  text.remove_prefix(digits);
  return digits > 0 && *number >= least && *number <= most;
}

// Letters, or anything between angle brackets.
bool TakeName(std::string_view& text, String* name) {
  size_t length = 0;
  const bool bracketed = Take(text, '<');
  if (bracketed) {
    length = text.find('>');
    if (length == text.npos) return false;
  } else {
    while (length < text.size() && IsAlpha(text[length])) ++length;
  }
  *name = text.substr(0, length);
  text.remove_prefix(length + (bracketed ? 1 : 0));
  return length > 0;
}

// [+-]hh[:mm[:ss]]
bool TakeTime(std::string_view& text, int32_t* seconds) {
  constexpr int kMostHours = 167;
  const bool negative = Take(text, '-');
  if (!negative) (void)Take(text, '+');
  int hours, minutes = 0, rest = 0;
  if (!TakeNumber(text, 0, kMostHours, &hours)) return false;
  if (Take(text, ':') && !TakeNumber(text, 0, 59, &minutes)) return false;
  if (Take(text, ':') && !TakeNumber(text, 0, 59, &rest)) return false;
  *seconds = (hours * 60 + minutes) * 60 + rest;
  if (negative) *seconds = -*seconds;
  return true;
}

}  // namespace

bool ZoneRule::Change::Read(std::string_view& text) {
  if (!Take(text, ',')) return false;
  bool done;
  if (Take(text, 'M')) {
    form = Form::Month;
    done = TakeNumber(text, 1, 12, &month) && Take(text, '.') && TakeNumber(text, 1, 5, &week) &&
           Take(text, '.') && TakeNumber(text, 0, 6, &day);
  } else if (Take(text, 'J')) {
    form = Form::JulianDay;
    done = TakeNumber(text, 1, 365, &day);
  } else {
    form = Form::DayOfYear;
    done = TakeNumber(text, 0, 365, &day);
  }
  return done && (!Take(text, '/') || TakeTime(text, &time));
}

int64_t ZoneRule::Change::In(int64_t year) const {
  const int64_t first = DaysToMonth(year * 12);
  int64_t found = first + day;
  if (form == Form::JulianDay) {
    const bool leap = DaysToMonth(year * 12 + 2) - first == 60;
    found = first + day - 1 + (leap && day >= 60 ? 1 : 0);
  } else if (form == Form::Month) {
    const int64_t of_month = DaysToMonth(year * 12 + month - 1);
    const int64_t next_month = DaysToMonth(year * 12 + month);
    const int64_t weekday = ((of_month + 4) % 7 + 7) % 7;  // 1970 began on a Thursday
    found = of_month + (day - weekday + 7) % 7 + (week - 1) * 7;
    while (found >= next_month) found -= 7;
  }
  return found * kSecondsPerDay + time;
}

bool ZoneRule::Read(std::string_view text) {
  int32_t west;
  if (!TakeName(text, &standard_.name) || !TakeTime(text, &west)) return false;
  standard_.offset = -west;
  changes_ = !text.empty();
  if (!changes_) return true;
  if (!TakeName(text, &daylight_.name)) return false;
  daylight_.daylight = true;
  daylight_.offset = standard_.offset + 3600;
  if (!text.empty() && text[0] != ',') {
    if (!TakeTime(text, &west)) return false;
    daylight_.offset = -west;
  }
  return start_.Read(text) && end_.Read(text) && text.empty();
}

ZoneTime ZoneRule::At(int64_t seconds) const {
  if (!changes_) return standard_;
  const std::tm fields = CalendarTime(seconds + standard_.offset);
  const int64_t year = int64_t{fields.tm_year} + 1900;
  const int64_t start = start_.In(year) - standard_.offset;
  const int64_t end = end_.In(year) - daylight_.offset;
  const bool daylight =
      start < end ? seconds >= start && seconds < end : seconds >= start || seconds < end;
  return daylight ? daylight_ : standard_;
}

}  // namespace vexa
