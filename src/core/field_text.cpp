// Numbers and dates of fields; see field_text.h.

#include "core/field_text.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

#include "core/number.h"
#include "core/text.h"

namespace vexa {

namespace {

constexpr int kFirstTmYear = 1900;
constexpr time_t kHour = 3600;

bool IsDigits(std::string_view text) { return std::all_of(text.begin(), text.end(), IsDigit); }

}  // namespace

std::string_view FieldNumber(std::string_view value, int decimals, String& number) {
  std::string_view digits = value;
  const bool negative = digits.starts_with('-');
  if (negative) digits.remove_prefix(1);
  size_t point = std::string_view::npos;
  for (size_t i = 0; i < digits.size(); ++i) {
    if (IsDigit(digits[i])) continue;
    if (digits[i] != '.') {
      return "Value\tassigned to numeric field contains a non-numeric character";
    }
    if (point != std::string_view::npos) {
      return "Value\tassigned to numeric field contains more\tthan one decimal point";
    }
    point = i;
  }
  const std::string_view whole = digits.substr(0, point);
  number = String::Concat({negative ? "-" : "", whole.empty() ? "0" : whole});
  String fraction;
  if (point != std::string_view::npos) fraction = digits.substr(point + 1);
  if (decimals >= 0) fraction = fraction.before(decimals).padr(decimals, '0');
  if (!fraction.empty()) number = String::Concat({number, ".", fraction});
  return {};
}

bool IsFieldDate(std::string_view raw) {
  constexpr int kMonths = 12;
  return raw.size() == kDateLength && IsDigits(raw) && ReadDatePart(raw, kDateMonth) >= 1 &&
         ReadDatePart(raw, kDateMonth) <= kMonths && ReadDatePart(raw, kDateDay) >= 1;
}

int64_t MidnightOf(std::string_view raw) {
  tm fields = {};
  fields.tm_year = ReadDatePart(raw, kDateYear) - kFirstTmYear;
  fields.tm_mon = ReadDatePart(raw, kDateMonth) - 1;
  fields.tm_mday = ReadDatePart(raw, kDateDay);
  fields.tm_isdst = -1;
  const time_t midnight = std::mktime(&fields);
  // Where clocks go forward at midnight it does not exist, and the hour before is given.
  return fields.tm_hour == 23 ? midnight + kHour : midnight;
}

std::string_view FieldDate(std::string_view value, String& raw) {
  if (!IsDigits(value)) return "Value\tassigned to date field contains\ta non-numeric character";
  raw.clear();
  if (value.empty()) return {};
  const time_t seconds = ReadInteger64(value);
  tm fields;
  if (localtime_r(&seconds, &fields) == nullptr || fields.tm_year > kDateYear.most - kFirstTmYear) {
    return kDateYear.message;
  }
  char date[48];
  std::snprintf(date, sizeof date, "%04d%02d%02d", fields.tm_year + kFirstTmYear, fields.tm_mon + 1,
                fields.tm_mday);
  raw = date;
  return {};
}

int ReadDatePart(std::string_view raw, const DatePart& part) {
  const auto offset = static_cast<size_t>(part.offset);
  return offset >= raw.size() ? 0
                              : ReadInteger(raw.substr(offset, static_cast<size_t>(part.width)));
}

std::string_view SetDatePart(std::string_view value, const DatePart& part, String& raw) {
  const int number = ReadInteger(value);
  if (number < part.least || number > part.most) return part.message;
  char digits[16];
  std::snprintf(digits, sizeof digits, "%0*d", part.width, number);
  const String former = raw.padr(kDateLength, ' ');
  raw = String::Concat({former.before(part.offset), digits, former.from(part.offset + part.width)});
  return {};
}

}  // namespace vexa
