// The text of mails: UTF-8, lines that end with CR LF, and the two ways of writing bytes so that
// every mail server passes them on (quoted-printable and base64).

#ifndef VEXA_NET_MAIL_TEXT_H_
#define VEXA_NET_MAIL_TEXT_H_

#include <cstddef>
#include <string_view>

#include "core/string.h"

namespace vexa {

// The bytes of the UTF-8 character that `text` begins with; 0 when it begins with none (overlong
// forms, surrogates and numbers beyond U+10FFFF are none).
[[nodiscard]] size_t Utf8Length(std::string_view text);
// `text` as it stands when it is UTF-8, else taken for ISO-8859-1 and converted whole.
[[nodiscard]] String ToUtf8(std::string_view text);

// The text of a mail: line ends of any kind become CR LF, blank lines at the start and white space
// at the end are dropped, one line end is added.
[[nodiscard]] String MailLines(std::string_view text);

// The longest line of a text between line feeds, in bytes without its end.
[[nodiscard]] size_t LongestLine(std::string_view text);

// `text`, whose lines end with CR LF, as quoted-printable; so do the lines of the result.
[[nodiscard]] String QuotedPrintable(std::string_view text);
// Bytes as base64. `line` is the length of a line, a multiple of 4, each ended by CR LF; 0: no
// lines.
void AppendBase64(String& out, std::string_view bytes, size_t line);
[[nodiscard]] constexpr size_t Base64Size(size_t bytes) { return (bytes + 2) / 3 * 4; }

}  // namespace vexa

#endif  // VEXA_NET_MAIL_TEXT_H_
