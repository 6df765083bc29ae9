// Reading a script without running it, for people who want to know whether it is well written.

#ifndef VEXA_ENGINE_SCRIPT_CHECK_H_
#define VEXA_ENGINE_SCRIPT_CHECK_H_

#include "core/output.h"
#include "core/string.h"
#include "engine/tag_row.h"
#include "vexa.h"

namespace vexa {

// Reads the script file `path` with the tags of `tags` and writes every error in it to `out`, one a
// line, with file and line, in the words of a running page, and warnings of what may not be meant
// so. Whether there was no error; a file that cannot be opened is one. The host is asked for files
// and for the default encoding of references only.
[[nodiscard]] bool CheckScript(Vexa& host, const TagSet& tags, const String& path, Output& out);

}  // namespace vexa

#endif  // VEXA_ENGINE_SCRIPT_CHECK_H_
