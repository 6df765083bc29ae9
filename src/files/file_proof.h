// FileProof: what tells that a file is still the one that was read, and that nobody wrote to it. A
// process that serves many requests keeps what it made of a file as long as one stat shows the same
// proof.

#ifndef VEXA_FILES_FILE_PROOF_H_
#define VEXA_FILES_FILE_PROOF_H_

#include <sys/stat.h>

#include <cstdint>

#include "core/string.h"
#include "files/descriptor.h"

namespace vexa {

struct FileProof {
  FileIdentity identity;
  int64_t length = 0;    // bytes
  int64_t modified = 0;  // nanoseconds since 1970
  int64_t changed = 0;   // the same, of what the directory knows of it
  friend bool operator==(const FileProof&, const FileProof&) = default;

  explicit FileProof(const struct stat& status);
  FileProof() = default;
  // Whether its times are old enough to prove anything: the clock that they are taken from goes in
  // steps, so that a file may be written to twice at the same time.
  [[nodiscard]] bool Settled() const;
};

// The proof of the regular file that `path` names now. False, with the reason in errno, when
// there is none.
[[nodiscard]] bool ProveFile(const String& path, FileProof& proof);

}  // namespace vexa

#endif  // VEXA_FILES_FILE_PROOF_H_
