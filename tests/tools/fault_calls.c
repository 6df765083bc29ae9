// A library to be loaded before the C library (LD_PRELOAD): at the Nth call that changes a file it
// kills the process, or lets the call fail. What is written to pipes and terminals does not count.
//
//   VEXA_FAULT=kill:N   the process is gone before call N
//   VEXA_FAULT=tear:N   the same; a write that crosses a border of 4,096 bytes is done up to it
//   VEXA_FAULT=fail:N   call N fails with EIO
//   VEXA_FAULT=failon:N call N and all behind it fail
//   VEXA_FAULT=short:N  there is no memory for allocation N; the calls that change files work
//   VEXA_FAULT=shorton:N nor for any behind it
//   VEXA_FAULT_NOTE     a file that is made when call N is reached

#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <signal.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

enum { kKill, kTear, kFail, kFailOn, kShort, kShortOn, kNone };

#define Call(...) Real()(__VA_ARGS__)
typedef long (*SystemCall)(long number, ...);

// What this library stands before.
static SystemCall Real(void) {
  static SystemCall found;
  if (found == NULL) found = (SystemCall)dlsym(RTLD_NEXT, "syscall");
  return found;
}

static int kind = -1;
static long at;
static long calls;

static void ReadOrder(void) {
  static const char* const names[] = {"kill:", "tear:", "fail:", "failon:", "short:", "shorton:"};
  const char* order = getenv("VEXA_FAULT");
  kind = kNone;
  for (int i = 0; order != NULL && i < kNone; ++i) {
    const size_t length = strlen(names[i]);
    if (strncmp(order, names[i], length) != 0) continue;
    kind = i;
    at = strtol(order + length, NULL, 10);
  }
}

static void Note(void) {
  const char* note = getenv("VEXA_FAULT_NOTE");
  if (note != NULL) Call(SYS_close, Call(SYS_openat, AT_FDCWD, note, O_CREAT | O_WRONLY, 0600));
}

// Counts a changing call. Whether it must fail; does not come back when the process is to be
// killed. `size` bytes are to be written at `offset` of `fd`, when there are any.
static int Strikes(int fd, const void* data, size_t size, off_t offset) {
  if (kind < 0) ReadOrder();
  if (kind >= kShort) return 0;
  if (++calls < at || (kind != kFailOn && calls > at)) return 0;
  Note();
  if (kind == kKill || kind == kTear) {
    const size_t border = (size_t)(4096 - offset % 4096);
    if (kind == kTear && data != NULL && border < size) {
      Call(SYS_pwrite64, fd, data, border, offset);
    }
    kill(getpid(), SIGKILL);
  }
  errno = EIO;
  return 1;
}

// Counts an allocation. Whether there is no memory for it.
static int IsShort(void) {
  if (kind < 0) ReadOrder();
  if (kind != kShort && kind != kShortOn) return 0;
  if (++calls < at || (kind == kShort && calls > at)) return 0;
  if (calls == at) Note();
  errno = ENOMEM;
  return 1;
}

void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* storage, size_t size);
void* __libc_memalign(size_t alignment, size_t size);

void* malloc(size_t size) { return IsShort() ? NULL : __libc_malloc(size); }
void* calloc(size_t count, size_t size) { return IsShort() ? NULL : __libc_calloc(count, size); }
void* realloc(void* storage, size_t size) {
  return IsShort() ? NULL : __libc_realloc(storage, size);
}
void* aligned_alloc(size_t alignment, size_t size) {
  return IsShort() ? NULL : __libc_memalign(alignment, size);
}
int posix_memalign(void** storage, size_t alignment, size_t size) {
  if (IsShort()) return ENOMEM;
  *storage = __libc_memalign(alignment, size);
  return *storage == NULL ? ENOMEM : 0;
}
void* mmap64(void* place, size_t length, int protection, int flags, int fd, off_t offset) {
  if (IsShort()) return (void*)-1;
  return (void*)Call(SYS_mmap, place, length, protection, flags, fd, offset);
}
void* mmap(void* place, size_t length, int protection, int flags, int fd, off_t offset) {
  return mmap64(place, length, protection, flags, fd, offset);
}

static int IsFile(int fd) {
  struct stat status;
  return fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
}

ssize_t pwrite64(int fd, const void* data, size_t size, off_t offset) {
  if (Strikes(fd, data, size, offset)) return -1;
  return Call(SYS_pwrite64, fd, data, size, offset);
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
  return Call(SYS_write, fd, data, size);
}
int renameat(int from_at, const char* from, int to_at, const char* to) {
  return Strikes(-1, NULL, 0, 0) ? -1 : (int)Call(SYS_renameat2, from_at, from, to_at, to, 0);
}
int unlinkat(int at, const char* path, int flags) {
  return Strikes(-1, NULL, 0, 0) ? -1 : (int)Call(SYS_unlinkat, at, path, flags);
}
int linkat(int from_at, const char* from, int to_at, const char* to, int flags) {
  return Strikes(-1, NULL, 0, 0) ? -1 : (int)Call(SYS_linkat, from_at, from, to_at, to, flags);
}
int ftruncate64(int fd, off_t length) {
  return Strikes(-1, NULL, 0, 0) ? -1 : (int)Call(SYS_ftruncate, fd, length);
}
int ftruncate(int fd, off_t length) { return ftruncate64(fd, length); }
int fsync(int fd) { return Strikes(-1, NULL, 0, 0) ? -1 : (int)Call(SYS_fsync, fd); }
static int Makes(int flags) { return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE; }

static int OpenAt(int at, const char* path, int flags, int mode) {
  if (Makes(flags) && Strikes(-1, NULL, 0, 0)) return -1;
  return (int)Call(SYS_openat, at, path, flags, mode);
}
#define MODE_BEHIND(last)                               \
  va_list rest;                                         \
  va_start(rest, last);                                 \
  const int mode = Makes(last) ? va_arg(rest, int) : 0; \
  va_end(rest)
int openat(int at, const char* path, int flags, ...) {
  MODE_BEHIND(flags);
  return OpenAt(at, path, flags, mode);
}
int open64(const char* path, int flags, ...) {
  MODE_BEHIND(flags);
  return OpenAt(AT_FDCWD, path, flags, mode);
}
int open(const char* path, int flags, ...) {
  MODE_BEHIND(flags);
  return OpenAt(AT_FDCWD, path, flags, mode);
}
long syscall(long number, ...) {
  long values[6];
  va_list rest;
  va_start(rest, number);
  for (int i = 0; i < 6; ++i) values[i] = va_arg(rest, long);
  va_end(rest);
  const struct open_how* how = (const struct open_how*)values[2];
  if (number == SYS_openat2 && Makes((int)how->flags) && Strikes(-1, NULL, 0, 0)) return -1;
  return Call(number, values[0], values[1], values[2], values[3], values[4], values[5]);
}
