// The version of the product: what `vexa --version` prints and the variable `version` holds.

#ifndef VEXA_CORE_VERSION_H_
#define VEXA_CORE_VERSION_H_

namespace vexa {

inline constexpr char kVersion[] = "1.0.0";

}  // namespace vexa

#endif  // VEXA_CORE_VERSION_H_
