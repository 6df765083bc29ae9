// What pages may assign to fields of tables, and what they read of dates, whatever the type of the
// database.
//
// Dates have eight characters here, YYYYMMDD. Some messages carry tabs in the place of spaces on
// purpose: pages compare them with the text they know.

#ifndef VEXA_CORE_FIELD_TEXT_H_
#define VEXA_CORE_FIELD_TEXT_H_

#include <cstdint>
#include <string_view>

#include "core/string.h"

namespace vexa {

// Operations that return a message return an empty one when all is well, else why the value is
// refused; the result is then unspecified.

// Brings a number into the form of a field with `decimals` digits behind the point, of which
// surplus ones are cut; -1: as many as it has. A sign, digits and at most one point are a number.
[[nodiscard]] std::string_view FieldNumber(std::string_view value, int decimals, String& number);
inline constexpr std::string_view kNumberTooLong = "Value\tassigned to numeric field is too long";

inline constexpr int kDateLength = 8;
// Whether a stored date is one: other programs leave zeros, or bytes that are no digits.
[[nodiscard]] bool IsFieldDate(std::string_view raw);
// Local midnight of that day in seconds since 1970. A day that the calendar does not have counts on
// into the neighbouring month. REQUIRES: IsFieldDate.
[[nodiscard]] int64_t MidnightOf(std::string_view raw);
// The local day of a count of seconds since 1970; an empty one of an empty value.
[[nodiscard]] std::string_view FieldDate(std::string_view value, String& raw);

// A part of a date: where it stands, and which numbers it takes.
struct DatePart {
  int offset;
  int width;
  int least;
  int most;
  char suffix[8];    // of its variable
  char message[16];  // when it is another number
};
inline constexpr DatePart kDateYear = {0, 4, 0, 9999, "_year", "Invalid year"};
inline constexpr DatePart kDateMonth = {4, 2, 1, 12, "_month", "Invalid month"};
// No check relates the day to the month, on purpose.
inline constexpr DatePart kDateDay = {6, 2, 0, 31, "_day", "Invalid day"};

[[nodiscard]] int ReadDatePart(std::string_view raw, const DatePart& part);
// Puts the number that `value` begins with in the place of the part.
[[nodiscard]] std::string_view SetDatePart(std::string_view value, const DatePart& part,
                                           String& raw);

}  // namespace vexa

#endif  // VEXA_CORE_FIELD_TEXT_H_
