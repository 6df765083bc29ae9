// The protocol of lock files; see named_lock.h.

#include "files/named_lock.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <string_view>

#include "core/number.h"
#include "files/descriptor.h"

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

// One attempt to take the lock. Its scratch file lives as long as this object.
class NamedLock {
 public:
  NamedLock(Vexa& host, const String& lockfile, String& error)
      : host_(host), lockfile_(lockfile), error_(error) {
    const String pid = PrintInteger(::getpid());
    const String& name = host.config().lockhostname;
    scratch_ = String::Concat({lockfile, ".", name, ".", pid});
    content_ = String::Concat({pid, ":", name});
  }
  ~NamedLock() {
    if (scratch_exists_) ::unlink(scratch_.c_str());
  }
  NamedLock(const NamedLock&) = delete;
  NamedLock& operator=(const NamedLock&) = delete;

  int Take() {
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
    int fd = OpenDescriptor(scratch_.c_str(), kFlags, 0664, status);
    if (fd < 0 && errno == EEXIST) {
      // Only a process of this number makes it, so this was left by one that was killed.
      ::unlink(scratch_.c_str());
      fd = OpenDescriptor(scratch_.c_str(), kFlags, 0664, status);
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
    const int linked = ::link(scratch_.c_str(), lockfile_.c_str());
    const int reason = errno;
    struct stat mine;
    struct stat theirs;
    if (::lstat(scratch_.c_str(), &mine) != 0) return Fail(errno);
    if (::lstat(lockfile_.c_str(), &theirs) != 0) {
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
    const int fd = OpenDescriptor(lockfile_.c_str(), O_RDONLY, 0, status);
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
        text.substr(colon + 1) == host_.config().lockhostname.view()) {
      if (holder == ::getpid()) {
        error_ = "Possible deadlock detected";
        return kDeadlock;
      }
      stale = ::kill(holder, 0) != 0 && errno == ESRCH;
    } else {
      stale = Expired(status);
    }
    if (!stale || !Remove(fd, status)) SleepTenMilliseconds();
    return std::nullopt;
  }

  [[nodiscard]] bool Expired(const struct stat& status) const {
    const int expiration = host_.config().lockexpiration;
    if (expiration <= 0) return false;
    struct timespec now;
    if (::clock_gettime(CLOCK_REALTIME, &now) != 0) return false;
    // Subtracting from the clock cannot overflow, whatever time the file claims.
    const time_t oldest = now.tv_sec - expiration;
    const struct timespec& touched = status.st_mtim;
    return touched.tv_sec < oldest || (touched.tv_sec == oldest && touched.tv_nsec <= now.tv_nsec);
  }

  // Removes the stale lock file that `fd` has open. False when that was not possible, for now or
  // for good.
  bool Remove(int fd, const struct stat& stale) {
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0) return false;
    struct stat named;
    if (::lstat(lockfile_.c_str(), &named) != 0) return errno == ENOENT;
    // Somebody was quicker; what stands there now is a lock that somebody may hold.
    if (!(IdentityOf(named) == IdentityOf(stale))) return true;
    return ::unlink(lockfile_.c_str()) == 0 || errno == ENOENT;
  }

  int Fail(int reason) {
    errno = reason;
    error_ = host_.lasterror();
    return kFailed;
  }

  Vexa& host_;
  const String& lockfile_;
  String& error_;
  String scratch_;
  String content_;
  bool scratch_exists_ = false;
};

}  // namespace

int TakeNamedLock(Vexa& host, const String& lockfile, String& error) {
  NamedLock lock(host, lockfile, error);
  return lock.Take();
}

}  // namespace vexa
