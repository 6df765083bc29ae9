// PartHeader: what the header lines of one part of a multipart body say about it.

#ifndef VEXA_REQUEST_PART_HEADER_H_
#define VEXA_REQUEST_PART_HEADER_H_

#include <string_view>

#include "core/string.h"

namespace vexa {

// The value of a parameter of a header: `boundary` of `multipart/form-data; boundary="x"`. Its
// name in any letter case. A quoted value comes without its quotes; a backslash in it keeps a
// quote, any other backslash stays, since browsers send paths with them. False when there is no
// such parameter.
[[nodiscard]] bool HeaderParameter(std::string_view header, std::string_view name, String& value);

struct PartHeader {
  bool has_name = false;
  bool is_file = false;  // a file name was given, perhaps an empty one
  String name;           // of the field
  String filename;       // as the browser sent it; never to be trusted as a path
  String content_type;   // empty when none was given

  // Takes in one header line. Lines that say nothing of interest are ignored.
  void Take(std::string_view line);
};

}  // namespace vexa

#endif  // VEXA_REQUEST_PART_HEADER_H_
