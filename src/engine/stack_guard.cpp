// The stack grows down from roughly where the first question was asked.

#include "engine/stack_guard.h"

#include <sys/resource.h>

#include <algorithm>
#include <cstdint>

namespace vexa {

namespace {

constexpr uintptr_t kAssumedStack = 8u << 20;  // bytes, where the system sets no limit
constexpr uintptr_t kReserve = 512u << 10;     // bytes kept for what one more call may need

uintptr_t StackSize() {
  rlimit limit{};
  if (getrlimit(RLIMIT_STACK, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) {
    return kAssumedStack;
  }
  return limit.rlim_cur;
}

}  // namespace

bool StackIsLow() {
  // Not the address of a local: checking tools may keep locals elsewhere.
  auto now = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
  static const uintptr_t kTop = now;
  static const uintptr_t kSize = StackSize();
  uintptr_t used = now < kTop ? kTop - now : 0;
  return used + std::min(2 * kReserve, kSize / 2) > kSize;
}

}  // namespace vexa
