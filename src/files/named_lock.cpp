// The protocol of lock files; see named_lock.h, which tells what stands in them.
//
//   Take       make the scratch file; then, until the time is up:
//   TryOnce      link it to the lock file's name. Taken, or
//   LookAtHolder look who holds it: alive, then wait; dead or expired, then Remove and try again
//
// Remove is the dangerous step: between the look and the removal another process may have taken
// the lock anew. So the stale file is locked with flock and compared with what the name leads to.
// Refreshing and giving back go through the open file for the same reason.

#include "files/named_lock.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <optional>
#include <string_view>

#include "core/number.h"
#include "core/outside.h"
#include "core/text.h"
#include "files/descriptor.h"
#include "files/held_name.h"

namespace vexa {

namespace {

constexpr int kTaken = 1;
constexpr int kTimedOut = 0;
constexpr int kFailed = -1;
constexpr int kDeadlock = -2;

void SleepTenMilliseconds() {
  const struct timespec pause = {0, 10'000'000};
  // A signal may cut the pause short; the loop then looks at the time limit the sooner.
  ::nanosleep(&pause, nullptr);
}

// When process `pid` was started, in the system's own count since it booted; empty when the system
// does not tell. Together with the number it names one process for good.
String StartOfProcess(pid_t pid) {
  const String path = String::Concat({"/proc/", PrintInteger(pid), "/stat"});
  struct stat status;
  const int fd = OpenDescriptor(path.c_str(), O_RDONLY, 0, status);
  if (fd < 0) return {};
  char content[1024];
  const ssize_t length = ReadFully(fd, content, sizeof(content));
  CloseQuietly(fd);
  if (length < 0) return {};
  // The second field, the program's name in parentheses, may hold anything.
  std::string_view rest(content, static_cast<size_t>(length));
  rest.remove_prefix(std::min(rest.rfind(')') + 1, rest.size()));
  constexpr int kFieldsBefore = 20;  // from the third field to the 22nd
  for (int field = 0; field < kFieldsBefore && !rest.empty(); ++field) {
    rest.remove_prefix(std::min(rest.find(' ') + 1, rest.size()));
  }
  return rest.substr(0, rest.find(' '));
}

// The name of this host in lock files: the machine's own, asked for here because few pages lock,
// unless the configuration gives one.
String LockHostName(const Settings& settings) {
  if (!settings.lockhostname.empty()) return settings.lockhostname;
  char name[255];
  if (::gethostname(name, sizeof name) != 0) return {};
  name[sizeof name - 1] = '\0';  // A name that was cut may lack its end.
  return String(name);
}

// One attempt to take the lock. Its scratch file lives as long as this object.
class LockAttempt {
 public:
  LockAttempt(Vexa& host, const HeldName& lockfile, String& error)
      : host_(host), hostname_(LockHostName(host.config())), lockfile_(lockfile), error_(error) {
    const String pid = PrintInteger(::getpid());
    const String& name = hostname_;
    const String start = StartOfProcess(::getpid());
    scratch_ = lockfile.With(String::Concat({".", name, ".", pid}));
    content_ = String::Concat({pid, start.empty() ? "" : " ", start, ":", name});
  }
  ~LockAttempt() {
    if (scratch_exists_) (void)lockfile_.Remove(scratch_.c_str());
  }
  LockAttempt(const LockAttempt&) = delete;
  LockAttempt& operator=(const LockAttempt&) = delete;

  int Take() {
    if (!lockfile_.good()) return Fail(errno);
    if (ContainsNul(scratch_)) {
      error_ = kNulMessage;
      return kFailed;
    }
    if (!MakeScratch()) return Fail(errno);
    while (!host_.timedout()) {
      const std::optional<int> result = TryOnce();
      if (result) return *result;
    }
    error_ = "Timed out waiting for lock";
    return kTimedOut;
  }

 private:
  bool MakeScratch() {
    constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_TRUNC;
    struct stat status;
    int fd = lockfile_.Open(scratch_.c_str(), kFlags, 0664, status);
    if (fd < 0 && errno == EEXIST) {
      // Only a process of this number makes it, so this was left by one that was killed.
      (void)lockfile_.Remove(scratch_.c_str());
      fd = lockfile_.Open(scratch_.c_str(), kFlags, 0664, status);
    }
    if (fd < 0) return false;
    scratch_exists_ = true;
    const bool written = WriteFully(fd, content_.data(), content_.size()) >= 0;
    if (!written) {
      CloseQuietly(fd);
      return false;
    }
    return ::close(fd) == 0 || errno == EINTR;
  }

  // A result, or nothing when it is worth trying again.
  std::optional<int> TryOnce() {
    const int linked = ::linkat(lockfile_.directory(), scratch_.c_str(), lockfile_.directory(),
                                lockfile_.text(), 0);
    const int reason = errno;
    struct stat mine;
    struct stat theirs;
    if (lockfile_.LookAt(scratch_.c_str(), mine) != 0) return Fail(errno);
    if (lockfile_.LookAt(theirs) != 0) {
      // Released in between, unless linking can never succeed here.
      if (linked != 0 && reason != EEXIST && reason != EINTR) return Fail(reason);
      return std::nullopt;
    }
    // Over a network, link may report a failure although the server did it.
    if (IdentityOf(mine) == IdentityOf(theirs)) return kTaken;
    return LookAtHolder();
  }

