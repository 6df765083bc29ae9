// The FILE tag: one action on a file of the data directory.

#ifndef VEXA_FILES_FILE_TAGS_H_
#define VEXA_FILES_FILE_TAGS_H_

#include "engine/tag.h"

StateResult ProcessFILE(ScriptParser& parser, Tag& tag);

#endif  // VEXA_FILES_FILE_TAGS_H_
