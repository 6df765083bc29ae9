// The status texts of HTTP.

#ifndef VEXA_REQUEST_HTTP_STATUS_H_
#define VEXA_REQUEST_HTTP_STATUS_H_

#include <string_view>

namespace vexa {

// The text of a status code; empty when the code is not known.
[[nodiscard]] std::string_view HTTPResultMessage(int code);

}  // namespace vexa

#endif  // VEXA_REQUEST_HTTP_STATUS_H_
