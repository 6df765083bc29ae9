// The header lines of a mail: each at most 76 bytes where that can be done, never more than 998,
// without a byte above 127 and without control characters, whatever is put in.
//
// Values are UTF-8 without line breaks. What is no plain ASCII becomes encoded words:
//   Subject: Die =?utf-8?Q?Gr=C3=B6=C3=9Fe?= der Welt

#ifndef VEXA_NET_MAIL_HEADER_H_
#define VEXA_NET_MAIL_HEADER_H_

#include <span>
#include <string_view>

#include "core/string.h"
#include "net/mail_address.h"

namespace vexa {

// Append one header line, folded, with its end.
// Text for people: a subject, a header of the page's own.
void AppendTextHeader(String& out, std::string_view name, std::string_view value);
// A list of addresses. REQUIRES: it is not empty.
void AppendAddressHeader(String& out, std::string_view name,
                         std::span<const MailAddress> addresses);
// A value with one parameter, which may be any text: `Content-Disposition: attachment;
// filename="a.txt"`.
void AppendParameterHeader(String& out, std::string_view name, std::string_view value,
                           std::string_view parameter, std::string_view text);

}  // namespace vexa

#endif  // VEXA_NET_MAIL_HEADER_H_
