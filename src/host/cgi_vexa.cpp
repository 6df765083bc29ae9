// CGIVexa: start, configuration, and the accessors.

#include "host/cgi_vexa.h"

#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <csignal>
#include <cstdlib>

#include "core/error.h"
#include "core/number.h"

namespace vexa {

namespace {

constexpr int kOutputBuffer = 8192;  // until the configuration says otherwise

// Set by the signal handler, and never cleared: the request is to end.
volatile std::sig_atomic_t interrupted = 0;

void NoteSignal(int) { interrupted = 1; }

// Calls that wait return when a signal arrives, so that no reader or writer sleeps through it.
void InstallSignalHandlers() {
  struct sigaction action = {};
  action.sa_handler = NoteSignal;
  sigemptyset(&action.sa_mask);
  for (int signal : {SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGTERM}) {
    sigaction(signal, &action, nullptr);
  }
  action.sa_handler = SIG_IGN;
  // A file that grows past the limit of the process is an error of its writer, not the end.
  for (int signal : {SIGALRM, SIGXFSZ}) sigaction(signal, &action, nullptr);
}

String AfterLastSlash(std::string_view path) { return path.substr(path.rfind('/') + 1); }

bool FileExists(const String& path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0;
}

}  // namespace

CGIVexa::CGIVexa(int argc, char** argv)
    : HostBase(environ),
      argc_(argc),
      argv_(argv),
      path_info_(environment().Value("PATH_INFO")),
      basename_(AfterLastSlash(ProgramPath())),
      filemanager_(*this),
      output_(kOutputBuffer) {
  InstallSignalHandlers();
}

CGIVexa::~CGIVexa() {
  // Scripts and databases hold files open, which must be closed before their manager goes.
  ReleaseScripts();
  LogEnd();
  if (path_environment_ != nullptr) setenv("PATH", "", 1);
}

const Settings& CGIVexa::config() const {
  static const Settings defaults;
  return config_ == nullptr ? defaults : config_->settings();
}

const String& CGIVexa::hostname() const {
  static const String unknown;
  return config_ == nullptr ? unknown : config_->virtualhost();
}

bool CGIVexa::timedout() {
  // A page that nobody can read any more ends like an interrupted one.
  return interrupted != 0 || output_.broken() || HostBase::timedout();
}

// However the script ended: this is called when all that it held has been released.
void CGIVexa::LogEnd() {
  if (!script_started() || !log_.IsOpen()) return;
  output_.Flush();
  log_.ScriptEnded(output_.written_bytes());
}

// --- Phases 1 to 3 ---------------------------------------------------------------------------

// The variables that are left out tell scripts nothing about the request, only about the server.
int CGIVexa::AddEnvironmentVariables() {
  vars().AddSystemVariable("process_id", PrintInteger(getpid()));
  for (const EnvironmentEntry& entry : environment().entries()) {
    bool hidden = entry.name == "TERMCAP" || entry.name == "MAIL" || entry.name == "LOGNAME" ||
                  entry.name == "PATH";
    if (!hidden) vars().AddSystemVariable(entry.name, String(entry.value));
  }
  return 1;
}

int CGIVexa::LoadConfiguration() {
  String path;
  if (GetConfigurationFile(path) == 0) {
    Error(FatalError("Unable to locate configuration file"));
    return 0;
  }
  if (RunningSetUIDRoot()) mode_ = RunMode::SetUIDRootMode;
  bool safe = mode_ == RunMode::SetUIDRootMode;
  config_ = std::make_unique<UNIXConfig>(*this, safe ? ServerSafeMode::On : ServerSafeMode::Off);
  if (config_->ReadConfiguration(path) != 0) return 0;
  bool users = !config().authfile.empty() || !config().authuserdir.empty();
  if (mode_ == RunMode::StandardMode && users) mode_ = RunMode::UserMode;
  output_.Resize(config().outputbuffersize);
  return 1;
}

// The first of three places that has the file. The last one is not looked at: a file missing there
// too is noticed when it is read.
int CGIVexa::GetConfigurationFile(String& path) const {
  path = ProgramPath() + ".conf";
  if (FileExists(path)) return 1;
  char directory[PATH_MAX];
  if (getcwd(directory, sizeof directory) != nullptr) {
    std::string_view here = directory;
    path = String::Concat({here, here.ends_with('/') ? "" : "/", basename_, ".conf"});
    if (FileExists(path)) return 1;
  }
  path = String::Concat({"/etc/", basename_, ".conf"});
  return 1;
}

bool CGIVexa::RunningSetUIDRoot() const {
  struct stat status;
  return stat(ProgramPath().c_str(), &status) == 0 && (status.st_mode & S_ISUID) != 0 &&
         status.st_uid == 0;
}

int CGIVexa::CheckConfiguration() {
  if (config_->ValidateConfiguration() != 0) return 0;
  bool redirected = environment().Find("REDIRECT_STATUS") != nullptr && !path_info_.empty();
  if (config().redirectonly != 0 && !redirected) {
    Error(FatalError("Vexa is configured for redirected use only"));
    return 0;
  }
  // Compared in 16 bits, on purpose: sites have it in their configuration so.
  int caller = static_cast<int>(getuid() & 0xFFFF);
  if (config().serveruserid != -1 && config().serveruserid != caller) {
    Error(
        FatalError("The UID of the process which executed Vexa does not match the serveruserid "
                   "configuration variable"));
    return 0;
  }
  return 1;
}

}  // namespace vexa
