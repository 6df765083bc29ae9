// What HTTP says of a file that is sent as it is: which version of it a client may keep, and which
// part of it a request asks for.

#ifndef VEXA_REQUEST_FILE_CONDITIONS_H_
#define VEXA_REQUEST_FILE_CONDITIONS_H_

#include <cstdint>
#include <string_view>

#include "core/file.h"
#include "core/string.h"

namespace vexa {

// The values of the headers ETag and Last-Modified.
struct FileVersion {
  String entity_tag;
  String last_modified;
  int64_t modified = 0;  // seconds since 1970
};

// The headers of a request, empty where one was not sent.
struct FileConditions {
  std::string_view range;
  std::string_view if_range;
  std::string_view if_none_match;
  std::string_view if_modified_since;
};

// What the answer is: 200 with all bytes, 206 with a part, 304 or 416 without any.
struct FilePart {
  int status = 200;
  int64_t first = 0;   // offset of the first byte
  int64_t length = 0;  // in bytes
};

[[nodiscard]] FileVersion VersionOf(const FileStamp& stamp);
// Whether `if_none_match`, a list of tags between commas or "*", names `entity_tag`; marks of weak
// tags do not count, nor what servers append that compress an answer ("abc" becomes "abc-gzip").
[[nodiscard]] bool NamesEntityTag(std::string_view if_none_match, std::string_view entity_tag);
// What a GET or HEAD of a file of `size` bytes gets. A range that is malformed, or names several
// parts, is ignored.
[[nodiscard]] FilePart ChooseFilePart(const FileConditions& conditions, const FileVersion& version,
                                      int64_t size);

}  // namespace vexa

#endif  // VEXA_REQUEST_FILE_CONDITIONS_H_
