// Config: the settings of the site, set by name. The table of the names is constant data; several
// names may stand for one setting.

#ifndef VEXA_CONFIG_CONFIG_H_
#define VEXA_CONFIG_CONFIG_H_

#include <cstddef>
#include <string_view>

#include "core/settings.h"
#include "core/string.h"

namespace vexa {

class Config {
 public:
  Config() = default;
  virtual ~Config() = default;
  Config(const Config&) = delete;
  Config& operator=(const Config&) = delete;

  [[nodiscard]] const Settings& settings() const { return settings_; }
  // Takes over all settings of another configuration.
  void SetAll(const Settings& settings) { settings_ = settings; }

  // Sets one setting; `key` in any letter case. Returns 0 when that was done or the key is
  // unknown, 1 when the value does not suit the key's type; the setting is then unchanged.
  [[nodiscard]] virtual int SetConfigValue(std::string_view key, const String& value);

  // What SetConfigValue would return, with nothing set.
  [[nodiscard]] virtual int CheckConfigValue(std::string_view key, const String& value) const;

  // The settings one after the other, from 0: the key, empty behind the last, and the value as the
  // file would have it.
  [[nodiscard]] static std::string_view KeyOfSetting(size_t number);
  [[nodiscard]] String ValueOfSetting(size_t number) const;

  // Whether scripts with that extension (without its point) may run.
  [[nodiscard]] bool IsValidExtension(std::string_view extension) const;

 protected:
  Settings settings_;
};

}  // namespace vexa

#endif  // VEXA_CONFIG_CONFIG_H_
