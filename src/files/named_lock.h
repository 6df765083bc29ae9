// The named lock: mutual exclusion between processes, and between hosts that share a file system.
//
// The lock is held by whoever's scratch file the lock file is a second name of:
//
//   scratch   LOCKFILE.HOST.PID, made anew for each attempt, holds "PID START:HOST"
//   lock      link(scratch, LOCKFILE) succeeds for one process only; then scratch is unlinked
//   release   the holder deletes LOCKFILE
//
// START is when the process was started, so that a lock does not live on when its holder's number
// is given to another process. Locks without it are judged by the number alone.
//
// A lock file whose holder on this host is dead is removed by whoever meets it, and so is one of
// another host (or without sense) that was not touched for `lockexpiration` seconds. Before that,
// the remover locks the stale file itself with flock and looks whether the path still names it, so
// that two who meet the same stale file never remove the lock that the quicker one just took.
// For the same reason a holder refreshes and removes only the file that it took.

#ifndef VEXA_FILES_NAMED_LOCK_H_
#define VEXA_FILES_NAMED_LOCK_H_

#include <memory>

#include "core/file.h"
#include "core/linkless_open.h"
#include "core/string.h"
#include "vexa.h"

namespace vexa {

// Waits for the lock named `lockfile` until it is taken or `host` has timed out. 1 taken, 0 timed
// out, -1 error, -2 this process holds it already; the message is then in `error`.
// REQUIRES: no NUL in `lockfile`.
[[nodiscard]] int TakeNamedLock(Vexa& host, const String& lockfile, LinkRule links, String& error);

// A named lock that is given back when the object ends.
class NamedLock {
 public:
  // `host` is borrowed and must outlive the lock.
  explicit NamedLock(Vexa& host) : host_(host) {}
  ~NamedLock() { GiveBack(); }
  NamedLock(const NamedLock&) = delete;
  NamedLock& operator=(const NamedLock&) = delete;

  // Waits for the lock at the finished path `lockfile`, giving back the one held before. False with
  // the message in `error`.
  [[nodiscard]] bool Take(const String& lockfile, String& error);
  // Sets the time of the lock file to now, which tells other hosts that its holder is alive.
  void Refresh();
  // Removes the lock file, unless another host took the lock over. Does nothing when it is not
  // held.
  void GiveBack();

 private:
  void RemoveFile();

  Vexa& host_;
  String path_;
  std::unique_ptr<File> file_;  // tells whether the path still names it; null when it cannot
  bool held_ = false;
};

}  // namespace vexa

#endif  // VEXA_FILES_NAMED_LOCK_H_
