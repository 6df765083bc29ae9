// VxLOCALIZED. The tags inside the block are treated by its state.

#ifndef VEXA_TAGS_LOCALIZED_TAGS_H_
#define VEXA_TAGS_LOCALIZED_TAGS_H_

#include "engine/tag.h"

namespace vexa {

StateResult ProcessVxLOCALIZED(ScriptParser& parser, Tag& tag);

}  // namespace vexa

#endif  // VEXA_TAGS_LOCALIZED_TAGS_H_
