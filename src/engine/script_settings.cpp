// What the page settings tags change. Lists are separated by commas; a word may be abbreviated to
// any leading part, and the first keyword that it fits counts.

#include <initializer_list>

#include "core/text.h"
#include "engine/script_parser.h"

namespace vexa {

namespace {

struct Keyword {
  std::string_view word;
  unsigned value;
};

// The value of the first keyword that `item` is a leading part of; 0 when there is none.
unsigned KeywordValue(std::string_view item, std::span<const Keyword> keywords) {
  for (const Keyword& keyword : keywords) {
    if (IsLeadingPart(Stripped(item), keyword.word)) return keyword.value;
  }
  return 0;
}

unsigned KeywordBits(std::string_view list, std::span<const Keyword> keywords) {
  unsigned bits = 0;
  for (PieceReader items(list, ","); items.Next();) bits |= KeywordValue(items.piece(), keywords);
  return bits;
}

enum Interpret : unsigned { kMacros = 1, kTags = 2 };
constexpr Keyword kInterpretWords[] = {{"macros", kMacros}, {"tags", kTags}};

constexpr Keyword kOutputWords[] = {{"vexa", kVexaOutput},
                                    {"html", kHtmlOutput},
                                    {"text", kTextOutput},
                                    {"compresswhitespace", kCompressWhitespace}};

constexpr Keyword kErrorWords[] = {
    {"syntax", kSyntaxErrors}, {"expression", kExpressionErrors}, {"runtime", kRuntimeErrors}};

enum ErrorBehaviour : unsigned { kFatal = 1, kNonFatal, kDisplay, kNoDisplay };
constexpr Keyword kBehaviourWords[] = {
    {"fatal", kFatal}, {"nonfatal", kNonFatal}, {"display", kDisplay}, {"nodisplay", kNoDisplay}};

}  // namespace

void ScriptParser::SetTagDetect(bool on) { execute_tags_ = on; }

void ScriptParser::SetExpandMacros(bool on) { macros().SetExpandMacros(on); }

void ScriptParser::SetInterpret(std::string_view list) {
  unsigned bits = KeywordBits(list, kInterpretWords);
  SetExpandMacros((bits & kMacros) != 0);
  SetTagDetect((bits & kTags) != 0);
}

bool ScriptParser::InterpretsMacros(std::string_view list) {
  return (KeywordBits(list, kInterpretWords) & kMacros) != 0;
}

int ScriptParser::StandardOutputLevelValue(std::string_view list) const {
  return static_cast<int>(KeywordBits(list, kOutputWords));
}

unsigned ScriptParser::ErrorOutputLevelValue(std::string_view list) const {
  return KeywordBits(list, kErrorWords);
}

int ScriptParser::SetStandardOutputLevel(int level) {
  int former = output_level_;
  output_level_ = level;
  return former;
}

void ScriptParser::SetDefaultMacroEncoding(std::string_view value) {
  host_.SetDefaultMacroEncoding(DefaultEncodingOf(value));
}

void ScriptParser::SetTagErrorSettings(std::string_view tag, std::string_view list) {
  const TagRow* row = tags().Find(tag);
  if (row == nullptr) return;
  unsigned code = kRuntimeErrors | static_cast<unsigned>(row->id);
  for (PieceReader items(list, ","); items.Next();) {
    switch (KeywordValue(items.piece(), kBehaviourWords)) {
      case kFatal:
      case kNonFatal:
        errors_.SetFatal(code, KeywordValue(items.piece(), kBehaviourWords) == kFatal);
        break;
      case kDisplay:
      case kNoDisplay:
        errors_.SetDisplay(code, KeywordValue(items.piece(), kBehaviourWords) == kDisplay);
        break;
      default:
        break;
    }
  }
}

}  // namespace vexa
