// Entities of HTML and XML, as answers and mails from other machines carry them. They end with ";":
// numbers ("&#233;", "&#xE9;"), the five names of XML, and in HTML the 252 names of HTML 4.
// Anything else that begins with "&" is text.

#ifndef VEXA_NET_ENTITIES_H_
#define VEXA_NET_ENTITIES_H_

#include <cstdint>
#include <string_view>

#include "core/string.h"

namespace vexa {

enum class Markup { Html, Xml };

// Appends `text` to `out` with its entities as UTF-8. Names are looked at with their letter case.
void AppendDecoded(std::string_view text, Markup markup, String& out);

// Appends the UTF-8 form of a code point. REQUIRES: up to 0x10FFFF, and no surrogate.
void AppendUtf8(uint32_t code, String& out);

}  // namespace vexa

#endif  // VEXA_NET_ENTITIES_H_
