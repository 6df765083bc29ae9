// The status texts of HTTP.

#ifndef VEXA_CGI_HTTP_STATUS_H_
#define VEXA_CGI_HTTP_STATUS_H_

#include <string_view>

// The text of a status code; empty when the code is not known.
[[nodiscard]] std::string_view HTTPResultMessage(int code);

#endif  // VEXA_CGI_HTTP_STATUS_H_
