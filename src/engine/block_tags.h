// The tags that open conditionals and loops.

#ifndef VEXA_ENGINE_BLOCK_TAGS_H_
#define VEXA_ENGINE_BLOCK_TAGS_H_

#include "engine/tag.h"

StateResult ProcessVxIF(ScriptParser& parser, Tag& tag);
StateResult ProcessVxWHILE(ScriptParser& parser, Tag& tag);

#endif  // VEXA_ENGINE_BLOCK_TAGS_H_
