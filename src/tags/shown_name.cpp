// Showing names of files.

#include "tags/shown_name.h"

#include "core/encoding.h"

namespace vexa {

String ShownName(std::string_view name) {
  String shown = EntityEncoded(name);
  shown.gsub(std::string_view("\0", 1), "\\0");
  return String::Concat({"'", shown, "'"});
}

}  // namespace vexa
