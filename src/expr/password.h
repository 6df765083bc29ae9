// Passwords as sites keep them: hashed by the C library, each with a salt of its own. Whoever tries
// a password must not learn from the time it takes whether there is a hash at all.

#ifndef VEXA_EXPR_PASSWORD_H_
#define VEXA_EXPR_PASSWORD_H_

#include "core/string.h"

namespace vexa {

// Sets `hash` to a hash of the password by the method that the C library prefers, with a random
// salt. False when the password is empty, holds NUL or is longer than 500 bytes, or the system
// cannot hash it.
[[nodiscard]] bool HashPassword(const String& password, String& hash);

// Whether the password is the one that was hashed, by any method that the C library knows. A hash
// that is none takes as long as a good one of the preferred method. What cannot be hashed is never
// right.
[[nodiscard]] bool IsPassword(const String& password, const String& hash);

}  // namespace vexa

#endif  // VEXA_EXPR_PASSWORD_H_
