// The named lock: mutual exclusion between processes, and between hosts that share a file system.
//
// The lock is held by whoever's scratch file the lock file is a second name of:
//
//   scratch   LOCKFILE.HOST.PID, made anew for each attempt, holds "PID:HOST"
//   lock      link(scratch, LOCKFILE) succeeds for one process only; then scratch is unlinked
//   release   the holder deletes LOCKFILE
//
// A lock file whose holder on this host is dead is removed by whoever meets it, and so is one of
// another host (or without sense) that was not touched for `lockexpiration` seconds. Before that,
// the remover locks the stale file itself with flock and looks whether the path still names it, so
// that two who meet the same stale file never remove the lock that the quicker one just took.

#ifndef VEXA_FILES_NAMED_LOCK_H_
#define VEXA_FILES_NAMED_LOCK_H_

#include "core/string.h"
#include "vexa.h"

namespace vexa {

// Waits for the lock named `lockfile` until it is taken or `host` has timed out. 1 taken, 0 timed
// out, -1 error, -2 this process holds it already; the message is then in `error`.
// REQUIRES: no NUL in `lockfile`.
[[nodiscard]] int TakeNamedLock(Vexa& host, const String& lockfile, String& error);

}  // namespace vexa

#endif  // VEXA_FILES_NAMED_LOCK_H_
