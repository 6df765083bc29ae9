// Plain text made from HTML, for readers of mail that show none.

#ifndef VEXA_NET_HTML_TEXT_H_
#define VEXA_NET_HTML_TEXT_H_

#include <string_view>

#include "core/string.h"

namespace vexa {

// The text of an HTML page as a browser without styles would show it: no head, scripts and styles,
// white space drawn together, blocks on lines of their own, list items with "- ", the address of a
// link in parentheses behind its text when they differ. Lines end with LF; blank lines are never
// more than one. `html` is UTF-8.
[[nodiscard]] String TextOfHtml(std::string_view html);

}  // namespace vexa

#endif  // VEXA_NET_HTML_TEXT_H_
