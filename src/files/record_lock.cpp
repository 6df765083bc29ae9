// The account of record locks, and waiting for them; see record_lock.h.

#include "files/record_lock.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/time.h>
#include <unistd.h>

#include <cassert>
#include <cerrno>
#include <cstddef>

#include "files/descriptor.h"

namespace vexa {

namespace {

// While it lives, a signal interrupts waiting system calls five times a second. Without it a wait
// would outlast the request's deadline, and a signal that comes just before the wait would not
// end it.
class WakeUpCalls {
 public:
  WakeUpCalls() {
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigemptyset(&action.sa_mask);
    sigaction(SIGALRM, &action, &former_action_);
    sigset_t alarm;
    sigemptyset(&alarm);
    sigaddset(&alarm, SIGALRM);
    sigprocmask(SIG_UNBLOCK, &alarm, &former_mask_);
    const struct itimerval often = {{0, kIntervalMicroseconds}, {0, kIntervalMicroseconds}};
    setitimer(ITIMER_REAL, &often, &former_timer_);
  }
  ~WakeUpCalls() {
    const int reason = errno;
    setitimer(ITIMER_REAL, &former_timer_, nullptr);
    sigprocmask(SIG_SETMASK, &former_mask_, nullptr);
    sigaction(SIGALRM, &former_action_, nullptr);
    errno = reason;
  }
  WakeUpCalls(const WakeUpCalls&) = delete;
  WakeUpCalls& operator=(const WakeUpCalls&) = delete;

 private:
  static constexpr suseconds_t kIntervalMicroseconds = 200'000;

  struct sigaction former_action_;
  sigset_t former_mask_;
  struct itimerval former_timer_;
};

struct flock Describe(const ByteRange& range, short type) {
  struct flock lock = {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  lock.l_start = range.start;
  lock.l_len = range.end == INT64_MAX ? 0 : range.end - range.start;
  return lock;
}

}  // namespace

void ByteRanges::Add(const ByteRange& range) {
  Remove(range);
  ranges_.push_back(range);
  assert(Disjoint());
}

bool ByteRanges::Disjoint() const {
  for (size_t i = 0; i < ranges_.size(); ++i) {
    if (ranges_[i].start >= ranges_[i].end) return false;
    for (size_t j = 0; j < i; ++j) {
      if (ranges_[i].start < ranges_[j].end && ranges_[j].start < ranges_[i].end) return false;
    }
  }
  return true;
}

void ByteRanges::Remove(const ByteRange& range) {
  for (size_t i = 0; i < ranges_.size();) {
    ByteRange& held = ranges_[i];
    if (range.end <= held.start || held.end <= range.start) {
      ++i;
      continue;
    }
    const ByteRange behind = {range.end, held.end, held.type};
    held.end = range.start;
    if (held.start < held.end) {
      ++i;
    } else {
      held = ranges_.back();
      ranges_.pop_back();
    }
    // What is left behind does not overlap `range`, so meeting it again changes nothing.
    if (behind.start < behind.end) ranges_.push_back(behind);
  }
}

int TakeRecordLock(Vexa& host, int fd, const ByteRange& range, LockWait wait) {
  struct flock lock = Describe(range, range.type == FileLockType::Exclusive ? F_WRLCK : F_RDLCK);
  // Mostly nobody else is there, and nothing has to be prepared for waiting.
  int result = RetryInterrupted([&] { return ::fcntl(fd, F_SETLK, &lock); });
  if (result == 0 || wait == LockWait::None) return result;
  if (errno != EACCES && errno != EAGAIN) return result;
  const WakeUpCalls wake_up_calls;
  do {
    if (host.timedout()) {
      errno = EINTR;
      return -1;
    }
    result = ::fcntl(fd, F_SETLKW, &lock);
  } while (result != 0 && errno == EINTR);
  return result;
}

int DropRecordLock(int fd, const ByteRange& range) {
  struct flock lock = Describe(range, F_UNLCK);
  return RetryInterrupted([&] { return ::fcntl(fd, F_SETLKW, &lock); });
}

}  // namespace vexa
