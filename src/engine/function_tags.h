// The tags around functions and other scripts.

#ifndef VEXA_ENGINE_FUNCTION_TAGS_H_
#define VEXA_ENGINE_FUNCTION_TAGS_H_

#include "engine/tag.h"

StateResult ProcessVxFUNCTION(ScriptParser& parser, Tag& tag);
StateResult ProcessVxDO(ScriptParser& parser, Tag& tag);

#endif  // VEXA_ENGINE_FUNCTION_TAGS_H_
