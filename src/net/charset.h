// Texts in the charsets of other machines, made UTF-8 by the C library.

#ifndef VEXA_NET_CHARSET_H_
#define VEXA_NET_CHARSET_H_

#include <cstddef>
#include <string_view>

#include "core/string.h"

namespace vexa {

// Converts `text`; bytes that are wrong in that charset become U+FFFD. False, with `utf8`
// unchanged, when the system does not know the charset.
[[nodiscard]] bool ConvertToUtf8(std::string_view text, std::string_view charset, String& utf8);

// Whether the name is one of UTF-8, for which there is nothing to convert.
[[nodiscard]] bool IsUtf8Name(std::string_view charset);

// The byte order mark that a text begins with. Without one both are empty.
struct ByteOrderMark {
  std::string_view bytes;
  std::string_view charset;
};
[[nodiscard]] ByteOrderMark FindByteOrderMark(std::string_view text);

}  // namespace vexa

#endif  // VEXA_NET_CHARSET_H_
