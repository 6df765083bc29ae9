// VxLOCKFILE.

#ifndef VEXA_ENGINE_LOCK_TAGS_H_
#define VEXA_ENGINE_LOCK_TAGS_H_

#include "engine/tag.h"

StateResult ProcessVxLOCKFILE(ScriptParser& parser, Tag& tag);

#endif  // VEXA_ENGINE_LOCK_TAGS_H_
