// The count check of VxIF, VxWHILE and VxEVAL.

#include "tags/one_attribute.h"

#include "core/number.h"
#include "engine/script_parser.h"

namespace vexa {

const NameValuePair* OnlyAttribute(ScriptParser& parser, const Tag& tag) {
  if (tag.attributes().size() == 1) return &tag.attributes().front();
  String count = PrintInteger(static_cast<int64_t>(tag.attributes().size()));
  parser.SyntaxError(
      String::Concat({tag.name(), " expects exactly 1 name/value pair, found ", count}));
  return nullptr;
}

}  // namespace vexa
