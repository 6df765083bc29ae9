// Which files the program loads or obeys: those that nobody but root and one trusted user could
// have put there or changed. One rule for libraries, archives and files that grant rights.

#ifndef VEXA_FILES_TRUSTED_FILE_H_
#define VEXA_FILES_TRUSTED_FILE_H_

#include <sys/types.h>

#include <string_view>
#include <vector>

#include "core/string.h"
#include "files/descriptor.h"

namespace vexa {

class TrustedFile {
 public:
  // Trusts root and `owner`.
  explicit TrustedFile(uid_t owner) : owner_(owner) {}
  TrustedFile(const TrustedFile&) = delete;
  TrustedFile& operator=(const TrustedFile&) = delete;
  ~TrustedFile();

  // Refuses files below `directory`, links resolved. `name` stands in the reason: "script".
  void Refuse(std::string_view directory, std::string_view name);

  // Whether `path` is a plain file, links followed, that it and every directory above it belong to
  // the trusted, and that nobody else may write to them. False with reason() and offender() set.
  [[nodiscard]] bool Check(const String& path);
  // The same for a file that is opened for reading first, so that what was checked is what is read.
  // True with descriptor() set; this object closes it.
  [[nodiscard]] bool Open(const String& path);

  // After a success: the path without links.
  [[nodiscard]] const String& resolved() const { return resolved_; }
  [[nodiscard]] int descriptor() const { return descriptor_; }
  // After a failure: why, in words that name no path ("it does not exist"), and the file or
  // directory that is to blame.
  [[nodiscard]] const String& reason() const { return reason_; }
  [[nodiscard]] const String& offender() const { return offender_; }

 private:
  struct Refused {
    String directory;
    String name;
  };

  [[nodiscard]] bool Fail(std::string_view reason, std::string_view offender);
  // What the system says about a path that it did not take, from errno.
  [[nodiscard]] bool FailBySystem(const String& path);
  [[nodiscard]] bool CheckPath(const String& path, const struct stat& status);
  [[nodiscard]] bool CheckOwners();
  // Asks of the file and every directory above it what is wrong with it.
  template <typename Problem>
  [[nodiscard]] bool CheckUpwards(Problem problem);

  uid_t owner_;
  std::vector<Refused> refused_;
  String resolved_;
  String reason_;
  String offender_;
  int descriptor_ = -1;
};

}  // namespace vexa

#endif  // VEXA_FILES_TRUSTED_FILE_H_
