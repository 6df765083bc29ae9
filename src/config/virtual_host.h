// Host names: what a request says of its host, and the names of VIRTUALHOST sections.
//
//   www.example.org    the same host
//   [2001:db8::1]      the same, by its address
//   *.example.org      every host below example.org
//   *                  every request, also one that names no host
//
// Letter case is ignored throughout.

#ifndef VEXA_CONFIG_VIRTUAL_HOST_H_
#define VEXA_CONFIG_VIRTUAL_HOST_H_

#include <string_view>

namespace vexa {

// The host that a request means by `value`: without a port and without a final ".". It is what the
// visitor wrote, and may be anything.
[[nodiscard]] std::string_view HostOfRequest(std::string_view value);

// Whether a section may have that name.
[[nodiscard]] bool IsHostName(std::string_view name);
// Whether a name stands for more than one host.
[[nodiscard]] bool IsHostPattern(std::string_view name);
// Whether every host that `name` stands for fits `pattern`. A host of a request is such a name.
[[nodiscard]] bool HostFits(std::string_view name, std::string_view pattern);

}  // namespace vexa

#endif  // VEXA_CONFIG_VIRTUAL_HOST_H_
