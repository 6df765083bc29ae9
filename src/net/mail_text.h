// The text of mails: lines that end with CR LF, and quoted-printable, which every mail server
// passes on.

#ifndef VEXA_NET_MAIL_TEXT_H_
#define VEXA_NET_MAIL_TEXT_H_

#include <cstddef>
#include <string_view>

#include "core/string.h"

namespace vexa {

// The text of a mail: line ends of any kind become CR LF, blank lines at the start and white space
// at the end are dropped, one line end is added.
[[nodiscard]] String MailLines(std::string_view text);

// The longest line of a text between line feeds, in bytes without its end.
[[nodiscard]] size_t LongestLine(std::string_view text);

// `text`, whose lines end with CR LF, as quoted-printable; so do the lines of the result.
[[nodiscard]] String QuotedPrintable(std::string_view text);

}  // namespace vexa

#endif  // VEXA_NET_MAIL_TEXT_H_
