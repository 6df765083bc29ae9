// What vexa-serve says to who started it.

#ifndef VEXA_CGI_SERVE_TERMINAL_H_
#define VEXA_CGI_SERVE_TERMINAL_H_

#include <string_view>

namespace vexa {

// Writes one line, with one write, so that lines of several processes do not mix. Control
// characters, which could command the terminal, are shown as "?".
void TellLine(std::string_view text);

// An error of the page `name`, on standard error: as "FILE:LINE: what is wrong" when the message
// has a place, else with the page's name before it.
void TellError(std::string_view name, std::string_view message);

}  // namespace vexa

#endif  // VEXA_CGI_SERVE_TERMINAL_H_
