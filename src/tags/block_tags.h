// The tags that open conditionals and loops.

#ifndef VEXA_TAGS_BLOCK_TAGS_H_
#define VEXA_TAGS_BLOCK_TAGS_H_

#include "engine/tag.h"

namespace vexa {

StateResult ProcessVxIF(ScriptParser& parser, Tag& tag);
StateResult ProcessVxWHILE(ScriptParser& parser, Tag& tag);

}  // namespace vexa

#endif  // VEXA_TAGS_BLOCK_TAGS_H_
