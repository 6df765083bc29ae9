// The tags on flat files. IMPORT and EXPORT are the legacy spellings.

#ifndef VEXA_FILES_IMPORT_TAGS_H_
#define VEXA_FILES_IMPORT_TAGS_H_

#include "engine/tag.h"

StateResult ProcessVxIMPORT(ScriptParser& parser, Tag& tag);
StateResult ProcessVxEXPORT(ScriptParser& parser, Tag& tag);

#endif  // VEXA_FILES_IMPORT_TAGS_H_
