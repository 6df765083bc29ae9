// Texts of values; see sql_text.h.

#include "sql/drivers/sql_text.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <ctime>

#include "core/calendar.h"
#include "core/number.h"
#include "core/text.h"

namespace vexa {

namespace {

constexpr int64_t kSecondsOfMinute = 60;
constexpr int64_t kSecondsOfHour = 3600;
constexpr int64_t kSecondsOfDay = 86400;

// Takes numbers and separators off the front of a text.
class FrontReader {
 public:
  explicit FrontReader(std::string_view text) : rest_(text) {}
  [[nodiscard]] bool Digits(size_t count, int64_t& number) {
    if (rest_.size() < count) return false;
    const std::string_view digits = rest_.substr(0, count);
    if (!std::all_of(digits.begin(), digits.end(), IsDigit)) return false;
    number = ReadInteger64(digits);
    rest_.remove_prefix(count);
    return true;
  }
  [[nodiscard]] bool Take(char c) {
    if (!rest_.starts_with(c)) return false;
    rest_.remove_prefix(1);
    return true;
  }
  void SkipDigits() {
    while (!rest_.empty() && IsDigit(rest_[0])) rest_.remove_prefix(1);
  }
  [[nodiscard]] bool at_end() const { return rest_.empty(); }

 private:
  std::string_view rest_;
};

bool ReadDay(FrontReader& text, int64_t& days) {
  int64_t year, month, day;
  if (!text.Digits(4, year) || !text.Take('-') || !text.Digits(2, month) || !text.Take('-') ||
      !text.Digits(2, day) || month < 1 || month > 12 || day < 1 || day > 31) {
    return false;
  }
  days = DaysToMonth(year * 12 + month - 1) + day - 1;
  return true;
}

bool ReadClock(FrontReader& text, int64_t& seconds) {
  int64_t hour, minute, second = 0;
  if (!text.Digits(2, hour) || !text.Take(':') || !text.Digits(2, minute)) return false;
  if (text.Take(':') && !text.Digits(2, second)) return false;
  if (text.Take('.')) text.SkipDigits();
  seconds = hour * kSecondsOfHour + minute * kSecondsOfMinute + second;
  return hour < 25 && minute < 60 && second < 61;
}

// Seconds east of UTC.
bool ReadZone(FrontReader& text, int64_t& seconds) {
  seconds = 0;
  if (text.at_end() || text.Take('Z')) return true;
  const bool west = text.Take('-');
  if (!west && !text.Take('+')) return false;
  int64_t hours, minutes = 0, rest = 0;
  if (!text.Digits(2, hours)) return false;
  (void)text.Take(':');
  if (!text.at_end() && !text.Digits(2, minutes)) return false;
  if (text.Take(':') && !text.Digits(2, rest)) return false;
  seconds = hours * kSecondsOfHour + minutes * kSecondsOfMinute + rest;
  if (west) seconds = -seconds;
  return true;
}

// Where white space and comments at the front of `text` end.
size_t SkipBlank(std::string_view text) {
  size_t at = 0;
  for (;;) {
    while (at < text.size() && (IsWhitespace(text[at]) || text[at] == '\f' || text[at] == '\v')) {
      ++at;
    }
    const std::string_view rest = text.substr(at);
    const bool line = rest.starts_with("--");
    if (!line && !rest.starts_with("/*")) return at;
    const size_t end = line ? rest.find('\n') : rest.find("*/", 2);
    if (end == rest.npos) return text.size();
    at += end + (line ? 1 : 2);
  }
}

}  // namespace

String IsoDate(std::string_view raw) {
  if (raw.size() != 8 || !std::all_of(raw.begin(), raw.end(), IsDigit)) return raw;
  return String::Concat({raw.substr(0, 4), "-", raw.substr(4, 2), "-", raw.substr(6)});
}

bool RawDate(std::string_view iso, String& raw) {
  FrontReader text(iso);
  int64_t days;
  if (iso.size() != 10 || !ReadDay(text, days)) return false;
  raw = String::Concat({iso.substr(0, 4), iso.substr(5, 2), iso.substr(8)});
  return true;
}

String IsoTime(int64_t seconds) {
  const std::tm time = CalendarTime(seconds);
  const int year = time.tm_year + 1900;
  if (time.tm_mday == 0 || year < 0 || year > 9999) return {};
  char text[80];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", year, time.tm_mon + 1,
                time.tm_mday, time.tm_hour, time.tm_min, time.tm_sec);
  return text;
}

bool ReadIsoTime(std::string_view iso, int64_t& seconds) {
  FrontReader text(iso);
  int64_t days, clock = 0, zone = 0;
  if (!ReadDay(text, days)) return false;
  if (text.Take(' ') || text.Take('T')) {
    if (!ReadClock(text, clock) || !ReadZone(text, zone)) return false;
  }
  seconds = days * kSecondsOfDay + clock - zone;
  return text.at_end();
}

String PlainDecimals(double value) {
  if (std::isnan(value)) return "NaN";
  if (std::isinf(value)) return value < 0 ? "-Infinity" : "Infinity";
  char digits[400];
  const auto end = std::to_chars(digits, digits + sizeof digits, value, std::chars_format::fixed);
  return String(digits, static_cast<int>(end.ptr - digits));
}

bool ReadNumber(std::string_view text, SqlValue& value) {
  int64_t integer;
  const char* const end = text.data() + text.size();
  const auto read = std::from_chars(text.data(), end, integer);
  if (read.ec == std::errc() && read.ptr == end && !text.empty()) {
    value = SqlValue::Integer(integer);
    return true;
  }
  double real;
  // The reader knows more than decimals: other bases, white space, names of numbers that are none.
  const bool is_decimal = text.find_first_not_of("+-.0123456789eE") == std::string_view::npos;
  if (text.empty() || !is_decimal || !ReadStrict(text, &real)) return false;
  value = SqlValue::Real(real);
  return true;
}

std::string_view FoldName(const SqlTerm& term) {
  return term.function == SqlTerm::Function::Upper ? "upper" : "lower";
}

String QuotedName(std::string_view name) {
  String quoted = name;
  quoted.gsub("\"", "\"\"");
  return String::Concat({"\"", quoted, "\""});
}

std::string_view FirstWord(std::string_view statement, size_t& end) {
  const size_t begin = SkipBlank(statement);
  end = begin;
  while (end < statement.size() &&
         (IsAlpha(statement[end]) || IsDigit(statement[end]) || statement[end] == '_')) {
    ++end;
  }
  return statement.substr(begin, end - begin);
}

}  // namespace vexa
