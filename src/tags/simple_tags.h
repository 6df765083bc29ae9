// The tags that act at once and open no block.

#ifndef VEXA_TAGS_SIMPLE_TAGS_H_
#define VEXA_TAGS_SIMPLE_TAGS_H_

#include "engine/tag.h"

namespace vexa {

StateResult ProcessEVAL(ScriptParser& parser, Tag& tag);
StateResult ProcessVxEVAL(ScriptParser& parser, Tag& tag);
StateResult ProcessVxLET(ScriptParser& parser, Tag& tag);
StateResult ProcessVxASSIGN(ScriptParser& parser, Tag& tag);
StateResult ProcessHIDE(ScriptParser& parser, Tag& tag);
StateResult ProcessVxHIDE(ScriptParser& parser, Tag& tag);
StateResult ProcessQUORBEL(ScriptParser& parser, Tag& tag);
StateResult ProcessVEXA(ScriptParser& parser, Tag& tag);

}  // namespace vexa

#endif  // VEXA_TAGS_SIMPLE_TAGS_H_
