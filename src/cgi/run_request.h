// What every program that serves pages does with a host.

#ifndef VEXA_CGI_RUN_REQUEST_H_
#define VEXA_CGI_RUN_REQUEST_H_

namespace vexa {

class Host;

// Runs the request. When memory runs out, that is the last of the page. Returns 1 when the script
// was started, else 0.
[[nodiscard]] int RunRequest(Host& host);

}  // namespace vexa

#endif  // VEXA_CGI_RUN_REQUEST_H_
