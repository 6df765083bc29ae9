// The computed system variables, and the breakdown of the current time that most of them show.

#ifndef VEXA_CORE_DYNAMIC_VARIABLES_H_
#define VEXA_CORE_DYNAMIC_VARIABLES_H_

#include <array>
#include <string_view>

#include "core/string.h"
#include "core/variables.h"

class Vexa;

// The fourteen parts of a time, in the order of their variables. Months, days of the week (Sunday
// is 1) and days of the year count from 1.
enum class TimePart : int {
  Seconds1970,  // time_t
  Microsecond,
  Second,
  Minute,
  Hour,
  DayOfMonth,
  Month,
  MonthName,  // "Jan"
  Year,
  DayOfWeek,
  DayName,  // "Sun"
  DayOfYear,
  IsDst,
  Zone,
};
inline constexpr int kTimeParts = 14;

// The names of the parts as system variables: "time_t", "tm_usec", ... "stm_zone".
extern const std::array<std::string_view, kTimeParts> kTimePartNames;

// The current local time as texts, indexed by TimePart. The zone is always the daylight-saving
// name, whether or not it is in force, on purpose.
struct TimeValues {
  std::array<String, kTimeParts> parts;
};
void vx_gettimevalues(TimeValues& values);

// A variable whose value is computed on every read. It refuses every assignment.
class DynamicVariable : public Variable {
 public:
  DynamicVariable(Vexa& host, std::string_view name) : Variable(String(name), {}), host_(host) {}
  [[nodiscard]] bool SetValue(const String& value) override;

 protected:
  [[nodiscard]] Vexa& host() const { return host_; }

 private:
  Vexa& host_;
};

class TimeRemainingVariable final : public DynamicVariable {
 public:
  explicit TimeRemainingVariable(Vexa& host) : DynamicVariable(host, "dyn_time_remaining") {}
  [[nodiscard]] const String& value() override;
};

class LanguageVariable final : public DynamicVariable {
 public:
  explicit LanguageVariable(Vexa& host) : DynamicVariable(host, "vexa_language") {}
  [[nodiscard]] const String& value() override;
};

class DefaultLanguageVariable final : public DynamicVariable {
 public:
  explicit DefaultLanguageVariable(Vexa& host) : DynamicVariable(host, "vexa_defaultlanguage") {}
  [[nodiscard]] const String& value() override;
};

// `dyn_` followed by the part's name.
class DynamicTimeVariable final : public DynamicVariable {
 public:
  DynamicTimeVariable(Vexa& host, TimePart part);
  [[nodiscard]] const String& value() override;

 private:
  TimePart part_;
};

#endif  // VEXA_CORE_DYNAMIC_VARIABLES_H_
