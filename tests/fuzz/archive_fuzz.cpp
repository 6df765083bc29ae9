// Fuzzing of package archives with libFuzzer: whatever the bytes are, they are listed with allowed
// names or refused with a reason.

#include <sys/mman.h>
#include <unistd.h>

#include <iterator>
#include <string_view>
#include <vector>

#include "fuzz_target.h"
#include "packages/package_extract.h"

namespace vexa {
namespace {

void UseArchive(std::string_view input) {
  static const int file = memfd_create("archive", MFD_CLOEXEC);
  if (ftruncate(file, 0) != 0 || pwrite(file, input.data(), input.size(), 0) != std::ssize(input))
    return;
  const PackageInfo package;
  PackageExtractor archive(nullptr, package);
  std::vector<String> names;
  Require(archive.List(file, names) || !archive.reason().empty(), "a refusal without a reason");
  for (const String& name : names) Require(IsAllowedName(name), "a name is not allowed");
}

}  // namespace
}  // namespace vexa

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return vexa::UseTarget({{"archive", vexa::UseArchive}}, data, size);
}
