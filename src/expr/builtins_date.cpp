// Times written and read by a format, in English and in any zone. The formats are those of the C
// library's strftime and strptime.

#include <climits>
#include <clocale>
#include <ctime>

#include "core/calendar.h"
#include "core/encoding.h"
#include "core/late_function.h"
#include "core/number.h"
#include "core/text.h"
#include "expr/builtins.h"
#include "expr/text_work.h"

namespace vexa {

namespace {

constexpr int64_t kSecondsPerDay = 24 * 3600;
// The largest magnitude of a time with a year that the C library can write, which counts to
// 2147483647.
constexpr int64_t kMostSeconds = 67'767'976'000'000'000;

// English, whatever a library that a package loaded has chosen.
locale_t English() {
  static const locale_t english =
      LateFunction<"newlocale", decltype(::newlocale)>()(LC_ALL_MASK, "C", locale_t{});
  return english;
}

const TimeZone* Zone(const BuiltinCall& call) {
  const TimeZone* zone = call.host().textwork().FindZone(call.Value(2));
  if (zone == nullptr) {
    call.context().ReportExpressionError(
        String::Concat({"'", ShownInMessage(call.Text(2)), "' is not a time zone"}));
  }
  return zone;
}

// The bytes of the conversion that `text` begins with: "%", flags, a width, a modifier and a
// letter.
size_t ConversionLength(std::string_view text) {
  size_t length = 1;
  const auto skip = [&](auto&& belongs) {
    while (length < text.size() && belongs(text[length])) ++length;
  };
  skip([](char c) { return c == '_' || c == '-' || c == '0' || c == '^' || c == '#'; });
  skip(IsDigit);
  if (length < text.size() && (text[length] == 'E' || text[length] == 'O')) ++length;
  return std::min(length + 1, text.size());
}

// Appends what one conversion gives; the conversion itself when it gives more than any should.
void AppendConversion(std::string_view conversion, const std::tm& fields, int64_t seconds,
                      String& result) {
  constexpr size_t kMostBytes = 1024;
  if (conversion.back() == 's') return result.Append(PrintInteger(seconds));
  // The byte before it tells an empty result from one that is too long.
  const String format = String::Concat({"=", conversion});
  char room[kMostBytes];
  const size_t length = LateFunction<"strftime_l", decltype(::strftime_l)>()(
      room, sizeof room, format.c_str(), &fields, English());
  result.Append(length == 0 ? conversion : std::string_view(room + 1, length - 1));
}

bool Date(const BuiltinCall& call) {
  const TimeZone* zone = Zone(call);
  if (zone == nullptr) return false;
  const int64_t seconds = call.Integer64(1);
  if (seconds > kMostSeconds || seconds < -kMostSeconds) return true;
  const ZoneTime time = zone->At(seconds);
  std::tm fields = CalendarTime(seconds + time.offset);
  fields.tm_gmtoff = time.offset;
  fields.tm_zone = time.name.c_str();
  fields.tm_isdst = time.daylight ? 1 : 0;
  std::string_view rest = call.LookAtFirst();
  String result;
  while (!rest.empty()) {
    const size_t plain = std::min(rest.find('%'), rest.size());
    result.Append(rest.substr(0, plain));
    rest.remove_prefix(plain);
    if (rest.empty()) break;
    const std::string_view conversion = rest.substr(0, ConversionLength(rest));
    if (IsAlpha(conversion.back()) || conversion == "%%") {
      AppendConversion(conversion, fields, seconds, result);
    } else {
      result.Append(conversion);
    }
    rest.remove_prefix(conversion.size());
  }
  return call.Return(std::move(result));
}

// Whether the format has one of these conversions.
bool Converts(std::string_view format, std::string_view letters) {
  while (true) {
    format.remove_prefix(std::min(format.find('%'), format.size()));
    if (format.empty()) return false;
    const size_t length = ConversionLength(format);
    if (length > 1 && letters.find(format[length - 1]) != letters.npos) return true;
    format.remove_prefix(length);
  }
}

// Days since 1970 of the day that was read; false when there is no such day.
bool ReadDay(const std::tm& fields, std::string_view format, int64_t* days) {
  const int64_t january = (int64_t{fields.tm_year} + 1900) * 12;
  // The C library leaves the day of the year alone where the year is left out.
  if (Converts(format, "j") && !Converts(format, "bBcdDehmFx")) {
    *days = DaysToMonth(january) + fields.tm_yday;
    return fields.tm_yday >= 0 && *days < DaysToMonth(january + 12);
  }
  const int64_t month = january + fields.tm_mon;
  *days = DaysToMonth(month) + fields.tm_mday - 1;
  return fields.tm_mon >= 0 && fields.tm_mon < 12 && fields.tm_mday >= 1 &&
         *days < DaysToMonth(month + 1);
}

bool Seconds(const BuiltinCall& call) {
  constexpr long kNoOffset = LONG_MIN;
  const TimeZone* zone = Zone(call);
  if (zone == nullptr) return false;
  const String& format = call.LookAtFirst();
  const String& text = call.Text(1);
  std::tm fields{};
  fields.tm_year = 70;
  fields.tm_mday = 1;
  fields.tm_gmtoff = kNoOffset;
  const char* end = LateFunction<"strptime_l", decltype(::strptime_l)>()(
      text.c_str(), format.c_str(), &fields, English());
  int64_t days;
  if (end != text.c_str() + text.size() || format.contains('\0') ||
      !ReadDay(fields, format, &days)) {
    return true;
  }
  const int64_t local = days * kSecondsPerDay + int64_t{fields.tm_hour} * 3600 +
                        int64_t{fields.tm_min} * 60 + fields.tm_sec;
  // The text may tell its offset (%z, %s).
  return call.ReturnInteger(fields.tm_gmtoff != kNoOffset ? local - fields.tm_gmtoff
                                                          : zone->MomentOf(local));
}

}  // namespace

std::span<const LateBuiltin> DateBuiltins() {
  static const LateBuiltin rows[] = {
      {"vexa_date", "format, seconds, zone", Date, kLooksAtFirst},
      {"vexa_seconds", "format, text, zone", Seconds, kLooksAtFirst},
  };
  return rows;
}

}  // namespace vexa
