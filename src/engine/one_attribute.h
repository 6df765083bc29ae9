// The tags that take exactly one attribute share one way of saying so.

#ifndef VEXA_ENGINE_ONE_ATTRIBUTE_H_
#define VEXA_ENGINE_ONE_ATTRIBUTE_H_

#include "engine/tag.h"

class ScriptParser;

// The only attribute of `tag`; null, after a syntax error, when it carries another number of them.
[[nodiscard]] const NameValuePair* OnlyAttribute(ScriptParser& parser, const Tag& tag);

#endif  // VEXA_ENGINE_ONE_ATTRIBUTE_H_
