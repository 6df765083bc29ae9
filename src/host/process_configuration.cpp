// Host: which data belongs to the script, and as whom it runs.

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "core/encoding.h"
#include "core/error.h"
#include "core/number.h"
#include "core/user_database.h"
#include "engine/module.h"
#include "files/descriptor.h"
#include "host/host.h"

namespace vexa {

int Host::ProcessConfiguration(const String& script, const String& name) {
  OrderPackages(config().packages);
  if (!OpenLog() || !ChooseDataDirectory(name) || !CheckDataDirectory() ||
      config_->ReadSiteVars() != 0) {
    return 0;
  }
  SetLinkRules(script);
  if (mode_ == RunMode::SetUIDRootMode && SwitchToUserMode() == 0) return 0;
  if (config_->ReadUserSiteVars() != 0) return 0;
  if (log_.IsOpen()) {
    log_.SetSubject({owner_.name, owner_.uid, owner_.gid, script, data_directory_});
  }
  process_.ApplyResourceLimits(config());
  process_.InstallSearchPath(config().path);
  return 1;
}

// The owner's entry among the users. Looked for only where it matters, in the user modes and for
// the log: asking for it costs more than the rest of the start of a request.
void Host::LookUpOwner() {
  const LookUp outcome = FindUser(owner_.uid, owner_);
  if (outcome == LookUp::Found) return;
  owner_unknown_ = outcome == LookUp::Failed ? errno : 0;
  owner_.gid = static_cast<gid_t>(-1);
  owner_.name = "#" + PrintInteger(owner_.uid);
  owner_.home = "/";
}

bool Host::OpenLog() {
  if (config().loglevel == 0 || config().logfile.empty()) return true;
  const bool opened = mode_ == RunMode::SetUIDRootMode
                          ? log_.OpenTrusted(config().logfile, config().loglevel)
                          : log_.Open(config().logfile, config().loglevel);
  if (!opened) {
    Error(ConfigurationError(config(), "Unable to open log file"));
    return false;
  }
  LookUpOwner();
  return true;
}

bool Host::ChooseDataDirectory(const String& name) {
  if (mode_ == RunMode::StandardMode) {
    data_directory_ = config().stdmodedatadir;
    return true;
  }
  if (!log_.IsOpen()) LookUpOwner();
  return ChooseUserDataDirectory(name);
}

// Root has no data directory of its own: its scripts must not run for everybody who asks.
bool Host::ChooseUserDataDirectory(const String& name) {
  const String& directory = config().authuserdir;
  if (mode_ == RunMode::UserMode && geteuid() != owner_.uid) {
    Error(FatalError(String::Concat({"'", EntityEncoded(name), "' is not owned by ",
                                     UserNameFromUID(geteuid())}),
                     kRefused));
    return false;
  }
  if (owner_.uid != 0 && !directory.empty()) {
    bool in_home = directory[0] != '/' && !owner_.home.empty();
    data_directory_ = in_home ? String::Concat({owner_.home, "/", directory}) : directory;
  }
  if (!config().authfile.empty() && !ReadAuthorization()) return false;
  if (!data_directory_.empty()) return true;
  // The two modes word this differently, on purpose: monitors tell them apart by it.
  std::string_view problem = mode_ == RunMode::UserMode ? " is not authorized to use quorbel"
                                                        : " is not authorized to use Vexa Script";
  Error(ConfigurationError(config(), owner_.name + problem, kRefused));
  return false;
}

// An owner who could not be looked up might be one who is denied by name.
bool Host::ReadAuthorization() {
  if (owner_unknown_ != 0) {
    errno = owner_unknown_;
    Error(ConfigurationError(
        config(), String::Concat({"Cannot look up '", owner_.name, "': ", lasterror()})));
    return false;
  }
  return config_->ReadAuthFile(owner_.uid, owner_.gid, owner_.name, owner_.home, data_directory_) ==
         0;
}

bool Host::CheckDataDirectory() {
  std::string_view problem = DirectoryProblem(data_directory_, kDataLinks, kDataLinksToOthers);
  if (!problem.empty()) {
    String subject = mode_ == RunMode::StandardMode
                         ? String("The directory configured as stdmodedatadir")
                         : "The configured data directory for " + owner_.name;
    Error(ConfigurationError(config(), subject + problem));
    return false;
  }
  // "/" itself stays: without it the sandbox would have no root.
  if (data_directory_.size() > 1 && data_directory_.view().ends_with('/')) {
    data_directory_.Truncate(data_directory_.size() - 1);
  }
  return true;
}

int Host::SwitchToUserMode() {
  errno = owner_unknown_;
  if (owner_unknown_ == 0 && process_.TakeOnIdentity(owner_)) return 1;
  Error(FatalError(String::Concat({"Unable to act as ", owner_.name, ": ", lasterror()})));
  return 0;
}

// The identity is that of the file whose owner was asked, so no other file may run under it; and
// what its owner does not answer for must not run as the owner. A program that is its user already
// asks only whether the file is that user's: another may have been there when its owner was asked.
bool Host::CheckOpenedScript(const Module& module, const String& name) {
  const bool safe = mode_ == RunMode::SetUIDRootMode;
  struct stat status;
  const bool known = module.Status(status);
  // A script that is kept is the very file whose owner was asked.
  if (!known && !safe) return true;
  if (!known || (safe && !(IdentityOf(status) == script_identity_)) ||
      status.st_uid != owner_.uid) {
    Error(FatalError(String::Concat({"'", EntityEncoded(name), "' is not owned by ", owner_.name}),
                     kRefused));
    return false;
  }
  if (!safe || (status.st_mode & (S_IWGRP | S_IWOTH)) == 0) return true;
  Error(FatalError(String::Concat({"'", EntityEncoded(name), "' may be changed by other users"})));
  return false;
}

}  // namespace vexa
