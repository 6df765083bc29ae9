// Waiting for the reader.

#include "request/response_output.h"

#include <algorithm>

#include "core/outside.h"
#include "core/waiting.h"

namespace vexa {

namespace {

constexpr int64_t kMillisecond = 1'000'000;  // of SteadyTime

}  // namespace

// After an error the rest of the page is given up without a word: there is nobody left to tell, and
// a page with a hole in it must not follow.
int ResponseOutput::Send(std::string_view bytes) {
  const auto length = static_cast<int>(bytes.size());
  while (!bytes.empty() && !broken_) {
    int taken = SendSome(bytes, 0);
    if (taken == 0) taken = SendWhenRead(bytes);
    if (taken > 0) {
      written_bytes_ += taken;
      bytes.remove_prefix(static_cast<size_t>(taken));
    } else {
      broken_ = true;
    }
  }
  return broken_ ? -1 : length;
}

// As SendSome, and -1 when the page is to end.
int ResponseOutput::SendWhenRead(std::string_view bytes) {
  if (host_ == nullptr) return -1;
  const bool late = host_->timedout();
  if (late && last_moment_ == 0) last_moment_ = SteadyTime() + kLongestWait * kMillisecond;
  // A reader who is there has a whole wait to show it.
  bool in_a_hurry = hurried();
  for (;;) {
    int64_t wait = kLongestWait;
    if (late) wait = std::min(wait, (last_moment_ - SteadyTime()) / kMillisecond);
    if (wait <= 0) return -1;
    const int taken = SendSome(bytes, static_cast<int>(wait));
    if (taken != 0) return taken;
    if ((!late && host_->timedout()) || in_a_hurry) return -1;
    in_a_hurry = hurried();
  }
}

}  // namespace vexa
