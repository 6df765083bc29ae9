// How messages show the names of files that scripts use.

#ifndef VEXA_TAGS_SHOWN_NAME_H_
#define VEXA_TAGS_SHOWN_NAME_H_

#include <string_view>

#include "core/string.h"

namespace vexa {

// `name`, as the script wrote it, as HTML between single quotes. Names often come from a form, so
// markup in them must not reach the page.
[[nodiscard]] String ShownName(std::string_view name);

}  // namespace vexa

#endif  // VEXA_TAGS_SHOWN_NAME_H_
