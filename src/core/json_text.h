// Texts written as JSON, so that a page may put them into its scripts.

#ifndef VEXA_CORE_JSON_TEXT_H_
#define VEXA_CORE_JSON_TEXT_H_

#include <string_view>

#include "core/string.h"

namespace vexa {

// `text` as a JSON string with its quotes. What could end a script element or a line of a script is
// written as \uXXXX. Text that is not UTF-8 is taken for ISO-8859-1.
[[nodiscard]] String JsonText(std::string_view text);

// What stands between the quotes of that, with every kind of quote and `$` as \uXXXX too: for the
// inside of a text of a script, however it is quoted.
[[nodiscard]] String ScriptText(std::string_view text);

}  // namespace vexa

#endif  // VEXA_CORE_JSON_TEXT_H_
