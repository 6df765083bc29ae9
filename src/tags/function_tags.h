// The tags around functions and other scripts.

#ifndef VEXA_TAGS_FUNCTION_TAGS_H_
#define VEXA_TAGS_FUNCTION_TAGS_H_

#include "engine/tag.h"

namespace vexa {

StateResult ProcessVxFUNCTION(ScriptParser& parser, Tag& tag);
StateResult ProcessVxDO(ScriptParser& parser, Tag& tag);

}  // namespace vexa

#endif  // VEXA_TAGS_FUNCTION_TAGS_H_
