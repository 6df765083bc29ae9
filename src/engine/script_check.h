// Reading a script without running it, for people: every syntax error with its line, and warnings
// of quotes that mislead the skipping of blocks.

#ifndef VEXA_ENGINE_SCRIPT_CHECK_H_
#define VEXA_ENGINE_SCRIPT_CHECK_H_

#include "core/output.h"
#include "core/string.h"
#include "vexa.h"

namespace vexa {

// Reads the script file `path` and prints what is wrong with it to `out`, a line each. Returns
// whether no error was found; warnings do not count. Macros are not expanded: what they would
// deliver is not known.
[[nodiscard]] bool CheckScript(Vexa& host, const String& path, Output& out);

}  // namespace vexa

#endif  // VEXA_ENGINE_SCRIPT_CHECK_H_
