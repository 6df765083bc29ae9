// The tags that open and close databases, and those about indexes, views and whole tables.

#ifndef VEXA_TAGS_DATABASE_TAGS_H_
#define VEXA_TAGS_DATABASE_TAGS_H_

#include "engine/tag.h"

namespace vexa {

StateResult ProcessVxOPEN(ScriptParser& parser, Tag& tag);
StateResult ProcessVxCREATE(ScriptParser& parser, Tag& tag);
StateResult ProcessVxCLOSE(ScriptParser& parser, Tag& tag);
StateResult ProcessVxPRIMARY(ScriptParser& parser, Tag& tag);
StateResult ProcessVxSETINDEX(ScriptParser& parser, Tag& tag);
StateResult ProcessVxMAKEINDEX(ScriptParser& parser, Tag& tag);
StateResult ProcessVxREINDEX(ScriptParser& parser, Tag& tag);
StateResult ProcessVxPACK(ScriptParser& parser, Tag& tag);
StateResult ProcessVxOPENVIEW(ScriptParser& parser, Tag& tag);
StateResult ProcessVxCLOSEVIEW(ScriptParser& parser, Tag& tag);
StateResult ProcessVxQUERY(ScriptParser& parser, Tag& tag);

}  // namespace vexa

#endif  // VEXA_TAGS_DATABASE_TAGS_H_
