// What this process asks of the world outside, counted: files, paths, waits, other machines.
//
// Who keeps what was read before anybody asked for it compares the count. While it stands still,
// the process has learnt nothing that could tell it that others went on meanwhile. Since others go
// on all the same, what is kept is trusted for a short time only.

#ifndef VEXA_CORE_OUTSIDE_H_
#define VEXA_CORE_OUTSIDE_H_

#include <cstdint>

namespace vexa {

// Looks outside so far. Whoever adds a way to learn something from outside calls LookOutside.
inline uint64_t looks_outside = 0;
inline void LookOutside() { ++looks_outside; }
// Those of them that found a file proven to be what it was when it was looked at before: what is
// read from it then tells nothing new.
inline uint64_t looks_in_vain = 0;

// Locks by name that were taken so far: who takes one wants to see what others did before.
inline uint64_t named_locks = 0;

// Takes the looks while it lives for such when `in_vain` is true at its end.
class VainLooks {
 public:
  explicit VainLooks(bool& in_vain) : in_vain_(in_vain), before_(looks_outside) {
    in_vain_ = false;
  }
  ~VainLooks() {
    if (in_vain_) looks_in_vain += looks_outside - before_;
  }
  VainLooks(const VainLooks&) = delete;
  VainLooks& operator=(const VainLooks&) = delete;

 private:
  bool& in_vain_;
  uint64_t before_;
};

// How long what was read is taken for what is there, in nanoseconds.
inline constexpr int64_t kLongestTrust = 10'000'000;
// Nanoseconds of a clock that only goes forward. Asking it is no system call.
[[nodiscard]] int64_t SteadyTime();

}  // namespace vexa

#endif  // VEXA_CORE_OUTSIDE_H_
