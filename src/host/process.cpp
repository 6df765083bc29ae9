// Process: signals, limits, identity, and the places of the configuration.

#include "host/process.h"

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <sys/auxv.h>
#include <sys/random.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>
#include <string_view>
#include <utility>

#include "core/late_function.h"
#include "core/memory_limit.h"
#include "core/number.h"
#include "files/descriptor.h"
#include "files/trusted_file.h"
#include "host/remembered.h"

namespace vexa {

namespace {

// Set by the signal handler. The first is never cleared.
volatile std::sig_atomic_t to_end = 0;
volatile std::sig_atomic_t reader_gone = 0;

void NoteSignal(int signal) { (signal == SIGPIPE ? reader_gone : to_end) = 1; }

void SetSignal(int signal, void (*handler)(int)) {
  struct sigaction action = {};
  action.sa_handler = handler;
  sigemptyset(&action.sa_mask);
  sigaction(signal, &action, nullptr);
}

// Lowers the hard limit only. The system refuses one below the soft limit; nothing changes then.
void SetHardLimit(decltype(RLIMIT_CPU) resource, int value) {
  rlimit limit;
  if (value == 0 || getrlimit(resource, &limit) != 0) return;
  limit.rlim_max = static_cast<rlim_t>(value);
  (void)setrlimit(resource, &limit);
}

constexpr char kRunningProgram[] = "/proc/self/exe";
constexpr uid_t kNoID = static_cast<uid_t>(-1);  // neither a user nor a group
constexpr gid_t kGroupOfNobody = 65534;          // where the system has no user "nobody"

// Whether somebody who is not root runs the program as root. The system has said so at the start
// to whom it concerns, so that other programs need not ask.
bool HasRaisedRights() { return getauxval(AT_SECURE) != 0 && geteuid() == 0 && getuid() != 0; }

// Takes on user and group for good, and looks whether that is so. "Unchanged" is how the system
// reads kNoID, which must not pass for an identity.
bool TakeOnIDs(uid_t user, gid_t group) {
  errno = EPERM;
  if (user == kNoID || group == kNoID ||
      LateFunction<"setresgid", decltype(::setresgid)>()(group, group, group) != 0 ||
      LateFunction<"setresuid", decltype(::setresuid)>()(user, user, user) != 0) {
    return false;
  }
  uid_t users[3];
  gid_t groups[3];
  if (LateFunction<"getresuid", decltype(::getresuid)>()(&users[0], &users[1], &users[2]) != 0 ||
      LateFunction<"getresgid", decltype(::getresgid)>()(&groups[0], &groups[1], &groups[2]) != 0) {
    return false;
  }
  errno = EPERM;
  return std::ranges::all_of(users, [=](uid_t id) { return id == user; }) &&
         std::ranges::all_of(groups, [=](gid_t id) { return id == group; });
}

bool FileExists(const String& path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0;
}

}  // namespace

bool FillStandardDescriptors() {
  // One call for all; it waits for nothing.
  pollfd standard[] = {{STDIN_FILENO, 0, 0}, {STDOUT_FILENO, 0, 0}, {STDERR_FILENO, 0, 0}};
  if (RetryInterrupted([&] { return poll(standard, std::size(standard), 0); }) < 0) return false;
  for (const pollfd& one : standard) {
    if ((one.revents & POLLNVAL) == 0) continue;
    // The system gives the lowest free number, which is this one.
    if (open("/dev/null", O_RDWR) != one.fd) return false;
  }
  return true;
}

bool GiveUpRaisedRights() {
  return TakeOnIDs(getuid(), LateFunction<"getgid", decltype(::getgid)>()());
}

Process::Process(int argc, char** argv) {
  if (argc > 0) {
    program_ = argv[0];
    basename_ = program_.view().substr(program_.view().rfind('/') + 1);
    arguments_ = {argv + 1, argv + argc};
  }
}

Process::Process(String program, String configuration)
    : program_(std::move(program)),
      basename_(program_.view().substr(program_.view().rfind('/') + 1)),
      configuration_(std::move(configuration)),
      has_file_rights_(false),
      remembered_(std::make_unique<Remembered>()) {}

Process::~Process() { RemoveSearchPath(); }

pid_t Process::id() {
  if (id_ == 0) id_ = getpid();
  return id_;
}

// Who serves many requests draws for several at once.
uint32_t Process::DrawChance() {
  uint32_t chance = 0;
  uint32_t* drawn = &chance;
  size_t size = sizeof chance;
  if (remembered_ != nullptr) {
    Remembered& kept = *remembered_;
    if (kept.chances_left > 0) return std::exchange(kept.chances[--kept.chances_left], 0);
    drawn = kept.chances.data();
    size = sizeof kept.chances;
  }
  if (getrandom(drawn, size, 0) != static_cast<ssize_t>(size)) {
    return static_cast<uint32_t>(DrawNumber());
  }
  if (remembered_ == nullptr) return chance;
  remembered_->chances_left = remembered_->chances.size();
  return DrawChance();
}

bool Process::RunningSetUIDRoot() const {
  struct stat status;
  return HasRaisedRights() || (has_file_rights_ && stat(program_.c_str(), &status) == 0 &&
                               (status.st_mode & S_ISUID) != 0 && status.st_uid == 0);
}

bool Process::StartedUnderFalseName() const {
  if (!HasRaisedRights()) return false;
  struct stat named, running;
  return program_[0] != '/' || stat(program_.c_str(), &named) != 0 ||
         stat(kRunningProgram, &running) != 0 || named.st_dev != running.st_dev ||
         named.st_ino != running.st_ino;
}

bool Process::LeaveCallersSurroundings() const {
  // A page that is stopped at a terminal would keep its locks.
  for (int signal : {SIGTSTP, SIGTTIN, SIGTTOU}) SetSignal(signal, SIG_IGN);
  (void)LateFunction<"umask", decltype(::umask)>()(022);
  // Libraries obey the environment: what they load, whom they trust, where they write. The zone of
  // the clock is all that a server may mean by it.
  char** kept = environ;
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    if (std::string_view(*entry).starts_with("TZ=")) *kept++ = *entry;
  }
  if (kept != nullptr) *kept = nullptr;
  return LateFunction<"chdir", decltype(::chdir)>()("/") == 0;
}

