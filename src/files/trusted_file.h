// Which files the program loads or obeys: those that nobody but root and one trusted user could
// have put there or changed. One rule for libraries, archives and files that grant rights.
//
// A path is checked without opening anything, since opening a device can do harm. What was checked
// stays where it is unless the trusted move it, so the path without links may be opened then; what
// was opened is compared with what was checked all the same.

#ifndef VEXA_FILES_TRUSTED_FILE_H_
#define VEXA_FILES_TRUSTED_FILE_H_

#include <sys/types.h>

#include <string_view>
#include <vector>

#include "core/string.h"
#include "files/descriptor.h"

namespace vexa {

class Buffer;

class TrustedFile {
 public:
  // Trusts root and `owner`.
  explicit TrustedFile(uid_t owner) : owner_(owner), other_owner_(owner) {}
  TrustedFile(const TrustedFile&) = delete;
  TrustedFile& operator=(const TrustedFile&) = delete;
  ~TrustedFile();

  // Trusts `owner` besides.
  void AlsoTrust(uid_t owner) { other_owner_ = owner; }
  // Refuses files below `directory`, links resolved. `name` stands in the reason: "script".
  void Refuse(std::string_view directory, std::string_view name);

  // Whether `path` is a plain file, links followed, that it and every directory above it belong to
  // the trusted, and that nobody else may write to them. False with reason() and offender() set.
  [[nodiscard]] bool Check(const String& path);
  // The same, and of the path as it is written too: the links on the way and the directories that
  // they lie in. So nobody else chose the path's meaning.
  [[nodiscard]] bool CheckAsWritten(const String& path);
  // As Check, of a directory in which a file is to be made.
  [[nodiscard]] bool CheckDirectory(const String& path);

  // After a success: whether `status` is that of the file that was checked, and says the same of
  // it. False with reason() set.
  [[nodiscard]] bool IsChecked(const struct stat& status);
  // Checks `path` and opens it for reading. True with descriptor() set; this object closes it.
  [[nodiscard]] bool Open(const String& path);
  // Opens the file that was checked in `buffer`, which calls it `name`.
  [[nodiscard]] bool OpenIn(Buffer& buffer, const String& name);

  // After a success: the path without links.
  [[nodiscard]] const String& resolved() const { return resolved_; }
  [[nodiscard]] int descriptor() const { return descriptor_; }
  // After a failure: why, in words that name no path ("it does not exist"), and the file or
  // directory that is to blame.
  [[nodiscard]] const String& reason() const { return reason_; }
  [[nodiscard]] const String& offender() const { return offender_; }
  // Whether it was the system that failed, not the check: there is no such file, or it cannot be
  // looked at or opened.
  [[nodiscard]] bool unreachable() const { return unreachable_; }

 private:
  struct Refused {
    String directory;
    String name;
  };

  [[nodiscard]] bool Fail(std::string_view reason, std::string_view offender);
  // What the system says about a path that it did not take, from errno.
  [[nodiscard]] bool FailBySystem(const String& path);
  [[nodiscard]] bool Resolve(const String& path, mode_t type);
  [[nodiscard]] bool CheckOwners(const String& path);
  // Asks of `path` and everything above it what is wrong with it.
  template <typename Problem>
  [[nodiscard]] bool CheckUpwards(const String& path, Problem problem);
  [[nodiscard]] std::string_view OwnerProblem(const struct stat& status) const;

  uid_t owner_;
  uid_t other_owner_;
  std::vector<Refused> refused_;
  String resolved_;
  String reason_;
  String offender_;
  bool unreachable_ = false;
  FileIdentity checked_;
  int descriptor_ = -1;
};

}  // namespace vexa

#endif  // VEXA_FILES_TRUSTED_FILE_H_
