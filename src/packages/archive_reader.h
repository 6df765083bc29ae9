// ArchiveReader: the members of a tar archive, one after another. Names and kinds are as the
// archive gives them; whether they are allowed is for the caller to say.
//
// The library that knows the formats is loaded when the first archive is read.

#ifndef VEXA_PACKAGES_ARCHIVE_READER_H_
#define VEXA_PACKAGES_ARCHIVE_READER_H_

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <string_view>

#include "core/string.h"

struct archive;
struct archive_entry;

namespace vexa {

class ArchiveReader {
 public:
  enum class Step { Member, End, Failed };
  enum class Kind { File, Directory, Other };

  // Reads from the beginning of `descriptor`, which is borrowed and whose own offset is not moved.
  explicit ArchiveReader(int descriptor) : descriptor_(descriptor) {}
  ~ArchiveReader();
  ArchiveReader(const ArchiveReader&) = delete;
  ArchiveReader& operator=(const ArchiveReader&) = delete;

  // Goes to the next member. After Failed reason() is set.
  [[nodiscard]] Step Next();
  // The member. Its name is valid until the next step.
  [[nodiscard]] std::string_view name() const;
  [[nodiscard]] Kind kind() const;
  // Bytes; negative when the archive says so.
  [[nodiscard]] int64_t size() const;
  // Reads on in the member: the number of bytes, 0 at its end, negative after a failure.
  [[nodiscard]] ssize_t Read(char* buffer, size_t count);

  // Why the archive cannot be read, in words that name no path.
  [[nodiscard]] const String& reason() const { return reason_; }

 private:
  static ssize_t ReadBlock(archive*, void* reader, const void** block);
  [[nodiscard]] bool Open();
  [[nodiscard]] bool EndsAsItShould() const;
  Step Fail(std::string_view reason);

  int descriptor_;
  int64_t offset_ = 0;  // of what the library reads next
  int error_ = 0;       // errno of a read that failed
  archive* archive_ = nullptr;
  archive_entry* entry_ = nullptr;
  bool member_seen_ = false;
  std::unique_ptr<char[]> block_;
  String reason_;
};

}  // namespace vexa

#endif  // VEXA_PACKAGES_ARCHIVE_READER_H_
