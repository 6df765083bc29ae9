// The check reads the file once, with the reader that requests use, and keeps of each host what is
// compared with other hosts when all have been read.

#include "config/config_check.h"

#include <sys/stat.h>

#include <algorithm>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "config/config_parser.h"
#include "config/config_receiver.h"
#include "config/unix_config.h"
#include "config/virtual_host.h"
#include "core/buffer.h"
#include "core/encoding.h"
#include "core/number.h"
#include "core/text.h"

namespace vexa {

namespace {

constexpr int kBlockSize = 65536;

// For no request: the environment is that of the check, and what the file registers is dropped.
class NoRequest final : public ConfigReceiver {
 public:
  NoRequest(FileManager& files, const Environment& environment)
      : files_(files), environment_(environment) {}

  [[nodiscard]] FileManager& filemanager() override { return files_; }
  [[nodiscard]] int ResolvePath(const String&, String&, PathType, String&) override { return 0; }
  [[nodiscard]] const Environment& environment() const override { return environment_; }
  [[nodiscard]] const String& SystemVariable(std::string_view) override { return none_; }
  void AddSiteVariable(std::string_view, const String&) override {}
  void AddPackage(PackageInfo) override {}
  void AddCommerceHandler(CommerceMethod) override {}
  void Error(const vexa::Error&) override {}

 private:
  FileManager& files_;
  const Environment& environment_;
  String none_;
};

// A section, and what it sets.
struct CheckedHost {
  int line;
  std::vector<String> names;
  std::vector<ConfigSetting> settings;
};

// Whether a setting says with whose data pages run, or who may ask for them.
bool ConcernsUsers(std::string_view key) {
  return EqualsIgnoreCase(key, "authfile") || EqualsIgnoreCase(key, "authuserdir") ||
         EqualsIgnoreCase(key, "serveruserid");
}

class ConfigChecker final : public UNIXConfigParser {
 public:
  ConfigChecker(ConfigReceiver& receiver, UNIXConfig& config, Buffer& source,
                std::vector<Finding>& findings)
      : UNIXConfigParser(receiver, config, source) {
    CheckInto(findings);
  }

  void ReadAll() { (void)Parse(); }

  [[nodiscard]] const std::vector<CheckedHost>& hosts() const { return hosts_; }
  // The last line outside of sections that concerns users; 1 when there is none.
  [[nodiscard]] int users_line() const { return users_line_; }

 protected:
  Progress ProcessSetting(std::string_view key, std::string_view value) override {
    if (!in_section() && ConcernsUsers(key)) users_line_ = item_line();
    return UNIXConfigParser::ProcessSetting(key, value);
  }

  Section OpenSection(std::string_view names) override {
    CheckedHost host{item_line(), {}, {}};
    for (PieceReader pieces(names, ","); pieces.Next();) {
      const std::string_view name = Stripped(pieces.piece());
      if (!IsHostName(name)) continue;
      WarnOfTakenName(name);
      host.names.emplace_back(name);
    }
    hosts_.push_back(std::move(host));
    open_ = true;
    return UNIXConfigParser::OpenSection(names);
  }

  Progress CloseSection() override {
    std::vector<ConfigSetting> settings = TakeSectionSettings();
    if (open_) hosts_.back().settings = std::move(settings);
    open_ = false;
    return Progress::More;
  }

 private:
  void WarnOfTakenName(std::string_view name) {
    for (const CheckedHost& earlier : hosts_) {
      const auto fits = [name](const String& pattern) { return HostFits(name, pattern); };
      if (std::none_of(earlier.names.begin(), earlier.names.end(), fits)) continue;
      Warn(item_line(), String::Concat({"'", name, "' is taken by the section of line ",
                                        PrintInteger(earlier.line)}));
      return;
    }
  }

  std::vector<CheckedHost> hosts_;
  bool open_ = false;  // the last of them is being read
  int users_line_ = 1;
};

// Compares what the settings come to for one host and the next.
class HostComparison {
 public:
  HostComparison(ServerSafeMode mode, std::vector<Finding>& findings)
      : safe_(mode == ServerSafeMode::On), findings_(findings) {}

