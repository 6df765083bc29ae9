// CGIVexa: which data belongs to the script, and the limits it runs under.

#include <pwd.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "core/encoding.h"
#include "core/error.h"
#include "core/number.h"
#include "host/cgi_vexa.h"

namespace vexa {

namespace {

// Lowers the hard limit only. The system refuses one below the soft limit; nothing changes then.
void SetHardLimit(decltype(RLIMIT_CPU) resource, int value) {
  rlimit limit;
  if (value == 0 || getrlimit(resource, &limit) != 0) return;
  limit.rlim_max = static_cast<rlim_t>(value);
  (void)setrlimit(resource, &limit);
}

}  // namespace

int CGIVexa::ProcessConfiguration(const String& script, const String& name) {
  OrderPackages(config().packages);
  if (OpenLog() == 0 || ChooseDataDirectory(name) == 0 || CheckDataDirectory() == 0 ||
      config_->ReadSiteVars() != 0) {
    return 0;
  }
  if (mode_ == RunMode::SetUIDRootMode && SwitchToUserMode(owner_.uid) == 0) return 0;
  if (config_->ReadUserSiteVars() != 0) return 0;
  if (log_.IsOpen()) {
    log_.SetSubject({owner_.name, owner_.uid, owner_.gid, script, data_directory_});
  }
  ApplyResourceLimits();
  InstallSearchPath();
  return 1;
}

// The owner's entry among the users. Looked for only where it matters, in the user modes and for
// the log: asking for it costs more than the rest of the start of a request.
void CGIVexa::LookUpOwner() {
  if (const passwd* user = getpwuid(owner_.uid)) {
    owner_ = {user->pw_uid, user->pw_gid, user->pw_name, user->pw_dir};
  } else {
    owner_.gid = static_cast<gid_t>(-1);
    owner_.name = "#" + PrintInteger(owner_.uid);
    owner_.home = "/";
  }
}

int CGIVexa::OpenLog() {
  if (config().loglevel == 0 || config().logfile.empty()) return 1;
  if (!log_.Open(config().logfile, config().loglevel)) {
    Error(ConfigurationError(config(), "Unable to open log file"));
    return 0;
  }
  LookUpOwner();
  return 1;
}

int CGIVexa::ChooseDataDirectory(const String& name) {
  if (mode_ == RunMode::StandardMode) {
    data_directory_ = config().stdmodedatadir;
    return 1;
  }
  if (!log_.IsOpen()) LookUpOwner();
  return ChooseUserDataDirectory(name);
}

// Root has no data directory of its own: its scripts must not run for everybody who asks.
int CGIVexa::ChooseUserDataDirectory(const String& name) {
  const String& directory = config().authuserdir;
  if (mode_ == RunMode::UserMode && geteuid() != owner_.uid) {
    Error(FatalError(String::Concat(
        {"'", EntityEncoded(name), "' is not owned by ", UserNameFromUID(geteuid())})));
    return 0;
  }
  if (owner_.uid != 0 && !directory.empty()) {
    bool in_home = directory[0] != '/' && !owner_.home.empty();
    data_directory_ = in_home ? String::Concat({owner_.home, "/", directory}) : directory;
  }
  if (!config().authfile.empty() && config_->ReadAuthFile() != 0) return 0;
  if (!data_directory_.empty()) return 1;
  // The two modes word this differently, on purpose: monitors tell them apart by it.
  std::string_view problem = mode_ == RunMode::UserMode ? " is not authorized to use quorbel"
                                                        : " is not authorized to use Vexa Script";
  Error(ConfigurationError(config(), owner_.name + problem));
  return 0;
}

int CGIVexa::CheckDataDirectory() {
  std::string_view problem = DirectoryProblem(data_directory_, kDataLinks, kDataLinksToOthers);
  if (!problem.empty()) {
    String subject = mode_ == RunMode::StandardMode
                         ? String("The directory configured as stdmodedatadir")
                         : "The configured data directory for " + owner_.name;
    Error(ConfigurationError(config(), subject + problem));
    return 0;
  }
  // "/" itself stays: without it the sandbox would have no root.
  if (data_directory_.size() > 1 && data_directory_.view().ends_with('/')) {
    data_directory_.Truncate(data_directory_.size() - 1);
  }
  return 1;
}

int CGIVexa::SwitchToUserMode(uid_t uid) {
  if (seteuid(uid) == 0) return 1;
  Error(FatalError(String::Concat({"Unable to act as ", owner_.name, ": ", lasterror()})));
  return 0;
}

// Values are passed as they stand: seconds of processor time, bytes of data and stack.
void CGIVexa::ApplyResourceLimits() const {
  if (config().nice != 0) (void)!nice(config().nice);
  SetHardLimit(RLIMIT_CPU, config().maxcpu);
  SetHardLimit(RLIMIT_DATA, config().maxdata);
  SetHardLimit(RLIMIT_STACK, config().maxstack);
}

// The text belongs to the environment as long as the object lives.
void CGIVexa::InstallSearchPath() {
  String text = "PATH=" + config().path;
  if (path_environment_ != nullptr) setenv("PATH", "", 1);
  path_environment_ = std::make_unique<char[]>(text.size() + 1);
  std::memcpy(path_environment_.get(), text.data(), text.size());
  putenv(path_environment_.get());
}

}  // namespace vexa
