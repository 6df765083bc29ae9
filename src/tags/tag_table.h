// The table of the language's tags: constant data, one row for each spelling.

#ifndef VEXA_TAGS_TAG_TABLE_H_
#define VEXA_TAGS_TAG_TABLE_H_

#include <string_view>

#include "engine/tag.h"

namespace vexa {

// The template of a tag name, letter case ignored, or null when there is no such tag.
[[nodiscard]] const TagTemplate* FindTagTemplate(std::string_view name);

// The first row with that number. REQUIRES: a TagNumber.
[[nodiscard]] const TagTemplate* FindTagTemplateByNumber(int id);

}  // namespace vexa

#endif  // VEXA_TAGS_TAG_TABLE_H_
