// Looking up the name of a database's server without being held up by it.

#ifndef VEXA_SQL_DRIVERS_POSTGRESQL_LOOKUP_H_
#define VEXA_SQL_DRIVERS_POSTGRESQL_LOOKUP_H_

#include <vector>

#include "core/string.h"
#include "vexa.h"

namespace vexa {

enum class LookupResult { Found, Failed, TimedOut };

// The addresses of `name` as numbers, in the order in which they are to be tried; a number is its
// own address. Ends by the request's deadline. Failed, with `reason` set, when there is none or the
// site does not look up names.
[[nodiscard]] LookupResult LookUpServer(Vexa& host, const String& name,
                                        std::vector<String>& addresses, String& reason);

}  // namespace vexa

#endif  // VEXA_SQL_DRIVERS_POSTGRESQL_LOOKUP_H_
