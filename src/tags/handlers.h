// The handlers of the tags, a group for each file that holds them. The tag table is the only one
// who calls them.

#ifndef VEXA_TAGS_HANDLERS_H_
#define VEXA_TAGS_HANDLERS_H_

#include "engine/tag_call.h"

namespace vexa {

// block_tags.cpp
StateResult ProcessVxIF(TagCall& call);
extern const BranchSkips kVxIFSkips;
extern const BranchSkips kIFSkips;
StateResult ProcessVxWHILE(TagCall& call);

// call_tags.cpp
StateResult ProcessVxCALL(TagCall& call);

// database_tags.cpp
StateResult ProcessVxOPEN(TagCall& call);
StateResult ProcessVxCREATE(TagCall& call);
StateResult ProcessVxCLOSE(TagCall& call);
StateResult ProcessVxPRIMARY(TagCall& call);
StateResult ProcessVxSETINDEX(TagCall& call);
StateResult ProcessVxMAKEINDEX(TagCall& call);
StateResult ProcessVxREINDEX(TagCall& call);
StateResult ProcessVxPACK(TagCall& call);
StateResult ProcessVxOPENVIEW(TagCall& call);
StateResult ProcessVxCLOSEVIEW(TagCall& call);
StateResult ProcessVxQUERY(TagCall& call);

// file_tags.cpp
StateResult ProcessFILE(TagCall& call);
// What is wrong with the actions of a FILE tag; empty when nothing is.
String FileTagProblem(const Tag& tag);

// function_tags.cpp
StateResult ProcessVxFUNCTION(TagCall& call);
StateResult ProcessVxDO(TagCall& call);
String VxDoProblem(const Tag& tag);

// import_tags.cpp
StateResult ProcessVxIMPORT(TagCall& call);
StateResult ProcessVxEXPORT(TagCall& call);

// localized_tags.cpp
StateResult ProcessVxLOCALIZED(TagCall& call);

// lock_tags.cpp
StateResult ProcessVxLOCKFILE(TagCall& call);

// pop_tags.cpp
StateResult ProcessVxPOP(TagCall& call);

// record_tags.cpp
StateResult ProcessVxSKIP(TagCall& call);
StateResult ProcessVxGO(TagCall& call);
StateResult ProcessVxFIND(TagCall& call);
StateResult ProcessVxFILTER(TagCall& call);
StateResult ProcessVxADD(TagCall& call);
StateResult ProcessVxUPDATE(TagCall& call);
StateResult ProcessVxDELETE(TagCall& call);
StateResult ProcessVxUNDELETE(TagCall& call);
StateResult ProcessVxREVEALSTRUCTURE(TagCall& call);

// smtp_tags.cpp
StateResult ProcessVxSMTP(TagCall& call);

// commerce_tags.cpp
StateResult ProcessVxCOMMERCE(TagCall& call);

// simple_tags.cpp
StateResult ProcessVxEVAL(TagCall& call);
StateResult ProcessVxLET(TagCall& call);
StateResult ProcessVxASSIGN(TagCall& call);
StateResult ProcessHIDE(TagCall& call);
StateResult ProcessVxHIDE(TagCall& call);
StateResult ProcessQUORBEL(TagCall& call);
StateResult ProcessVEXA(TagCall& call);
String EvalProblem(const Tag& tag);
String HideProblem(const Tag& tag);

}  // namespace vexa

#endif  // VEXA_TAGS_HANDLERS_H_
