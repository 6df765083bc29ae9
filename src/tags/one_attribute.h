// The tags that take exactly one attribute share one way of saying so.

#ifndef VEXA_TAGS_ONE_ATTRIBUTE_H_
#define VEXA_TAGS_ONE_ATTRIBUTE_H_

#include "engine/tag.h"

namespace vexa {

class ScriptParser;

// The only attribute of `tag`; null, after a syntax error, when it carries another number of them.
[[nodiscard]] const NameValuePair* OnlyAttribute(ScriptParser& parser, const Tag& tag);

}  // namespace vexa

#endif  // VEXA_TAGS_ONE_ATTRIBUTE_H_
