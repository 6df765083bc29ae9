// A library to be loaded before the C library (LD_PRELOAD): at the Nth call that changes a file it
// kills the process, or lets the call fail. What is written to pipes and terminals does not count.
//
//   VEXA_FAULT=kill:N   the process is gone before call N
//   VEXA_FAULT=tear:N   the same; a write that crosses a border of 4,096 bytes is done up to it
//   VEXA_FAULT=fail:N   call N fails with EIO
//   VEXA_FAULT=failon:N call N and all behind it fail
//   VEXA_FAULT_NOTE     a file that is made when call N is reached

#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

enum { kKill, kTear, kFail, kFailOn, kNone };

static int kind = -1;
static long at;
static long calls;

static void ReadOrder(void) {
  static const char* const names[] = {"kill:", "tear:", "fail:", "failon:"};
  const char* order = getenv("VEXA_FAULT");
  kind = kNone;
  for (int i = 0; order != NULL && i < kNone; ++i) {
    const size_t length = strlen(names[i]);
    if (strncmp(order, names[i], length) != 0) continue;
    kind = i;
    at = strtol(order + length, NULL, 10);
  }
}

// Counts a changing call. Whether it must fail; does not come back when the process is to be
// killed. `size` bytes are to be written at `offset` of `fd`, when there are any.
static int Strikes(int fd, const void* data, size_t size, off_t offset) {
  if (kind < 0) ReadOrder();
  if (kind == kNone) return 0;
  if (++calls < at || (kind != kFailOn && calls > at)) return 0;
  const char* note = getenv("VEXA_FAULT_NOTE");
  if (note != NULL)
    syscall(SYS_close, syscall(SYS_openat, AT_FDCWD, note, O_CREAT | O_WRONLY, 0600));
  if (kind == kKill || kind == kTear) {
    const size_t border = (size_t)(4096 - offset % 4096);
    if (kind == kTear && data != NULL && border < size) {
      syscall(SYS_pwrite64, fd, data, border, offset);
    }
    kill(getpid(), SIGKILL);
  }
  errno = EIO;
  return 1;
}

static int IsFile(int fd) {
  struct stat status;
  return fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
}

ssize_t pwrite64(int fd, const void* data, size_t size, off_t offset) {
  if (Strikes(fd, data, size, offset)) return -1;
  return syscall(SYS_pwrite64, fd, data, size, offset);
}
ssize_t pwrite(int fd, const void* data, size_t size, off_t offset) {
  return pwrite64(fd, data, size, offset);
}
ssize_t write(int fd, const void* data, size_t size) {
  if (IsFile(fd)) {
    struct stat status;
    const int append = (fcntl(fd, F_GETFL) & O_APPEND) != 0 && fstat(fd, &status) == 0;
    if (Strikes(fd, data, size, append ? status.st_size : lseek(fd, 0, SEEK_CUR))) return -1;
  }
  return syscall(SYS_write, fd, data, size);
}
int rename(const char* from, const char* to) {
  return Strikes(-1, NULL, 0, 0) ? -1 : (int)syscall(SYS_rename, from, to);
}
int unlink(const char* path) {
  return Strikes(-1, NULL, 0, 0) ? -1 : (int)syscall(SYS_unlink, path);
}
int link(const char* from, const char* to) {
  return Strikes(-1, NULL, 0, 0) ? -1 : (int)syscall(SYS_link, from, to);
}
int linkat(int from_at, const char* from, int to_at, const char* to, int flags) {
  return Strikes(-1, NULL, 0, 0) ? -1 : (int)syscall(SYS_linkat, from_at, from, to_at, to, flags);
}
int ftruncate64(int fd, off_t length) {
  return Strikes(-1, NULL, 0, 0) ? -1 : (int)syscall(SYS_ftruncate, fd, length);
}
int ftruncate(int fd, off_t length) { return ftruncate64(fd, length); }
int fsync(int fd) { return Strikes(-1, NULL, 0, 0) ? -1 : (int)syscall(SYS_fsync, fd); }
static int Makes(int flags) { return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE; }

int open64(const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const int mode = Makes(flags) ? va_arg(rest, int) : 0;
  va_end(rest);
  if (Makes(flags) && Strikes(-1, NULL, 0, 0)) return -1;
  return (int)syscall(SYS_openat, AT_FDCWD, path, flags, mode);
}
int open(const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const int mode = Makes(flags) ? va_arg(rest, int) : 0;
  va_end(rest);
  return open64(path, flags, mode);
}