int Process::GetConfigurationFile(String& path) const {
  if (!configuration_.empty()) {
    path = configuration_;
    return 1;
  }
  path = program_ + ".conf";
  if (FileExists(path)) return 1;
  // Below, the name alone counts, which anybody may have given the program by a link.
  if (HasRaisedRights() && !TrustedFile(0).CheckAsWritten(program_)) return 0;
  char directory[PATH_MAX];
  if (getcwd(directory, sizeof directory) != nullptr) {
    std::string_view here = directory;
    path = String::Concat({here, here.ends_with('/') ? "" : "/", basename_, ".conf"});
    if (FileExists(path)) return 1;
  }
  path = String::Concat({"/etc/", basename_, ".conf"});
  return 1;
}

// Calls that wait return when a signal arrives, so that no reader or writer sleeps through it. When
// the processor time that a server allows is used up, the system says so a while before it kills.
void Process::TakeOverSignals() const {
  for (int signal : {SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGTERM, SIGXCPU}) {
    SetSignal(signal, NoteSignal);
  }
  // A file that grows past the limit of the process is an error of its writer, not the end.
  for (int signal : {SIGALRM, SIGXFSZ}) SetSignal(signal, SIG_IGN);
}

void Process::BeginRequest() { reader_gone = 0; }

bool Process::interrupted() const { return to_end != 0 || reader_gone != 0; }

bool Process::is_to_end() const { return to_end != 0; }

void Process::GiveUpRequest() { reader_gone = 1; }

void Process::ApplyResourceLimits(const Settings& settings) {
  SetLastingLimits(settings);
  if (settings.maxmemory > 0) LimitMemory(settings.maxmemory);
}

void Process::SetLastingLimits(const Settings& settings) {
  if (limited_) return;
  limited_ = true;
  if (settings.nice != 0 || settings.maxcpu != 0 || settings.maxdata != 0 ||
      settings.maxstack != 0) {
    Spend();
  }
  if (settings.nice != 0) (void)!nice(settings.nice);
  SetHardLimit(RLIMIT_CPU, settings.maxcpu);
  SetHardLimit(RLIMIT_DATA, settings.maxdata);
  SetHardLimit(RLIMIT_STACK, settings.maxstack);
}

// The groups first, while the process may still change them; then nothing that could bring the
// former identity back is left.
bool Process::TakeOnIdentity(const UserEntry& user) {
  gid_t group = user.gid;
  if (group != kNoID) {
    // The list of groups is short without a word when the system cannot be asked for it; and who is
    // in a group may have fewer rights by it.
    if (FindGroup(group) == LookUp::Failed ||
        LateFunction<"initgroups", decltype(::initgroups)>()(user.name.c_str(), group) != 0) {
      return false;
    }
  } else {
    UserEntry nobody{.uid = kNoID, .gid = kGroupOfNobody, .name = {}, .home = {}};
    if (FindUser(String("nobody"), nobody) == LookUp::Failed) return false;
    group = nobody.gid;
    if (LateFunction<"setgroups", decltype(::setgroups)>()(0, nullptr) != 0) return false;
  }
  return TakeOnIDs(user.uid, group);
}

void Process::InstallSearchPath(const String& path) {
  RemoveSearchPath();
  String text = "PATH=" + path;
  search_path_ = std::make_unique<char[]>(text.size() + 1);
  std::memcpy(search_path_.get(), text.data(), text.size());
  putenv(search_path_.get());
}

void Process::RemoveSearchPath() {
  if (search_path_ == nullptr) return;
  static char empty[] = "PATH=";
  putenv(empty);
  search_path_.reset();
}

}  // namespace vexa
