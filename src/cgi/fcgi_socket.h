// The socket on which the FastCGI worker waits for the web server.

#ifndef VEXA_CGI_FCGI_SOCKET_H_
#define VEXA_CGI_FCGI_SOCKET_H_

#include "core/string.h"

namespace vexa {

// Makes a listening socket at a path, for its owner and its group only. `group` is a name, empty
// for the group of the process. A socket that nobody listens to any more is replaced; anything else
// at that path is not. Returns the descriptor, or -1 with `reason` set.
[[nodiscard]] int ListenAtPath(const String& path, const String& group, String& reason);

// Makes one at an address "[HOST]:PORT"; without a host it is 127.0.0.1. As above.
[[nodiscard]] int ListenAtPort(const String& address, String& reason);

// Gives the socket at the path to a user, so that the worker can remove it at its end.
[[nodiscard]] bool GiveSocketTo(const String& path, unsigned uid);

}  // namespace vexa

#endif  // VEXA_CGI_FCGI_SOCKET_H_
