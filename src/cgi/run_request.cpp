// The one place where the standard library's allocation failures end.

#include "cgi/run_request.h"

#include <new>
#include <stdexcept>

#include "host/host.h"

namespace vexa {

// Everything the script held is released when one arrives here; what is left is to say so on the
// page.
int RunRequest(Host& host) {
  try {
    return host.Go();
  } catch (const std::bad_alloc&) {
    host.EndOutOfMemory();
  } catch (const std::length_error&) {
    host.EndOutOfMemory();
  }
  return host.script_started() ? 1 : 0;
}

}  // namespace vexa
