// A time zone: what clocks show there at any moment. A zone with a name is read from the system's
// database of zones; the one without is the server's own, which the C library knows.

#ifndef VEXA_EXPR_TIME_ZONE_H_
#define VEXA_EXPR_TIME_ZONE_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "core/string.h"
#include "expr/zone_rule.h"

namespace vexa {

class TimeZone {
 public:
  // Reads the zone of that name ("Europe/Berlin"; empty: the server's). Anything else than names of
  // the database leaves valid() false, paths above all.
  void Load(std::string_view name);
  [[nodiscard]] const String& text() const { return name_; }
  [[nodiscard]] bool valid() const { return valid_; }

  // What clocks show at a moment in seconds since 1970 UTC. REQUIRES, like the next: valid().
  [[nodiscard]] ZoneTime At(int64_t seconds) const;
  // The moment at which clocks show a local time, counted like seconds of UTC. A time that they
  // skip or show twice is counted by the offset before the change.
  [[nodiscard]] int64_t MomentOf(int64_t local) const;

 private:
  struct Kind {
    ZoneTime time;  // its name is empty: the name is a part of names_
    size_t name;
  };

  [[nodiscard]] bool ReadFile(String& content) const;
  [[nodiscard]] bool Read(std::string_view content);
  [[nodiscard]] ZoneTime TimeOf(size_t kind) const;

  String name_;
  bool valid_ = false;
  bool server_ = false;
  std::vector<int64_t> changes_;  // moments from which on a kind holds, rising
  std::vector<uint8_t> kinds_;    // the kind of each change
  std::vector<Kind> known_;       // what each kind is; the first holds before all changes
  String names_;                  // each ended by a NUL
  std::optional<ZoneRule> rule_;  // what holds from the last change on; none: its kind
};

}  // namespace vexa

#endif  // VEXA_EXPR_TIME_ZONE_H_
