// The site-variables files: lines of a name, "=" and a value, each of which becomes a variable of
// every script.

#ifndef VEXA_CONFIG_SITE_VARIABLES_H_
#define VEXA_CONFIG_SITE_VARIABLES_H_

#include <utility>
#include <vector>

#include "core/string.h"
#include "files/file_proof.h"

namespace vexa {

class ConfigReceiver;
struct Settings;

// What those files define, kept by a process that serves many requests.
class KeptSiteVariables {
 public:
  // Defines the variables of the file when they are kept; false when they are not.
  [[nodiscard]] bool Add(ConfigReceiver& receiver, const String& path,
                         const FileProof& proof) const;
  // REQUIRES: `file` is what the path was proven to be, before and after the reading.
  using Lines = std::vector<std::pair<String, String>>;
  void Keep(const String& path, const FileProof& proof, Lines lines);

 private:
  static constexpr size_t kMost = 64;

  struct File {
    String path;
    FileProof proof;
    Lines lines;
  };
  std::vector<File> files_;
};

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
