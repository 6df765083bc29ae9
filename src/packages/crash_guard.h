// What becomes of the page when code of a library crashes, or never comes back.
//
//   guarded code crashes -> the page so far, "... has crashed" -> a line on standard error -> the
//                           process dies of the same signal
//   guarded code runs two seconds past the deadline -> the page so far, "Application timed out" ->
//                           exit status 1
//
// Library code runs while a LibraryRuns is the innermost on Vexa's thread; what the library calls
// back runs under an OwnCodeRuns, whose crashes are nobody's but ours. The signal handlers use no
// heap and nothing but poll and write.

#ifndef VEXA_PACKAGES_CRASH_GUARD_H_
#define VEXA_PACKAGES_CRASH_GUARD_H_

#include "core/string.h"
#include "vexa.h"

namespace vexa {

// What is said of a library; it lives until the process ends or the next request begins.
struct GuardedLibrary {
  String who;   // "Package 'x'"
  String file;  // its path, for the administrator
};

// Installs the handlers and the timer, once for each `host`, which is borrowed until
// RemoveCrashGuard. Called before the first library is loaded: its constructors may crash too.
void InstallCrashGuard(Vexa& host);
// Forgets the host. The handlers stay, and say nothing.
void RemoveCrashGuard();

// Says, while it lives, that code of `library` runs, and which of its functions. Both are borrowed.
class LibraryRuns {
 public:
  LibraryRuns(const GuardedLibrary& library, const char* function);
  ~LibraryRuns();
  LibraryRuns(const LibraryRuns&) = delete;
  LibraryRuns& operator=(const LibraryRuns&) = delete;

 private:
  friend class CrashReport;
  const GuardedLibrary& library_;
  const char* function_;
  const LibraryRuns* outer_;
};

// Says, while it lives, that Vexa's own code runs again.
class OwnCodeRuns {
 public:
  OwnCodeRuns();
  ~OwnCodeRuns();
  OwnCodeRuns(const OwnCodeRuns&) = delete;
  OwnCodeRuns& operator=(const OwnCodeRuns&) = delete;

 private:
  const LibraryRuns* outer_;
};

}  // namespace vexa

#endif  // VEXA_PACKAGES_CRASH_GUARD_H_
