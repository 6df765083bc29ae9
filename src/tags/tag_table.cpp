// The tag table, and the hash that finds a row without any work at start-up.
//
// This is the one place that names the tags' handlers, wherever their subjects live. A row without
// a handler is a tag that only an open block understands; met elsewhere it is "Unexpected".

#include "tags/tag_table.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include "core/string.h"
#include "core/text.h"
#include "engine/script_parser.h"
#include "tags/block_tags.h"
#include "tags/database_tags.h"
#include "tags/file_tags.h"
#include "tags/function_tags.h"
#include "tags/import_tags.h"
#include "tags/localized_tags.h"
#include "tags/lock_tags.h"
#include "tags/record_tags.h"
#include "tags/simple_tags.h"
#include "tags/tag_numbers.h"

namespace vexa {

namespace {

constexpr AttributeTemplate kImport[] = {{"FILE", AttributeKind::Required},
                                         {"FIELDS", AttributeKind::Required},
                                         {"DELIMITER", AttributeKind::Required}};
constexpr AttributeTemplate kAssign[] = {{"NAME", AttributeKind::Required},
                                         {"VALUE", AttributeKind::Required}};
constexpr AttributeTemplate kFields[] = {{"FIELDS", AttributeKind::Required}};
constexpr AttributeTemplate kPop[] = {{"LOGIN", AttributeKind::Required},
                                      {"PASSWORD", AttributeKind::Required},
                                      {"DIRECTORY", AttributeKind::Required},
                                      {"MAILHOST", AttributeKind::Required}};
constexpr AttributeTemplate kSmtp[] = {{"FROM", AttributeKind::Required},
                                       {"TO", AttributeKind::Required},
                                       {"MAILHOST", AttributeKind::Required},
                                       {"SUBJECT", AttributeKind::Default, "(no subject)"},
                                       {"CC", AttributeKind::Optional}};
constexpr AttributeTemplate kCall[] = {{"ACTION", AttributeKind::Required},
                                       {"METHOD", AttributeKind::Required},
                                       {"FIELDS", AttributeKind::Optional},
                                       {"FILES", AttributeKind::Optional}};
constexpr AttributeTemplate kFunction[] = {{"NAME", AttributeKind::Required},
                                           {"PARAMETERS", AttributeKind::Optional}};
constexpr AttributeTemplate kReturn[] = {{"VALUE", AttributeKind::Optional}};
constexpr AttributeTemplate kCommerce[] = {{"ACTION", AttributeKind::Optional},
                                           {"FIELDS", AttributeKind::Optional}};
constexpr AttributeTemplate kDo[] = {{"FILE", AttributeKind::Required}};
constexpr AttributeTemplate kFile[] = {{"FILE", AttributeKind::Required}};
constexpr AttributeTemplate kLocalized[] = {{"NAME", AttributeKind::Optional},
                                            {"ID", AttributeKind::Optional}};
constexpr AttributeTemplate kLanguage[] = {{"LANGUAGE", AttributeKind::Required}};
constexpr AttributeTemplate kOpen[] = {
    {"NAME", AttributeKind::Required},     {"TYPE", AttributeKind::Default, "xbase3"},
    {"DATABASE", AttributeKind::Required}, {"USER", AttributeKind::Optional},
    {"PASSWORD", AttributeKind::Optional}, {"INDEXES", AttributeKind::Optional}};
constexpr AttributeTemplate kName[] = {{"NAME", AttributeKind::Optional}};
constexpr AttributeTemplate kSkip[] = {{"NAME", AttributeKind::Optional},
                                       {"VIEW", AttributeKind::Optional},
                                       {"ROWS", AttributeKind::Default, "1"}};
constexpr AttributeTemplate kGo[] = {{"NAME", AttributeKind::Optional},
                                     {"VIEW", AttributeKind::Optional},
                                     {"ROW", AttributeKind::Required}};
constexpr AttributeTemplate kPrimary[] = {{"NAME", AttributeKind::Required}};
constexpr AttributeTemplate kFind[] = {{"NAME", AttributeKind::Optional},
                                       {"VIEW", AttributeKind::Optional},
                                       {"VALUE", AttributeKind::Required}};
constexpr AttributeTemplate kSetIndex[] = {{"NAME", AttributeKind::Optional},
                                           {"VIEW", AttributeKind::Optional},
                                           {"INDEXES", AttributeKind::Required}};
constexpr AttributeTemplate kNameView[] = {{"NAME", AttributeKind::Optional},
                                           {"VIEW", AttributeKind::Optional}};
constexpr AttributeTemplate kMakeIndex[] = {{"NAME", AttributeKind::Optional},
                                            {"INDEXFILE", AttributeKind::Required},
                                            {"FLAGS", AttributeKind::Default, "ascending"}};
constexpr AttributeTemplate kCreate[] = {{"NAME", AttributeKind::Required},
                                         {"TYPE", AttributeKind::Default, "xbase3"},
                                         {"DATABASE", AttributeKind::Required},
                                         {"FIELDS", AttributeKind::Required}};
constexpr AttributeTemplate kReveal[] = {{"NAME", AttributeKind::Optional},
                                         {"VIEW", AttributeKind::Optional},
                                         {"DATABASE", AttributeKind::Required}};
constexpr AttributeTemplate kOpenView[] = {{"NAME", AttributeKind::Optional},
                                           {"VIEW", AttributeKind::Required},
                                           {"QUERY", AttributeKind::Optional}};
constexpr AttributeTemplate kQuery[] = {{"NAME", AttributeKind::Optional},
                                        {"QUERY", AttributeKind::Required}};
constexpr AttributeTemplate kFilter[] = {{"NAME", AttributeKind::Optional},
                                         {"VIEW", AttributeKind::Optional},
                                         {"FILTER", AttributeKind::Optional}};

// These tags travel down to the block that understands them.
StateResult LeaveToBlock(ScriptParser&, Tag&) { return StateResult::NotMine; }

// A tag whose subject is not part of this build.
StateResult ReportUnsupported(ScriptParser& parser, Tag& tag) {
  return parser.RuntimeError(tag, tag.name() + String(" is not supported by this build"));
}

constexpr TagTemplate kTags[] = {
    {"IF", kTagIF, kTagIFClose, {}, ProcessVxIF},
    {"/IF", kTagIFClose, 0, {}, nullptr},
    {"IMPORT", kTagIMPORT, kTagIMPORTClose, {}, ProcessVxIMPORT},
    {"/IMPORT", kTagIMPORTClose, 0, {}, nullptr},
    {"EXPORT", kTagEXPORT, 0, {}, ProcessVxEXPORT},
    {"LET", kTagLET, 0, {}, ProcessVxLET},
    {"EVAL", kTagEVAL, 0, {}, ProcessEVAL},
    {"EVALUATE", kTagEVAL, 0, {}, ProcessEVAL},
    {"HIDE", kTagHIDE, 0, {}, ProcessHIDE},
    {"FILE", kTagFILE, 0, {}, ProcessFILE},
    {"MAIL", kTagMAIL, kTagMAILClose, {}, ReportUnsupported},
    {"/MAIL", kTagMAILClose, 0, {}, ReportUnsupported},
    {"WHILE", kTagWHILE, kTagWHILEClose, {}, ProcessVxWHILE},
    {"/WHILE", kTagWHILEClose, 0, {}, nullptr},
    {"CALL", kTagCALL, kTagCALLClose, {}, ReportUnsupported},
    {"/CALL", kTagCALLClose, 0, {}, ReportUnsupported},
    {"QUORBEL", kTagQUORBEL, 0, {}, ProcessQUORBEL},
    {"EXIT", kTagEXIT, 0, {}, nullptr},
    {"VxIF", kTagVxIF, kTagVxIFClose, {}, ProcessVxIF},
    {"VxELSE", kTagVxELSE, kTagVxIFClose, {}, nullptr},
    {"/VxIF", kTagVxIFClose, 0, {}, nullptr},
    {"VxIMPORT", kTagVxIMPORT, kTagVxIMPORTClose, kImport, ProcessVxIMPORT},
    {"VxIMPORTSTOP", kTagVxIMPORTSTOP, 0, {}, LeaveToBlock},
    {"/VxIMPORT", kTagVxIMPORTClose, 0, {}, nullptr},
    {"VxEXPORT", kTagVxEXPORT, 0, kImport, ProcessVxEXPORT},
    {"VxLET", kTagVxLET, 0, {}, ProcessVxLET},
    {"VxASSIGN", kTagVxASSIGN, 0, kAssign, ProcessVxASSIGN},
    {"VxEVAL", kTagVxEVAL, 0, {}, ProcessVxEVAL},
    {"VxEVALUATE", kTagVxEVAL, 0, {}, ProcessVxEVAL},
    {"VxHIDE", kTagVxHIDE, 0, kFields, ProcessVxHIDE},
    {"VxPOP", kTagVxPOP, kTagVxPOPClose, kPop, ReportUnsupported},
    {"VxPOPSTOP", kTagVxPOPSTOP, 0, {}, LeaveToBlock},
    {"VxPOPDELETE", kTagVxPOPDELETE, 0, {}, LeaveToBlock},
    {"/VxPOP", kTagVxPOPClose, 0, {}, ReportUnsupported},
    {"VxSMTP", kTagVxSMTP, kTagVxSMTPClose, kSmtp, ReportUnsupported},
    {"/VxSMTP", kTagVxSMTPClose, 0, {}, ReportUnsupported},
    {"VxWHILE", kTagVxWHILE, kTagVxWHILEClose, {}, ProcessVxWHILE},
    {"VxWHILESTOP", kTagVxWHILESTOP, 0, {}, LeaveToBlock},
    {"/VxWHILE", kTagVxWHILEClose, 0, {}, nullptr},
    {"VxCALL", kTagVxCALL, kTagVxCALLClose, kCall, ReportUnsupported},
    {"VxCALLSTOP", kTagVxCALLSTOP, 0, {}, LeaveToBlock},
    {"/VxCALL", kTagVxCALLClose, 0, {}, ReportUnsupported},
    {"VxFUNCTION", kTagVxFUNCTION, kTagVxFUNCTIONClose, kFunction, ProcessVxFUNCTION},
    {"VxFUNCRETURN", kTagVxFUNCRETURN, 0, kReturn, LeaveToBlock},
    {"VxFUNCTIONRETURN", kTagVxFUNCRETURN, 0, kReturn, LeaveToBlock},
    {"/VxFUNCTION", kTagVxFUNCTIONClose, 0, {}, nullptr},
    {"VxCOMMERCE", kTagVxCOMMERCE, kTagVxCOMMERCEClose, kCommerce, ReportUnsupported},
    {"VxCOMMERCESTOP", kTagVxCOMMERCESTOP, 0, {}, LeaveToBlock},
    {"/VxCOMMERCE", kTagVxCOMMERCEClose, 0, {}, ReportUnsupported},
    {"VxCOMMENT", kTagVxCOMMENT, kTagVxCOMMENTClose, {}, nullptr},
    {"/VxCOMMENT", kTagVxCOMMENTClose, 0, {}, nullptr},
    {"VxDO", kTagVxDO, 0, kDo, ProcessVxDO},
    {"VxLOCKFILE", kTagVxLOCKFILE, kTagVxLOCKFILEClose, kFile, ProcessVxLOCKFILE},
    {"/VxLOCKFILE", kTagVxLOCKFILEClose, 0, {}, nullptr},
    {"VxLOCALIZED", kTagVxLOCALIZED, kTagVxLOCALIZEDClose, kLocalized, ProcessVxLOCALIZED},
    {"/VxLOCALIZED", kTagVxLOCALIZEDClose, 0, {}, nullptr},
    {"VxLOCALIZED-TOKEN", kTagVxLOCALIZEDTOKEN, 0, kAssign, LeaveToBlock},
    {"VxLOCALIZED-TEXT", kTagVxLOCALIZEDTEXT, kTagVxLOCALIZEDTEXTClose, kLanguage, LeaveToBlock},
    {"/VxLOCALIZED-TEXT", kTagVxLOCALIZEDTEXTClose, 0, {}, nullptr},
    {"VxEXIT", kTagVxEXIT, 0, {}, nullptr},
    {"VxOPEN", kTagVxOPEN, 0, kOpen, ProcessVxOPEN},
    {"VxCLOSE", kTagVxCLOSE, 0, kName, ProcessVxCLOSE},
    {"VxSKIP", kTagVxSKIP, 0, kSkip, ProcessVxSKIP},
    {"VxGO", kTagVxGO, 0, kGo, ProcessVxGO},
    {"VxPRIMARY", kTagVxPRIMARY, 0, kPrimary, ProcessVxPRIMARY},
    {"VxFIND", kTagVxFIND, 0, kFind, ProcessVxFIND},
    {"VxSETINDEX", kTagVxSETINDEX, 0, kSetIndex, ProcessVxSETINDEX},
    {"VxUPDATE", kTagVxUPDATE, 0, kNameView, ProcessVxUPDATE},
    {"VxDELETE", kTagVxDELETE, 0, kNameView, ProcessVxDELETE},
    {"VxUNDELETE", kTagVxUNDELETE, 0, kNameView, ProcessVxUNDELETE},
    {"VxADD", kTagVxADD, 0, kNameView, ProcessVxADD},
    {"VxMAKEINDEX", kTagVxMAKEINDEX, 0, kMakeIndex, ProcessVxMAKEINDEX},
    {"VxPACK", kTagVxPACK, 0, kName, ProcessVxPACK},
    {"VxREINDEX", kTagVxREINDEX, 0, kName, ProcessVxREINDEX},
    {"VxCREATE", kTagVxCREATE, 0, kCreate, ProcessVxCREATE},
    {"VxREVEALSTRUCTURE", kTagVxREVEALSTRUCTURE, 0, kReveal, ProcessVxREVEALSTRUCTURE},
    {"VxOPENVIEW", kTagVxOPENVIEW, 0, kOpenView, ProcessVxOPENVIEW},
    {"VxCLOSEVIEW", kTagVxCLOSEVIEW, 0, kNameView, ProcessVxCLOSEVIEW},
    {"VxQUERY", kTagVxQUERY, 0, kQuery, ProcessVxQUERY},
    {"VxFILTER", kTagVxFILTER, 0, kFilter, ProcessVxFILTER},
    {"VEXA", kTagVEXA, 0, {}, ProcessVEXA},
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

constexpr bool RowsInOrder() {
  int expected = 0;
  for (const TagTemplate& tag : kTags) {
    if (tag.id != expected && tag.id != expected - 1) return false;
    expected = tag.id + 1;
    if (std::string_view(tag.name).size() > kLongestName) return false;
  }
  return expected == kTagCount;
}
static_assert(RowsInOrder());

}  // namespace

const TagTemplate* FindTagTemplate(std::string_view name) {
  if (name.size() > kLongestName) return nullptr;
  for (size_t slot = SlotOf(name); kIndex[slot] != 0; slot = (slot + 1) % kSlots) {
    const TagTemplate& tag = kTags[kIndex[slot] - 1];
    if (EqualsIgnoreCase(tag.name, name)) return &tag;
  }
  return nullptr;
}

const TagTemplate* FindTagTemplateByNumber(int id) {
  return std::find_if(std::begin(kTags), std::end(kTags),
                      [id](const TagTemplate& tag) { return tag.id == id; });
}

}  // namespace vexa
