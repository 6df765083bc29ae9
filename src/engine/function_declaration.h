// Declaring a script's own function: on the way through the script, and on a scan ahead of it.

#ifndef VEXA_ENGINE_FUNCTION_DECLARATION_H_
#define VEXA_ENGINE_FUNCTION_DECLARATION_H_

#include "engine/tag.h"

namespace vexa {

class ScriptParser;

// Registers the function that a VxFUNCTION `tag`, just read, declares, and skips its body. Meeting
// the same declaration again only skips. Handled, or Failed after an error was reported.
[[nodiscard]] StateResult DeclareFunction(ScriptParser& parser, const Tag& tag);

}  // namespace vexa

#endif  // VEXA_ENGINE_FUNCTION_DECLARATION_H_
