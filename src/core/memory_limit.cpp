// The limit on memory. Only the soft limit is changed, which can be taken back.

#include "core/memory_limit.h"

#include <sys/resource.h>

#include <algorithm>
#include <new>

namespace vexa {

namespace {

// The address checks of test builds take memory of their own, which ends the process when it runs
// out.
#ifdef __SANITIZE_ADDRESS__
constexpr bool kHasLimits = false;
#else
constexpr bool kHasLimits = true;
#endif

int64_t limited_bytes = 0;  // 0: no limit is set
rlim_t former_bytes;        // the soft limit before

}  // namespace

void ThrowNoMemory() {
  LiftMemoryLimit();
  throw std::bad_alloc();
}

void LimitMemory(int64_t bytes) {
  LiftMemoryLimit();
  rlimit limit;
  if (!kHasLimits || getrlimit(RLIMIT_DATA, &limit) != 0) return;
  former_bytes = limit.rlim_cur;
  limit.rlim_cur = std::min(static_cast<rlim_t>(bytes), limit.rlim_max);
  if (setrlimit(RLIMIT_DATA, &limit) != 0) return;
  limited_bytes = bytes;
  std::set_new_handler(ThrowNoMemory);
}

// A hard limit that was lowered meanwhile counts.
void LiftMemoryLimit() {
  if (limited_bytes == 0) return;
  limited_bytes = 0;
  rlimit limit;
  if (getrlimit(RLIMIT_DATA, &limit) != 0) return;
  limit.rlim_cur = std::min(former_bytes, limit.rlim_max);
  (void)setrlimit(RLIMIT_DATA, &limit);
}

MemoryLimitLifted::MemoryLimitLifted() : bytes_(limited_bytes) { LiftMemoryLimit(); }

MemoryLimitLifted::~MemoryLimitLifted() {
  if (bytes_ > 0) LimitMemory(bytes_);
}

}  // namespace vexa
