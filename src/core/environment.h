// Environment: the process environment as it stood when the request began, as names and values.
// The texts are those of the process itself and are never changed, so views of them stay valid.

#ifndef VEXA_CORE_ENVIRONMENT_H_
#define VEXA_CORE_ENVIRONMENT_H_

#include <string_view>
#include <vector>

namespace vexa {

struct EnvironmentEntry {
  std::string_view name;
  std::string_view value;
};

class Environment {
 public:
  // Takes every entry of `entries`, a null-terminated list of "name=value" texts.
  explicit Environment(char** entries);

  // The entry of exactly that name, or null. Of several, the last one.
  [[nodiscard]] const EnvironmentEntry* Find(std::string_view name) const;
  // Its value; empty when there is none.
  [[nodiscard]] std::string_view Value(std::string_view name) const;
  [[nodiscard]] const std::vector<EnvironmentEntry>& entries() const { return entries_; }

 private:
  std::vector<EnvironmentEntry> entries_;
};

}  // namespace vexa

#endif  // VEXA_CORE_ENVIRONMENT_H_
