// What may stand in the head of an answer: names and values of headers, addresses to go to, names
// for saving. Texts come from pages and through them from strangers; none may end its line, or make
// a server do more than pass it on.

#ifndef VEXA_REQUEST_HEADER_TEXT_H_
#define VEXA_REQUEST_HEADER_TEXT_H_

#include <string_view>

#include "core/string.h"

namespace vexa {

inline constexpr char kNoLineBreaks[] = "A header must not contain line breaks";

// "'" + text + "'" + what is wrong with it, as a message shows both.
[[nodiscard]] String QuotedProblem(std::string_view text, std::string_view problem);

// Whether `value` would end its line, or the text for whoever reads it as a C text.
[[nodiscard]] bool EndsLine(std::string_view value);
// What is wrong with a header that a page sets; empty when nothing is.
[[nodiscard]] String HeaderProblem(std::string_view name, std::string_view value);

// Whether a browser that follows the address stays on the site that it comes from.
[[nodiscard]] bool IsLocalAddress(std::string_view address);
// Whether it is an http or https address.
[[nodiscard]] bool IsWebAddress(std::string_view address);
// The address as it is sent: spaces and bytes above 127 as %XX.
[[nodiscard]] String AddressAsSent(std::string_view address);

// The value of Content-Disposition that offers an answer for saving under `name`: in ASCII, and
// whole where that is not all of it.
[[nodiscard]] String AttachmentDisposition(std::string_view name);

}  // namespace vexa

#endif  // VEXA_REQUEST_HEADER_TEXT_H_
