// KeptConfigurations: what reading the configuration came to, kept by a process that serves many
// requests.
//
// The result of a reading follows from the file and from what the reader asked of the request: the
// host, and variables of the environment that values name. So each result is kept with the
// questions and their answers; the same file and the same answers give the same result.

#ifndef VEXA_CONFIG_KEPT_CONFIGURATION_H_
#define VEXA_CONFIG_KEPT_CONFIGURATION_H_

#include <cstdint>
#include <vector>

#include "config/config_receiver.h"
#include "config/unix_config.h"
#include "core/string.h"
#include "files/file_proof.h"

namespace vexa {

struct KeptConfiguration {
  enum class Asked { Environment, SystemVariable };
  struct Answer {
    Asked asked;
    String name;
    String value;
  };

  String path;
  FileProof proof;
  std::vector<Answer> answers;
  ConfigurationReading reading;
  std::vector<PackageInfo> packages;
  std::vector<CommerceMethod> methods;
  uint64_t used = 0;  // when it was used last

  // Whether the request gives the same answers.
  [[nodiscard]] bool Suits(ConfigReceiver& receiver) const;
};

class KeptConfigurations {
 public:
  // Does what config.ReadConfiguration(path) does for `receiver`, whose configuration it is.
  [[nodiscard]] int Read(UNIXConfig& config, ConfigReceiver& receiver, const String& path);
  // The working directory, which no request changes.
  [[nodiscard]] const String& workdir() const { return workdir_; }

 private:
  // Hosts that a site does not name are asked for by strangers: they must not take all memory.
  static constexpr size_t kMost = 64;

  String workdir_ = WorkingDirectory();
  std::vector<KeptConfiguration> kept_;
  uint64_t uses_ = 0;
};

}  // namespace vexa

#endif  // VEXA_CONFIG_KEPT_CONFIGURATION_H_