  // The lock file is another's: waits a little, removes it when it is stale, or gives a result.
  std::optional<int> LookAtHolder() {
    struct stat status;
    const int fd = lockfile_.Open(lockfile_.text(), O_RDONLY, 0, status);
    if (fd < 0) {
      SleepTenMilliseconds();
      return std::nullopt;
    }
    const std::optional<int> result = LookInto(fd, status);
    CloseQuietly(fd);
    return result;
  }

  std::optional<int> LookInto(int fd, const struct stat& status) {
    char content[511];
    const ssize_t length = ReadFully(fd, content, sizeof(content));
    if (length < 0) {
      SleepTenMilliseconds();
      return std::nullopt;
    }
    const std::string_view text(content, static_cast<size_t>(length));
    const size_t colon = text.find(':');
    const pid_t holder = ReadInteger(text.substr(0, colon));
    bool stale = false;
    // Zero and below name groups of processes, which no lock holder is.
    if (holder > 0 && colon != std::string_view::npos &&
        text.substr(colon + 1) == hostname_.view()) {
      if (holder == ::getpid() && !IsGone(holder, Stripped(text.substr(0, colon)))) {
        error_ = "Possible deadlock detected";
        return kDeadlock;
      }
      stale = IsGone(holder, Stripped(text.substr(0, colon)));
    } else {
      stale = Expired(status);
    }
    if (!stale || !Remove(fd, status)) SleepTenMilliseconds();
    return std::nullopt;
  }

  // `written` is the process number, and behind a space the time of its start when that was known.
  [[nodiscard]] static bool IsGone(pid_t holder, std::string_view written) {
    if (::kill(holder, 0) != 0 && errno == ESRCH) return true;
    const size_t space = written.find(' ');
    if (space == std::string_view::npos) return false;
    // The number may have been given to another process since.
    const String start = StartOfProcess(holder);
    return !start.empty() && start != written.substr(space + 1);
  }

  [[nodiscard]] bool Expired(const struct stat& status) const {
    const int expiration = host_.config().lockexpiration;
    if (expiration <= 0) return false;
    struct timespec now;
    if (::clock_gettime(CLOCK_REALTIME, &now) != 0) return false;
    // Subtracting from the clock cannot overflow, whatever time the file claims.
    const time_t oldest = now.tv_sec - expiration;
    const struct timespec& touched = status.st_mtim;
    // A time so far ahead was written by a clock that went wrong, and would never be reached.
    if (touched.tv_sec > now.tv_sec && touched.tv_sec - now.tv_sec > expiration) return true;
    return touched.tv_sec < oldest || (touched.tv_sec == oldest && touched.tv_nsec <= now.tv_nsec);
  }

  // Removes the stale lock file that `fd` has open. False when that was not possible, for now or
  // for good.
  bool Remove(int fd, const struct stat& stale) {
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0) return false;
    struct stat named;
    if (lockfile_.LookAt(named) != 0) return errno == ENOENT;
    // Somebody was quicker; what stands there now is a lock that somebody may hold.
    if (!(IdentityOf(named) == IdentityOf(stale))) return true;
    return lockfile_.Remove() == 0 || errno == ENOENT;
  }

  int Fail(int reason) {
    errno = reason;
    error_ = host_.lasterror();
    return kFailed;
  }

  Vexa& host_;
  String hostname_;
  const HeldName& lockfile_;
  String& error_;
  String scratch_;
  String content_;
  bool scratch_exists_ = false;
};

}  // namespace

int TakeNamedLock(Vexa& host, const String& lockfile, LinkRule links, String& error) {
  const HeldName name(lockfile, links);
  LockAttempt attempt(host, name, error);
  return attempt.Take();
}

// --- Holding it ------------------------------------------------------------------------------

bool NamedLock::Take(const String& lockfile, String& error) {
  ++named_locks;
  GiveBack();
  FileManager& files = host_.filemanager();
  // First: what fails behind the taking must leave a lock that can be given back.
  path_ = lockfile;
  if (files.Lock(lockfile) != 1) {
    error = files.error();
    return false;
  }
  held_ = true;
  file_ = files.Open(lockfile, OpenRead);
  return true;
}

// Through the open file: by its name, a lock that another host took over in this very moment would
// be refreshed for it. Without an open file there is only the name.
void NamedLock::Refresh() {
  if (!held_) return;
  if (file_ != nullptr) {
    (void)file_->Touch();
  } else {
    (void)host_.filemanager().TouchFile(path_);
  }
}

// When memory is wanting, it may be there the second time: a limit that was met is lifted. A file
// that stays all the same is that of a process that is gone.
void NamedLock::GiveBack() {
  if (!held_) return;
  held_ = false;
  for (int attempts = 2; attempts > 0; --attempts) {
    try {
      RemoveFile();
      break;
    } catch (const std::bad_alloc&) {
      continue;
    }
  }
  file_.reset();
}

void NamedLock::RemoveFile() {
  // Without a time limit nothing else would end the attempts to remove the file: ten seconds.
  constexpr int kMostAttempts = 1000;
  FileManager& files = host_.filemanager();
  const auto is_ours = [this] { return file_ == nullptr || file_->StillNamed() != 0; };
  const bool unlimited = host_.timeremaining() < 0;
  for (int attempt = 1; is_ours() && files.Delete(path_) < 0 && files.Exists(path_); ++attempt) {
    if (host_.timedout() || (unlimited && attempt == kMostAttempts)) break;
    SleepTenMilliseconds();
  }
}

}  // namespace vexa
