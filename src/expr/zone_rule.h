// The rule that a zone keeps to for all years to come, as files of zones and TZ write it:
// "CET-1CEST,M3.5.0,M10.5.0/3". Offsets are written west of Greenwich there and kept east of it.

#ifndef VEXA_EXPR_ZONE_RULE_H_
#define VEXA_EXPR_ZONE_RULE_H_

#include <cstdint>
#include <string_view>

#include "core/string.h"

namespace vexa {

// What clocks of a zone show at some moment.
struct ZoneTime {
  int32_t offset = 0;     // seconds east of UTC
  bool daylight = false;  // whether this is daylight saving time
  String name;            // "CEST"
};

class ZoneRule {
 public:
  // False when `text` is no rule.
  [[nodiscard]] bool Read(std::string_view text);
  [[nodiscard]] ZoneTime At(int64_t seconds) const;

 private:
  // A day of each year and the seconds from its midnight.
  struct Change {
    enum class Form { Month, JulianDay, DayOfYear };
    Form form = Form::Month;
    int month = 0;  // 1 to 12
    int week = 0;   // 1 to 5, which is the last
    int day = 0;    // of the week from Sunday, 0; 1 to 365 without 29 February; 0 to 365
    int32_t time = 2 * 3600;
    [[nodiscard]] bool Read(std::string_view& text);
    // Seconds from 1970, as the clocks show them.
    [[nodiscard]] int64_t In(int64_t year) const;
  };

  ZoneTime standard_;
  ZoneTime daylight_;
  bool changes_ = false;  // whether there is daylight saving time
  Change start_;
  Change end_;
};

}  // namespace vexa

#endif  // VEXA_EXPR_ZONE_RULE_H_
