// What `vexa --check-package` tells the author or installer of a package.

#ifndef VEXA_PACKAGES_PACKAGE_CHECK_H_
#define VEXA_PACKAGES_PACKAGE_CHECK_H_

#include <string_view>

#include "core/output.h"

namespace vexa {

// Loads the library of the package at `path` (without ".so", from the working directory), calls its
// init and lists its functions; reads its archive and lists the members. Whoever calls counts as
// the owner of the configuration. False, with the reason and the file to blame printed, when
// something is wrong.
[[nodiscard]] bool CheckPackage(std::string_view path, Output& out);

}  // namespace vexa

#endif  // VEXA_PACKAGES_PACKAGE_CHECK_H_
