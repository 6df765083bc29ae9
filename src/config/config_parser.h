// UNIXConfigParser: the reader of the configuration file.
//
//   vexaroot = /srv/site
//   <CONTENT-TYPE EXTS="txt, text" MIMETYPE="text/plain">
//   <VIRTUALHOST NAME="www.example.org, example.org">
//     vexaroot = /srv/example
//   </VIRTUALHOST>
//
// Of all VIRTUALHOST sections the first with a name that fits the host of the request counts; the
// others are passed over. What it holds is checked where it stands and takes effect when the file
// has been read, so that it replaces what is set outside of sections, before and behind it.

#ifndef VEXA_CONFIG_CONFIG_PARSER_H_
#define VEXA_CONFIG_CONFIG_PARSER_H_

#include <string_view>
#include <utility>
#include <vector>

#include "config/settings_reader.h"
#include "core/string.h"
#include "engine/tag.h"

namespace vexa {

class ConfigReceiver;
class UNIXConfig;

// A line of a section.
struct ConfigSetting {
  String key;
  String value;  // as it was written
};

class UNIXConfigParser : public SettingsReader {
 public:
  // Everything is borrowed; `source` is open and stands at its start.
  UNIXConfigParser(ConfigReceiver& receiver, UNIXConfig& config, Buffer& source);

  // Reads the whole file into the configuration. False after the error was shown.
  [[nodiscard]] bool Read();

 protected:
  // An unknown key is accepted in silence, so that one file can serve several versions.
  [[nodiscard]] Progress ProcessSetting(std::string_view key, std::string_view value) override;
  [[nodiscard]] Section OpenSection(std::string_view names) override;
  [[nodiscard]] Progress ProcessTag(const Tag& tag) override;
  void ShowError(int line, std::string_view text) override;

  // What the sections read so far set.
  [[nodiscard]] std::vector<ConfigSetting> TakeSectionSettings() {
    return std::exchange(section_settings_, {});
  }

 private:
  // Checks a list of names and finds the first that fits the host of the request, if one does.
  // False after an error was shown.
  [[nodiscard]] bool FindName(std::string_view names, std::string_view& fitting);
  [[nodiscard]] bool RefuseName(std::string_view name);

  // Whether the tag has all that it needs. False after an error was shown.
  [[nodiscard]] bool IsWhole(const Tag& tag);
  // What the tags do. REQUIRES: the tag is whole.
  void CarryOut(const Tag& tag);
  void RegisterPackage(const Tag& tag);

  ConfigReceiver& receiver_;
  UNIXConfig& config_;
  bool sections_begun_ = false;
  String host_;          // of the request, once sections have begun
  bool chosen_ = false;  // a section that fits has been found
  // What it holds, in its order.
  std::vector<ConfigSetting> section_settings_;
  std::vector<Tag> section_tags_;
};

}  // namespace vexa

#endif  // VEXA_CONFIG_CONFIG_PARSER_H_
