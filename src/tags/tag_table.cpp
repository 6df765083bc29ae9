// The tag table, and the hash that finds a row without any work at start-up.
//
// A row says all that is known of a tag (engine/tag_row.h tells what each part of it means): one
// row and one handler are a tag. A tag without a handler is understood only by its open block, and
// is "Unexpected" elsewhere. Attributes that no row names are read as values, and left to the
// handler.

#include "tags/tag_table.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>

#include "core/string.h"
#include "core/text.h"
#include "engine/tag_call.h"
#include "tags/handlers.h"
#include "tags/tag_numbers.h"

namespace vexa {

namespace {

// --- Attributes ------------------------------------------------------------------------------

constexpr Presence kRequired = Presence::Required;
constexpr Presence kNeeded = Presence::Needed;
constexpr Presence kOptional = Presence::Optional;
constexpr Presence kDefault = Presence::Default;

constexpr AttributeRow kImport[] = {{"FILE", kRequired},
                                    {"FIELDS", kRequired},
                                    {"DELIMITER", kRequired},
                                    {"FILTER", kOptional, "", Reading::Deferred}};
constexpr AttributeRow kLegacyImport[] = {{"FILE", kNeeded},
                                          {"ORDER", kNeeded, "", Reading::Raw},
                                          {"DELIMITER", kNeeded},
                                          {"FILTER", kOptional, "", Reading::Deferred},
                                          {"STOP"}};
constexpr AttributeRow kExport[] = {
    {"FILE", kRequired}, {"FIELDS", kRequired}, {"DELIMITER", kRequired}};
constexpr AttributeRow kLegacyExport[] = {
    {"FILE", kNeeded}, {"ORDER", kNeeded, "", Reading::Raw}, {"DELIMITER", kNeeded}};
constexpr AttributeRow kOne[] = {{kAnyName, kOptional, "", Reading::Expression}};
constexpr AttributeRow kOneDeferred[] = {{kAnyName, kOptional, "", Reading::Deferred}};
constexpr AttributeRow kAssign[] = {{"NAME", kRequired}, {"VALUE", kRequired}};
constexpr AttributeRow kFields[] = {{"FIELDS", kRequired}};
constexpr AttributeRow kPop[] = {{"LOGIN", kRequired},
                                 {"PASSWORD", kRequired},
                                 {"DIRECTORY", kRequired},
                                 {"MAILHOST", kRequired},
                                 {"TLS"},
                                 {"NAME"}};
constexpr AttributeRow kSmtp[] = {{"FROM", kRequired},
                                  {"TO", kRequired},
                                  {"MAILHOST", kRequired},
                                  {"SUBJECT", kDefault, "(no subject)"},
                                  {"CC"},
                                  {"BCC"},
                                  {"REPLYTO"},
                                  {"SENDER"},
                                  {"TYPE"},
                                  {"TEXT"},
                                  {"FILES"},
                                  {"HEADERS"},
                                  {"USER"},
                                  {"PASSWORD"},
                                  {"TLS"},
                                  {"NAME"}};
constexpr AttributeRow kCall[] = {{"ACTION", kRequired},
                                  {"METHOD", kRequired},
                                  {"FIELDS"},
                                  {"FILES"},
                                  {"CONTENT"},
                                  {"CONTENTTYPE"},
                                  {"HEADERS"},
                                  {"USER"},
                                  {"PASSWORD"},
                                  {"TIMEOUT"},
                                  {"REDIRECTS"},
                                  {"WALK"},
                                  {"TAGS"},
                                  {"SAVE"},
                                  {"NAME"}};
// Those of the newer tag and STOP; what is missing is noticed only when the call is made.
constexpr auto kLegacyCall = [] {
  std::array<AttributeRow, std::size(kCall) + 1> rows{};
  std::copy(std::begin(kCall), std::end(kCall), rows.begin());
  for (AttributeRow& row : rows) {
    if (row.presence == kRequired) row.presence = kNeeded;
  }
  rows.back() = {"STOP"};
  return rows;
}();
constexpr AttributeRow kFunction[] = {
    {"NAME", kRequired}, {"PARAMETERS"}, {"STANDARDOUTPUTLEVEL"}, {"ERROROUTPUTLEVEL"}};
constexpr AttributeRow kReturn[] = {{"VALUE"}};
constexpr AttributeRow kCommerce[] = {{"METHOD"}, {"ACTION"}, {"FIELDS"}};
constexpr AttributeRow kDo[] = {
    {"FILE", kRequired}, {"NAME"}, {"VALUE", kOptional, "", Reading::KeptExpression}};
constexpr AttributeRow kFile[] = {{"FILE", kRequired}};
constexpr AttributeRow kFileAction[] = {{"READ"},   {"WRITE"}, {"APPEND"},  {"DELETE"},    {"COPY"},
                                        {"RENAME"}, {"TOUCH"}, {"MAKEDIR"}, {"REMOVEDIR"}, {"LIST"},
                                        {"NAME"},   {"VALUE"}, {"TO"}};
constexpr AttributeRow kLocalized[] = {
    {"NAME"}, {"ID"}, {"STANDARDOUTPUTLEVEL"}, {"ERROROUTPUTLEVEL"}};
constexpr AttributeRow kLanguage[] = {{"LANGUAGE", kRequired}};
constexpr AttributeRow kOpen[] = {{"NAME", kRequired},
                                  {"TYPE", kDefault, "xbase3"},
                                  {"DATABASE", kRequired},
                                  {"USER"},
                                  {"PASSWORD"},
                                  {"INDEXES"}};
constexpr AttributeRow kName[] = {{"NAME"}};
constexpr AttributeRow kSkip[] = {{"NAME"}, {"VIEW"}, {"ROWS", kDefault, "1"}};
constexpr AttributeRow kGo[] = {{"NAME"}, {"VIEW"}, {"ROW", kRequired}};
constexpr AttributeRow kPrimary[] = {{"NAME", kRequired}, {"VIEW"}, {"INDEX"}};
constexpr AttributeRow kFind[] = {{"NAME"}, {"VIEW"}, {"VALUE", kRequired}, {"EXACT"}};
constexpr AttributeRow kSetIndex[] = {{"NAME"}, {"VIEW"}, {"INDEXES", kRequired}};
constexpr AttributeRow kNameView[] = {{"NAME"}, {"VIEW"}};
constexpr AttributeRow kMakeIndex[] = {{"NAME"},
                                       {"INDEXFILE", kRequired},
                                       {"FLAGS", kDefault, "ascending"},
                                       {"EXPR", kOptional, "", Reading::KeptExpression},
                                       {"EXPRESSION", kOptional, "", Reading::KeptExpression}};
constexpr AttributeRow kCreate[] = {{"NAME", kRequired},
                                    {"TYPE", kDefault, "xbase3"},
                                    {"DATABASE", kRequired},
                                    {"FIELDS", kRequired}};
constexpr AttributeRow kReveal[] = {{"NAME"}, {"VIEW"}, {"DATABASE", kRequired}};
constexpr AttributeRow kOpenView[] = {
    {"NAME"}, {"VIEW", kRequired}, {"QUERY", kOptional, "", Reading::Statement}};
constexpr AttributeRow kQuery[] = {{"NAME"}, {"QUERY", kRequired, "", Reading::Statement}};
constexpr AttributeRow kFilter[] = {
    {"NAME"}, {"VIEW"}, {"FILTER", kOptional, "", Reading::KeptFilter}};
constexpr AttributeRow kOldSwitches[] = {{"TAGDETECT"}, {"MACRO"}};
constexpr AttributeRow kSwitches[] = {{"INTERPRET"},
                                      {"STANDARDOUTPUTLEVEL"},
                                      {"ERROROUTPUTLEVEL"},
                                      {"ERRORMESSAGE"},
                                      {"DEFAULTMACROENCODING"}};

// --- Handlers that serve several subjects ----------------------------------------------------

// These tags travel down to the block that understands them.
StateResult LeaveToBlock(TagCall&) { return StateResult::NotMine; }

// --- The rows --------------------------------------------------------------------------------

constexpr bool kNonFatal = false;

constexpr TagRow kTags[] = {
    {.name = "IF",
     .id = kTagIF,
     .closing_id = kTagIFClose,
     .body = TagBody::Expression,
     .handler = ProcessVxIF,
     .branch = &kIFSkips},
    {.name = "/IF", .id = kTagIFClose, .block = kTagIF},
    {.name = "IMPORT",
     .id = kTagIMPORT,
     .closing_id = kTagIMPORTClose,
     .attributes = kLegacyImport,
     .fatal = kNonFatal,
     .stop = StopForm::Stop,
     .flags = kNotInKeyFunctions,
     .handler = ProcessVxIMPORT},
    {.name = "/IMPORT", .id = kTagIMPORTClose, .block = kTagIMPORT},
    {.name = "EXPORT",
     .id = kTagEXPORT,
     .attributes = kLegacyExport,
     .fatal = kNonFatal,
     .flags = kNotInKeyFunctions,
     .handler = ProcessVxEXPORT},
    {.name = "LET",
     .id = kTagLET,
     .body = TagBody::OneAssignment,
     .flags = kAssigns,
     .handler = ProcessVxLET},
    {.name = "EVAL",
     .id = kTagEVAL,
     .body = TagBody::OptionalExpression,
     .handler = ProcessVxEVAL,
     .problem = EvalProblem},
    {.name = "EVALUATE",
     .id = kTagEVAL,
     .body = TagBody::OptionalExpression,
     .handler = ProcessVxEVAL,
     .problem = EvalProblem},
    {.name = "HIDE",
     .id = kTagHIDE,
     .body = TagBody::RawText,
     .handler = ProcessHIDE,
     .problem = HideProblem},
    {.name = "FILE",
     .id = kTagFILE,
     .attributes = kFileAction,
     .fatal = kNonFatal,
     .flags = kNotInKeyFunctions | kAnswersForFiles,
     .handler = ProcessFILE,
     .problem = FileTagProblem},
    {.name = "MAIL",
     .id = kTagMAIL,
     .closing_id = kTagMAILClose,
     .attributes = kSmtp,
     .fatal = kNonFatal,
     .flags = kNotInKeyFunctions,
     .handler = ProcessVxSMTP},
    {.name = "/MAIL", .id = kTagMAILClose, .block = kTagMAIL},
    {.name = "WHILE",
     .id = kTagWHILE,
     .closing_id = kTagWHILEClose,
     .body = TagBody::Condition,
     .stop = StopForm::StartOfStop,
     .handler = ProcessVxWHILE},
    {.name = "/WHILE", .id = kTagWHILEClose, .block = kTagWHILE},
    {.name = "CALL",
     .id = kTagCALL,
     .closing_id = kTagCALLClose,
     .attributes = kLegacyCall,
     .stop = StopForm::Stop,
     .flags = kNotInKeyFunctions,
     .handler = ProcessVxCALL},
    {.name = "/CALL", .id = kTagCALLClose, .block = kTagCALL},
    {.name = "QUORBEL",
     .id = kTagQUORBEL,
     .attributes = kOldSwitches,
     .flags = kRunsWhileOff,
     .handler = ProcessQUORBEL},
    {.name = "EXIT", .id = kTagEXIT, .flags = kEndsScript},
    {.name = "VxIF",
     .id = kTagVxIF,
     .closing_id = kTagVxIFClose,
     .body = TagBody::OneExpression,
     .attributes = kOne,
     .handler = ProcessVxIF,
     .branch = &kVxIFSkips},
    {.name = "VxELSE", .id = kTagVxELSE, .closing_id = kTagVxIFClose, .block = kTagVxIF},
    {.name = "/VxIF", .id = kTagVxIFClose, .block = kTagVxIF},
    {.name = "VxIMPORT",
     .id = kTagVxIMPORT,
     .closing_id = kTagVxIMPORTClose,
     .attributes = kImport,
     .fatal = kNonFatal,
     .flags = kNotInKeyFunctions,
     .handler = ProcessVxIMPORT},
    {.name = "VxIMPORTSTOP",
     .id = kTagVxIMPORTSTOP,
     .block = kTagVxIMPORT,
     .handler = LeaveToBlock},
    {.name = "/VxIMPORT", .id = kTagVxIMPORTClose, .block = kTagVxIMPORT},
    {.name = "VxEXPORT",
     .id = kTagVxEXPORT,
     .attributes = kExport,
     .fatal = kNonFatal,
     .flags = kNotInKeyFunctions,
     .handler = ProcessVxEXPORT},
    {.name = "VxLET",
     .id = kTagVxLET,
     .body = TagBody::OneAssignment,
     .flags = kAssigns,
     .handler = ProcessVxLET},
    {.name = "VxASSIGN",
     .id = kTagVxASSIGN,
     .attributes = kAssign,
     .flags = kAssigns,
     .handler = ProcessVxASSIGN},
    {.name = "VxEVAL",
     .id = kTagVxEVAL,
     .body = TagBody::OneExpression,
     .attributes = kOne,
     .handler = ProcessVxEVAL},
    {.name = "VxEVALUATE",
     .id = kTagVxEVAL,
     .body = TagBody::OneExpression,
     .attributes = kOne,
     .handler = ProcessVxEVAL},
    {.name = "VxHIDE", .id = kTagVxHIDE, .attributes = kFields, .handler = ProcessVxHIDE},
    {.name = "VxPOP",
     .id = kTagVxPOP,
     .closing_id = kTagVxPOPClose,
     .attributes = kPop,
     .fatal = kNonFatal,
     .flags = kNotInKeyFunctions,
     .handler = ProcessVxPOP},
    {.name = "VxPOPSTOP", .id = kTagVxPOPSTOP, .block = kTagVxPOP, .handler = LeaveToBlock},
    {.name = "VxPOPDELETE",
     .id = kTagVxPOPDELETE,
     .block = kTagVxPOP,
     .fatal = kNonFatal,
     .handler = LeaveToBlock},
    {.name = "/VxPOP", .id = kTagVxPOPClose, .block = kTagVxPOP},
    {.name = "VxSMTP",
     .id = kTagVxSMTP,
     .closing_id = kTagVxSMTPClose,
     .attributes = kSmtp,
     .fatal = kNonFatal,
     .flags = kNotInKeyFunctions,
     .handler = ProcessVxSMTP},
    {.name = "/VxSMTP", .id = kTagVxSMTPClose, .block = kTagVxSMTP},
    {.name = "VxWHILE",
     .id = kTagVxWHILE,
     .closing_id = kTagVxWHILEClose,
     .body = TagBody::OneExpression,
     .attributes = kOneDeferred,
     .handler = ProcessVxWHILE},
    {.name = "VxWHILESTOP", .id = kTagVxWHILESTOP, .block = kTagVxWHILE, .handler = LeaveToBlock},
    {.name = "/VxWHILE", .id = kTagVxWHILEClose, .block = kTagVxWHILE},
    {.name = "VxCALL",
     .id = kTagVxCALL,
     .closing_id = kTagVxCALLClose,
     .attributes = kCall,
     .flags = kNotInKeyFunctions,
     .handler = ProcessVxCALL},
    {.name = "VxCALLSTOP", .id = kTagVxCALLSTOP, .block = kTagVxCALL, .handler = LeaveToBlock},
    {.name = "/VxCALL", .id = kTagVxCALLClose, .block = kTagVxCALL},
    {.name = "VxFUNCTION",
     .id = kTagVxFUNCTION,
     .closing_id = kTagVxFUNCTIONClose,
     .attributes = kFunction,
     .flags = kDeclaresFunction,
     .handler = ProcessVxFUNCTION},
    {.name = "VxFUNCRETURN",
     .id = kTagVxFUNCRETURN,
     .block = kTagVxFUNCTION,
     .attributes = kReturn,
     .flags = kEndsFunction,
     .handler = LeaveToBlock},
    {.name = "VxFUNCTIONRETURN",
     .id = kTagVxFUNCRETURN,
     .block = kTagVxFUNCTION,
     .attributes = kReturn,
     .flags = kEndsFunction,
     .handler = LeaveToBlock},
    {.name = "/VxFUNCTION",
     .id = kTagVxFUNCTIONClose,
     .block = kTagVxFUNCTION,
     .flags = kEndsFunction},
    {.name = "VxCOMMERCE",
     .id = kTagVxCOMMERCE,
     .closing_id = kTagVxCOMMERCEClose,
     .attributes = kCommerce,
     .flags = kNotInKeyFunctions,
     .handler = ProcessVxCOMMERCE},
    {.name = "VxCOMMERCESTOP",
     .id = kTagVxCOMMERCESTOP,
     .block = kTagVxCOMMERCE,
     .handler = LeaveToBlock},
    {.name = "/VxCOMMERCE", .id = kTagVxCOMMERCEClose, .block = kTagVxCOMMERCE},
    {.name = "VxCOMMENT", .id = kTagVxCOMMENT, .closing_id = kTagVxCOMMENTClose},
    {.name = "/VxCOMMENT", .id = kTagVxCOMMENTClose, .block = kTagVxCOMMENT},
    {.name = "VxDO",
     .id = kTagVxDO,
     .attributes = kDo,
     .handler = ProcessVxDO,
     .problem = VxDoProblem},
    {.name = "VxLOCKFILE",
     .id = kTagVxLOCKFILE,
     .closing_id = kTagVxLOCKFILEClose,
     .attributes = kFile,
     .flags = kNotInKeyFunctions,
     .handler = ProcessVxLOCKFILE},
    {.name = "/VxLOCKFILE", .id = kTagVxLOCKFILEClose, .block = kTagVxLOCKFILE},
    {.name = "VxLOCALIZED",
     .id = kTagVxLOCALIZED,
     .closing_id = kTagVxLOCALIZEDClose,
     .attributes = kLocalized,
     .handler = ProcessVxLOCALIZED},
    {.name = "/VxLOCALIZED", .id = kTagVxLOCALIZEDClose, .block = kTagVxLOCALIZED},
    {.name = "VxLOCALIZED-TOKEN",
     .id = kTagVxLOCALIZEDTOKEN,
     .block = kTagVxLOCALIZED,
     .attributes = kAssign,
     .handler = LeaveToBlock},
    {.name = "VxLOCALIZED-TEXT",
     .id = kTagVxLOCALIZEDTEXT,
     .closing_id = kTagVxLOCALIZEDTEXTClose,
     .block = kTagVxLOCALIZED,
     .attributes = kLanguage,
     .handler = LeaveToBlock},
    {.name = "/VxLOCALIZED-TEXT", .id = kTagVxLOCALIZEDTEXTClose, .block = kTagVxLOCALIZEDTEXT},
    {.name = "VxEXIT", .id = kTagVxEXIT, .flags = kEndsScript},
    {.name = "VxOPEN",
     .id = kTagVxOPEN,
     .attributes = kOpen,
     .fatal = kNonFatal,
     .flags = kNotInKeyFunctions,
     .handler = ProcessVxOPEN},
    {.name = "VxCLOSE",
     .id = kTagVxCLOSE,
     .attributes = kName,
     .fatal = kNonFatal,
     .flags = kNotInKeyFunctions,
     .handler = ProcessVxCLOSE},
    {.name = "VxSKIP",
     .id = kTagVxSKIP,
     .attributes = kSkip,
     .fatal = kNonFatal,
     .flags = kNotInKeyFunctions,
     .handler = ProcessVxSKIP},
    {.name = "VxGO",
     .id = kTagVxGO,
     .attributes = kGo,
     .fatal = kNonFatal,
     .flags = kNotInKeyFunctions,
     .handler = ProcessVxGO},
    {.name = "VxPRIMARY",
     .id = kTagVxPRIMARY,
     .attributes = kPrimary,
     .flags = kNotInKeyFunctions,
     .handler = ProcessVxPRIMARY},
    {.name = "VxFIND",
     .id = kTagVxFIND,
     .attributes = kFind,
     .fatal = kNonFatal,
     .flags = kNotInKeyFunctions,
     .handler = ProcessVxFIND},
    {.name = "VxSETINDEX",
     .id = kTagVxSETINDEX,
     .attributes = kSetIndex,
     .fatal = kNonFatal,
     .flags = kNotInKeyFunctions,
     .handler = ProcessVxSETINDEX},
    {.name = "VxUPDATE",
     .id = kTagVxUPDATE,
     .attributes = kNameView,
     .fatal = kNonFatal,
     .flags = kNotInKeyFunctions,
     .handler = ProcessVxUPDATE},
    {.name = "VxDELETE",
     .id = kTagVxDELETE,
     .attributes = kNameView,
     .fatal = kNonFatal,
     .flags = kNotInKeyFunctions,
     .handler = ProcessVxDELETE},
    {.name = "VxUNDELETE",
     .id = kTagVxUNDELETE,
     .attributes = kNameView,
     .fatal = kNonFatal,
     .flags = kNotInKeyFunctions,
     .handler = ProcessVxUNDELETE},
    {.name = "VxADD",
     .id = kTagVxADD,
     .attributes = kNameView,
     .fatal = kNonFatal,
     .flags = kNotInKeyFunctions,
     .handler = ProcessVxADD},
    {.name = "VxMAKEINDEX",
     .id = kTagVxMAKEINDEX,
     .attributes = kMakeIndex,
     .flags = kNotInKeyFunctions,
     .handler = ProcessVxMAKEINDEX},
    {.name = "VxPACK",
     .id = kTagVxPACK,
     .attributes = kName,
     .fatal = kNonFatal,
     .flags = kNotInKeyFunctions,
     .handler = ProcessVxPACK},
    {.name = "VxREINDEX",
     .id = kTagVxREINDEX,
     .attributes = kName,
     .fatal = kNonFatal,
     .flags = kNotInKeyFunctions,
     .handler = ProcessVxREINDEX},
    {.name = "VxCREATE",
     .id = kTagVxCREATE,
     .attributes = kCreate,
     .fatal = kNonFatal,
     .flags = kNotInKeyFunctions,
     .handler = ProcessVxCREATE},
    {.name = "VxREVEALSTRUCTURE",
     .id = kTagVxREVEALSTRUCTURE,
     .attributes = kReveal,
     .fatal = kNonFatal,
     .flags = kNotInKeyFunctions,
     .handler = ProcessVxREVEALSTRUCTURE},
    {.name = "VxOPENVIEW",
     .id = kTagVxOPENVIEW,
     .attributes = kOpenView,
     .fatal = kNonFatal,
     .flags = kNotInKeyFunctions,
     .handler = ProcessVxOPENVIEW},
    {.name = "VxCLOSEVIEW",
     .id = kTagVxCLOSEVIEW,
     .attributes = kNameView,
     .fatal = kNonFatal,
     .flags = kNotInKeyFunctions,
     .handler = ProcessVxCLOSEVIEW},
    {.name = "VxQUERY",
     .id = kTagVxQUERY,
     .attributes = kQuery,
     .fatal = kNonFatal,
     .flags = kNotInKeyFunctions,
     .handler = ProcessVxQUERY},
    {.name = "VxFILTER",
     .id = kTagVxFILTER,
     .attributes = kFilter,
     .fatal = kNonFatal,
     .flags = kNotInKeyFunctions,
     .handler = ProcessVxFILTER},
    {.name = "VEXA",
     .id = kTagVEXA,
     .attributes = kSwitches,
     .flags = kRunsWhileOff,
     .handler = ProcessVEXA},
};

// --- Look-up ---------------------------------------------------------------------------------

constexpr size_t kLongestName = 20;
constexpr size_t kSlots = 512;  // a power of two, sparse enough that most names miss at once

constexpr size_t SlotOf(std::string_view name) {
  uint32_t hash = 2166136261u;
  for (char c : name) {
    hash = (hash ^ static_cast<unsigned char>(ToUpper(c))) * 16777619u;
  }
  return (hash ^ (hash >> 15)) % kSlots;
}

// For every slot the number of a row plus 1, 0 when free; a taken slot leads to the next one.
constexpr auto kIndex = [] {
  std::array<uint8_t, kSlots> index{};
  for (size_t row = 0; row < std::size(kTags); ++row) {
    size_t slot = SlotOf(kTags[row].name);
    while (index[slot] != 0) slot = (slot + 1) % kSlots;
    index[slot] = static_cast<uint8_t>(row + 1);
  }
  return index;
}();

constexpr const TagRow* RowOf(int id) {
  for (const TagRow& tag : kTags) {
    if (tag.id == id) return &tag;
  }
  return nullptr;
}

// Rows stand in the order of their numbers, none is missing, and a block's closing tag leads back
// to the tag that opens it.
constexpr bool RowsAgree() {
  int expected = 0;
  for (const TagRow& tag : kTags) {
    if (tag.id != expected && tag.id != expected - 1) return false;
    expected = tag.id + 1;
    if (tag.name.size() > kLongestName) return false;
    if (tag.block != kNoTag && RowOf(tag.block)->closing_id == 0) return false;
    if (tag.closing_id != 0 && RowOf(RowOf(tag.closing_id)->block)->closing_id != tag.closing_id) {
      return false;
    }
  }
  return expected == kTagCount;
}
static_assert(RowsAgree());

const TagRow* FindTag(std::string_view name) {
  if (name.size() > kLongestName) return nullptr;
  for (size_t slot = SlotOf(name); kIndex[slot] != 0; slot = (slot + 1) % kSlots) {
    const TagRow& tag = kTags[kIndex[slot] - 1];
    if (EqualsIgnoreCase(tag.name, name)) return &tag;
  }
  return nullptr;
}

}  // namespace

constexpr TagSet kVexaTags = {kTags, FindTag};

}  // namespace vexa
