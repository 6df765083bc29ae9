// The computed system variables. Most show a part of the current time.

#ifndef VEXA_HOST_DYNAMIC_VARIABLES_H_
#define VEXA_HOST_DYNAMIC_VARIABLES_H_

#include <array>
#include <string_view>

#include "core/string.h"
#include "core/time_parts.h"
#include "core/variables.h"

namespace vexa {

class Vexa;

// The names of the parts as system variables: "time_t", "tm_usec", ... "stm_zone".
extern const std::array<std::string_view, kTimeParts> kTimePartNames;

// A variable whose value is computed on every read. It refuses every assignment.
class DynamicVariable : public Variable {
 public:
  DynamicVariable(Vexa& host, std::string_view name)
      : Variable(String(name), kComputed), host_(host) {}
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

// A part of the time at which the request began. It is taken apart when it is first read, since few
// pages look at it and the zone would have to be read for it; assigned to, it is a plain variable.
class StartTimeVariable final : public Variable {
 public:
  StartTimeVariable(const timeval& start, TimePart part);
  [[nodiscard]] const String& value() override;
  [[nodiscard]] bool SetValue(const String& value) override;

 private:
  timeval start_;
  TimePart part_;
  bool known_ = false;
};

}  // namespace vexa

#endif  // VEXA_HOST_DYNAMIC_VARIABLES_H_