  // Looks at the settings of a section that begins in `line`, or those outside of sections (0).
  // What is wrong with its users is told of `users_line`.
  void Add(int line, int users_line, const Settings& settings) {
    const bool users = safe_ || !settings.authfile.empty() || !settings.authuserdir.empty();
    if (users && settings.serveruserid == -1) {
      Warn(users_line, "users have pages of their own and 'serveruserid' is not set");
    }
    if (!users) AddDirectory(line, settings.stdmodedatadir);
  }

 private:
  // A directory is known by its place on the disk, one that is not there yet by its name.
  void AddDirectory(int line, const String& directory) {
    struct stat status;
    const String place =
        ::stat(directory.c_str(), &status) == 0
            ? String::Concat({PrintInteger(static_cast<int64_t>(status.st_dev)), ":",
                              PrintInteger(static_cast<int64_t>(status.st_ino))})
            : directory;
    const auto [known, is_new] = directories_.emplace(place.view(), line);
    if (is_new) return;
    Warn(line, String::Concat({"the data directory is also that of ",
                               known->second == 0
                                   ? String("hosts without a section")
                                   : "the section of line " + PrintInteger(known->second)}));
  }

  void Warn(int line, std::string_view text) {
    findings_.push_back({line, Finding::Kind::Warning, String(text)});
  }

  bool safe_;
  std::vector<Finding>& findings_;
  std::map<std::string, int, std::less<>> directories_;  // and the line of the first host there
};

void CompareHosts(const ConfigChecker& checker, ConfigReceiver& receiver, const UNIXConfig& config,
                  ServerSafeMode mode, std::vector<Finding>& findings) {
  HostComparison comparison(mode, findings);
  // Where only sections say what is served, other hosts get nothing.
  if (!config.settings().quorbelroot.empty() || checker.hosts().empty()) {
    comparison.Add(0, checker.users_line(), config.settings());
  }
  for (const CheckedHost& host : checker.hosts()) {
    UNIXConfig of_host(receiver, mode);
    of_host.SetAll(config.settings());
    bool own_users = false;
    for (const ConfigSetting& setting : host.settings) {
      (void)of_host.SetConfigValue(setting.key, setting.value);
      if (ConcernsUsers(setting.key)) own_users = true;
    }
    comparison.Add(host.line, own_users ? host.line : checker.users_line(), of_host.settings());
  }
}

// In the order of the file, each once: what is wrong with a section for who reads it and for who
// passes over it is one fault.
void Sort(std::vector<Finding>& findings) {
  std::stable_sort(findings.begin(), findings.end(),
                   [](const Finding& a, const Finding& b) { return a.line < b.line; });
  const auto same = [](const Finding& a, const Finding& b) {
    return a.line == b.line && a.text == b.text;
  };
  findings.erase(std::unique(findings.begin(), findings.end(), same), findings.end());
}

// Messages are written for pages; a terminal wants plain text.
void Print(const String& path, const Finding& finding, Output& out) {
  String text = finding.text;
  DecodeEntities(text);
  out.Write(
      String::Concat({path, ":", PrintInteger(finding.line),
                      finding.kind == Finding::Kind::Warning ? ": warning: " : ": ", text, "\n"}));
}

}  // namespace

bool CheckConfigurationFile(FileManager& files, const Environment& environment, ServerSafeMode mode,
                            const String& path, Output& out) {
  Buffer source(files, kBlockSize);
  if (!source.Open(path, path)) {
    out.Write(String::Concat({path, ": ", source.error(), "\n"}));
    return false;
  }
  NoRequest receiver(files, environment);
  UNIXConfig config(receiver, mode);
  std::vector<Finding> findings;
  ConfigChecker checker(receiver, config, source, findings);
  checker.ReadAll();
  CompareHosts(checker, receiver, config, mode, findings);
  Sort(findings);
  bool clean = true;
  for (const Finding& finding : findings) {
    Print(path, finding, out);
    if (finding.kind == Finding::Kind::Error) clean = false;
  }
  return clean;
}

}  // namespace vexa
