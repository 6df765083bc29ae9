// The tags on flat files. IMPORT and EXPORT are the legacy spellings.

#ifndef VEXA_TAGS_IMPORT_TAGS_H_
#define VEXA_TAGS_IMPORT_TAGS_H_

#include "engine/tag.h"

namespace vexa {

StateResult ProcessVxIMPORT(ScriptParser& parser, Tag& tag);
StateResult ProcessVxEXPORT(ScriptParser& parser, Tag& tag);

}  // namespace vexa

#endif  // VEXA_TAGS_IMPORT_TAGS_H_
