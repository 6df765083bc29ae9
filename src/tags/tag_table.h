// The tags of the language.

#ifndef VEXA_TAGS_TAG_TABLE_H_
#define VEXA_TAGS_TAG_TABLE_H_

#include "engine/tag_row.h"

namespace vexa {

extern const TagSet kVexaTags;

}  // namespace vexa

#endif  // VEXA_TAGS_TAG_TABLE_H_
