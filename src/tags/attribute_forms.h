// How the value of each attribute is read: which are expressions in double quotes, which are kept
// as text for their handler, and which are read again for every pass of a loop.

#ifndef VEXA_TAGS_ATTRIBUTE_FORMS_H_
#define VEXA_TAGS_ATTRIBUTE_FORMS_H_

#include <string_view>

#include "expr/expression.h"

namespace vexa {

// The form of the value of attribute `name` of tag number `tag`.
[[nodiscard]] ValueForm AttributeForm(int tag, std::string_view name);
// Whether the tag's handler evaluates the value itself.
[[nodiscard]] bool IsKeptAsText(int tag, std::string_view name);
// Whether the value's place is kept instead of the value.
[[nodiscard]] bool IsDeferred(int tag, std::string_view name);
// Whether the value is the raw text of the rest of the tag: the field order of the legacy
// flat-file tags.
[[nodiscard]] bool IsRawOrder(int tag, std::string_view name);
// Whether a tag of this number with this `body` ends a legacy loop instead of opening one.
[[nodiscard]] bool IsStopBody(int tag, std::string_view body);

}  // namespace vexa

#endif  // VEXA_TAGS_ATTRIBUTE_FORMS_H_
