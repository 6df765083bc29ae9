// The limit on the memory that a page may take: the soft limit of the system on data (RLIMIT_DATA),
// which counts what a process allocates, and neither the code of libraries nor stack and files.
// Beyond it allocations fail, none gets dearer by it.

#ifndef VEXA_CORE_MEMORY_LIMIT_H_
#define VEXA_CORE_MEMORY_LIMIT_H_

#include <cstdint>

namespace vexa {

// There is no memory: lifts the limit, so that what is open can be left in order, and throws
// std::bad_alloc. While there is a limit, operator new comes here too.
[[noreturn]] void ThrowNoMemory();

// From here on the process may take `bytes`, but no more than its hard limit. REQUIRES: above 0.
// What the system refuses is left.
void LimitMemory(int64_t bytes);
// Makes the limit again what it was before LimitMemory.
void LiftMemoryLimit();

// While it lives the limit is lifted: for a library that ends the process when memory is short.
class MemoryLimitLifted {
 public:
  MemoryLimitLifted();
  ~MemoryLimitLifted();
  MemoryLimitLifted(const MemoryLimitLifted&) = delete;
  MemoryLimitLifted& operator=(const MemoryLimitLifted&) = delete;

 private:
  int64_t bytes_;  // the limit; 0: there was none
};

}  // namespace vexa

#endif  // VEXA_CORE_MEMORY_LIMIT_H_
