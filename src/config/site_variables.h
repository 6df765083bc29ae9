// The site-variables files: lines of a name, "=" and a value, each of which becomes a variable of
// every script.

#ifndef VEXA_CONFIG_SITE_VARIABLES_H_
#define VEXA_CONFIG_SITE_VARIABLES_H_

#include "core/string.h"

namespace vexa {

class ConfigReceiver;
struct Settings;

enum class SiteVarsRule {
  MayBeMissing,
  MustExist,
  OfRoot,  // it must exist, and only root may have put it there
};

// Defines every variable of the file at `path`. Returns 0, or 1 after the error was shown, which
// names the administrator of `settings`.
[[nodiscard]] int ReadSiteVarsFile(ConfigReceiver& receiver, const Settings& settings,
                                   const String& path, SiteVarsRule rule);

}  // namespace vexa

#endif  // VEXA_CONFIG_SITE_VARIABLES_H_
