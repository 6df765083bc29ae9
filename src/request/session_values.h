// SessionValues: the values of one session, and the bytes in which a file keeps them.
//
//   offset  bytes
//        0      8  "VxSess1" and a line feed
//        8      4  CRC-32 of all that follows, most significant byte first
//       12      4  length of the first name       \  the same for each value, in the order of the
//       16      4  length of the first value      |  names as bytes, up to the end of the file;
//       20      .  the name, then the value       /  lengths are little-endian
//
// The one value "anna" of the name "user":
//   56 78 53 65 73 73 31 0A  D9 8F 25 02  04 00 00 00  04 00 00 00  75 73 65 72 61 6E 6E 61
//
// An empty file is a session without values: one that is about to get its first.

#ifndef VEXA_REQUEST_SESSION_VALUES_H_
#define VEXA_REQUEST_SESSION_VALUES_H_

#include <cstddef>
#include <string_view>
#include <vector>

#include "core/string.h"

namespace vexa {

class SessionValues {
 public:
  // The most bytes that names and values may have together, and those of a file of them at most:
  // no value is empty.
  static constexpr size_t kMostBytes = 65536;
  static constexpr size_t kLongestFile = 12 + kMostBytes * 9;

  // The value of exactly that name; empty when there is none. Valid until a value is set.
  [[nodiscard]] std::string_view Find(std::string_view name) const;
  // An empty value removes.
  void Set(std::string_view name, std::string_view value);
  [[nodiscard]] bool empty() const { return entries_.empty(); }
  // The bytes of names and values together.
  [[nodiscard]] size_t bytes() const;

  [[nodiscard]] String Encoded() const;
  // Takes on what the bytes hold; nothing when they are damaged.
  void Decode(std::string_view file);

 private:
  struct Entry {
    String name;
    String value;
  };
  using Entries = std::vector<Entry>;

  // Where an entry of that name stands or belongs.
  [[nodiscard]] static Entries::const_iterator Place(const Entries& entries, std::string_view name);
  // False when the bytes are damaged.
  [[nodiscard]] static bool ReadEntries(std::string_view bytes, Entries& entries);

  Entries entries_;  // sorted by name, none twice, no value empty
};

}  // namespace vexa

#endif  // VEXA_REQUEST_SESSION_VALUES_H_
