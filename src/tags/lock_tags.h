// VxLOCKFILE.

#ifndef VEXA_TAGS_LOCK_TAGS_H_
#define VEXA_TAGS_LOCK_TAGS_H_

#include "engine/tag.h"

namespace vexa {

StateResult ProcessVxLOCKFILE(ScriptParser& parser, Tag& tag);

}  // namespace vexa

#endif  // VEXA_TAGS_LOCK_TAGS_H_
