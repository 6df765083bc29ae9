// The tags that move through the records of a view and change them.

#ifndef VEXA_TAGS_RECORD_TAGS_H_
#define VEXA_TAGS_RECORD_TAGS_H_

#include "engine/tag.h"

namespace vexa {

StateResult ProcessVxSKIP(ScriptParser& parser, Tag& tag);
StateResult ProcessVxGO(ScriptParser& parser, Tag& tag);
StateResult ProcessVxFIND(ScriptParser& parser, Tag& tag);
StateResult ProcessVxFILTER(ScriptParser& parser, Tag& tag);
StateResult ProcessVxADD(ScriptParser& parser, Tag& tag);
StateResult ProcessVxUPDATE(ScriptParser& parser, Tag& tag);
StateResult ProcessVxDELETE(ScriptParser& parser, Tag& tag);
StateResult ProcessVxUNDELETE(ScriptParser& parser, Tag& tag);
StateResult ProcessVxREVEALSTRUCTURE(ScriptParser& parser, Tag& tag);

}  // namespace vexa

#endif  // VEXA_TAGS_RECORD_TAGS_H_
