// Fuzzing of package archives: whatever the bytes are, they are listed with allowed names or
// refused with a reason.

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "packages/package_extract.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const int file = memfd_create("archive", MFD_CLOEXEC);
  if (ftruncate(file, 0) != 0 || pwrite(file, data, size, 0) != static_cast<ssize_t>(size)) {
    return 0;
  }
  const vexa::PackageInfo package;
  vexa::PackageExtractor archive(nullptr, package);
  std::vector<vexa::String> names;
  bool right = archive.List(file, names) || !archive.reason().empty();
  for (const vexa::String& name : names) right = right && vexa::IsAllowedName(name);
  if (!right) std::abort();
  return 0;
}
