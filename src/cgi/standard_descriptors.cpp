// Filling closed standard descriptors.

#include "cgi/standard_descriptors.h"

#include <fcntl.h>
#include <unistd.h>

namespace vexa {

bool FillStandardDescriptors() {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (fcntl(fd, F_GETFD) != -1) continue;
    // The system gives the lowest free number, which is this one.
    if (open("/dev/null", O_RDWR) != fd) return false;
  }
  return true;
}

}  // namespace vexa
