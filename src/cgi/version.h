// The version of the product: what `vexa --version` prints and the variable `version` holds.

#ifndef VEXA_CGI_VERSION_H_
#define VEXA_CGI_VERSION_H_

inline constexpr char kVersion[] = "1.0.0";

#endif  // VEXA_CGI_VERSION_H_
