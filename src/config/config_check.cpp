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

#include "config/auth_file.h"
#include "config/config_parser.h"
#include "config/config_receiver.h"
#include "config/unix_config.h"
#include "config/virtual_host.h"
#include "core/buffer.h"
#include "core/encoding.h"
#include "core/number.h"
#include "core/text.h"
#include "files/trusted_file.h"

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
  [[nodiscard]] std::string_view EnvironmentValue(std::string_view name) override {
    return environment_.Value(name);
  }
  [[nodiscard]] KeptSiteVariables* keptvariables() override { return nullptr; }
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
    if (!settings.authfile.empty()) authfiles_.emplace(settings.authfile.view(), users_line);
    if (!users) AddDirectory(line, settings.stdmodedatadir);
  }

  // The authorization files that they name, each with a line that names it.
  [[nodiscard]] const std::map<std::string, int>& authfiles() const { return authfiles_; }

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
  std::map<std::string, int> authfiles_;
  std::map<std::string, int, std::less<>> directories_;  // and the line of the first host there
};

void CompareHosts(const ConfigChecker& checker, ConfigReceiver& receiver, const UNIXConfig& config,
                  ServerSafeMode mode, HostComparison& comparison) {
  // Where only sections say what is served, other hosts get nothing.
  if (!config.settings().quorbelroot.empty() || checker.hosts().empty()) {
    comparison.Add(0, checker.users_line(), config.settings());
  }
  for (const CheckedHost& host : checker.hosts()) {
    UNIXConfig of_host(receiver, mode, WorkingDirectory());
    of_host.SetAll(config.settings());
    bool own_users = false;
    for (const ConfigSetting& setting : host.settings) {
      (void)of_host.SetConfigValue(setting.key, setting.value);
      if (ConcernsUsers(setting.key)) own_users = true;
    }
    comparison.Add(host.line, own_users ? host.line : checker.users_line(), of_host.settings());
  }
}

// Prints what was found in a file, in its order, each once: what is wrong with a section for who
// reads it and for who passes over it is one fault. Whether no error is among it.
bool Print(std::string_view path, std::vector<Finding>& findings, Output& out) {
  std::stable_sort(findings.begin(), findings.end(),
                   [](const Finding& a, const Finding& b) { return a.line < b.line; });
  const auto same = [](const Finding& a, const Finding& b) {
    return a.line == b.line && a.text == b.text;
  };
  findings.erase(std::unique(findings.begin(), findings.end(), same), findings.end());
  bool clean = true;
  for (const Finding& finding : findings) {
    const bool error = finding.kind == Finding::Kind::Error;
    clean = clean && !error;
    // Messages are written for pages; a terminal wants plain text.
    String text = finding.text;
    DecodeEntities(text);
    out.Write(String::Concat(
        {path, ":", PrintInteger(finding.line), error ? ": " : ": warning: ", text, "\n"}));
  }
  return clean;
}

// Reads an authorization file for nobody, and adds what is wrong in it to `findings`. Returns why
// no request could read it; empty when requests can.
String CheckAuthorizationFile(ConfigReceiver& receiver, const UNIXConfig& config,
                              const String& path, std::vector<Finding>& findings) {
  TrustedFile trusted(config.TrustedOwner());
  Buffer source(receiver.filemanager(), kBlockSize);
  if (path[0] != '/') return "authfile must be an absolute path";
  if (!trusted.Check(path) || !trusted.OpenIn(source, path)) {
    return trusted.unreachable() ? String("Cannot open authorization file")
                                 : "The authorization file is not trusted: " + trusted.reason();
  }
  UNIXConfig unused(receiver, ServerSafeMode::Off, String());
  AuthFileReader(receiver, unused, source, nullptr).CheckAll(findings);
  return {};
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
  UNIXConfig config(receiver, mode, WorkingDirectory());
  config.SetPath(path);
  std::vector<Finding> findings;
  ConfigChecker checker(receiver, config, source, findings);
  checker.ReadAll();
  HostComparison comparison(mode, findings);
  CompareHosts(checker, receiver, config, mode, comparison);
  std::map<std::string, std::vector<Finding>> of_authfiles;
  for (const auto& [authfile, line] : comparison.authfiles()) {
    const String problem =
        CheckAuthorizationFile(receiver, config, String(authfile), of_authfiles[authfile]);
    if (!problem.empty()) findings.push_back({line, Finding::Kind::Error, problem});
  }
  bool clean = Print(path, findings, out);
  for (auto& [authfile, found] : of_authfiles) clean = Print(authfile, found, out) && clean;
  return clean;
}

Settings SettingsOfFile(FileManager& files, const Environment& environment, ServerSafeMode mode,
                        const String& path) {
  NoRequest receiver(files, environment);
  UNIXConfig config(receiver, mode, WorkingDirectory());
  // What was read before an error stands.
  (void)config.ReadConfiguration(path);
  return config.settings();
}

}  // namespace vexa
