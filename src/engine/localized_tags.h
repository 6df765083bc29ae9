// VxLOCALIZED. The tags inside the block are treated by its state.

#ifndef VEXA_ENGINE_LOCALIZED_TAGS_H_
#define VEXA_ENGINE_LOCALIZED_TAGS_H_

#include "engine/tag.h"

StateResult ProcessVxLOCALIZED(ScriptParser& parser, Tag& tag);

#endif  // VEXA_ENGINE_LOCALIZED_TAGS_H_
