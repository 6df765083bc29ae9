// How long this process waits for others before it looks up.
//
// A signal that comes right before a call that waits does not end it, and the time limit of a page
// ends no call at all. So nobody waits longer at once than this; then who waits asks whether the
// page is to end.

#ifndef VEXA_CORE_WAITING_H_
#define VEXA_CORE_WAITING_H_

namespace vexa {

inline constexpr int kLongestWait = 500;  // milliseconds

}  // namespace vexa

#endif  // VEXA_CORE_WAITING_H_
