// Proofs of files.

#include "files/file_proof.h"

#include <algorithm>
#include <cerrno>
#include <ctime>

namespace vexa {

namespace {

constexpr int64_t kStep = 20'000'000;  // nanoseconds

int64_t Nanoseconds(const timespec& time) {
  return static_cast<int64_t>(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

}  // namespace

FileProof::FileProof(const struct stat& status)
    : identity(IdentityOf(status)),
      length(status.st_size),
      modified(Nanoseconds(status.st_mtim)),
      changed(Nanoseconds(status.st_ctim)) {}

bool FileProof::Settled() const {
  timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  return std::max(modified, changed) + kStep < Nanoseconds(now);
}

bool ProveFile(const String& path, FileProof& proof) {
  struct stat status;
  errno = EINVAL;
  if (ContainsNul(path) || ::stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return false;
  }
  proof = FileProof(status);
  return true;
}

}  // namespace vexa
