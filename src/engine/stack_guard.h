// A look at how much of the machine's stack is left. A site may allow deeper calls than the stack
// can carry; the depth error is then raised earlier instead of a crash.

#ifndef VEXA_ENGINE_STACK_GUARD_H_
#define VEXA_ENGINE_STACK_GUARD_H_

namespace vexa {

// Whether less than a safe reserve of the stack is left.
[[nodiscard]] bool StackIsLow();

}  // namespace vexa

#endif  // VEXA_ENGINE_STACK_GUARD_H_
