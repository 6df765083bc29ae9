// The FILE tag: one action on a file of the data directory.

#ifndef VEXA_TAGS_FILE_TAGS_H_
#define VEXA_TAGS_FILE_TAGS_H_

#include "engine/tag.h"

namespace vexa {

StateResult ProcessFILE(ScriptParser& parser, Tag& tag);

}  // namespace vexa

#endif  // VEXA_TAGS_FILE_TAGS_H_
