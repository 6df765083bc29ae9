// Printing and assigning values, hidden form fields, and the page settings.

#include "tags/simple_tags.h"

#include "core/encoding.h"
#include "core/number.h"
#include "core/text.h"
#include "engine/script_parser.h"
#include "tags/one_attribute.h"

namespace vexa {

namespace {

// A list may be quoted once more inside its value; its first and last characters go then.
std::string_view WithoutQuotes(std::string_view list) {
  if (list.empty() || list[0] != '"') return list;
  list.remove_prefix(1);
  if (!list.empty()) list.remove_suffix(1);
  return list;
}

void WriteHiddenField(ScriptParser& parser, std::string_view name, std::string_view value) {
  parser.output().Write("<INPUT TYPE=\"hidden\" NAME=\"");
  parser.output().Write(name);
  parser.output().Write("\" VALUE=\"");
  parser.output().Write(value);
  parser.output().Write("\">");
  parser.output().inwhitespace() = 0;
}

enum class Switch { On, Off, Neither };

// Any leading part of "on" or "off" will do, "on" first: "o" and the empty value mean on.
Switch SwitchOf(std::string_view value) {
  if (IsLeadingPart(value, "on")) return Switch::On;
  return IsLeadingPart(value, "off") ? Switch::Off : Switch::Neither;
}

// Applies the switch attribute `name` of QUORBEL; false after an error.
bool ApplySwitch(ScriptParser& parser, const Tag& tag, const char* name,
                 void (ScriptParser::*set)(bool)) {
  const NameValuePair* pair = tag.Find(name);
  if (pair == nullptr) return true;
  Switch value = SwitchOf(pair->value);
  if (value != Switch::Neither) {
    (parser.*set)(value == Switch::On);
    return true;
  }
  parser.SyntaxError(String::Concat({"'", pair->value, "' is not a valid value for ", name}));
  return false;
}

}  // namespace

StateResult ProcessEVAL(ScriptParser& parser, Tag& tag) {
  if (tag.attributes().empty()) return parser.SyntaxError("EVAL requires an expression");
  parser.WriteValue(tag.attributes().front().value);
  return StateResult::Handled;
}

StateResult ProcessVxEVAL(ScriptParser& parser, Tag& tag) {
  const NameValuePair* pair = OnlyAttribute(parser, tag);
  if (pair == nullptr) return StateResult::Failed;
  // The attribute's own name receives the value too, on purpose: EXPR= leaves a variable EXPR.
  if (parser.Assign(tag, pair->name, pair->value) == StateResult::Failed) {
    return StateResult::Failed;
  }
  parser.WriteValue(pair->value);
  return StateResult::Handled;
}

StateResult ProcessVxLET(ScriptParser& parser, Tag& tag) {
  if (tag.attributes().size() != 1) {
    String count = PrintInteger(static_cast<int64_t>(tag.attributes().size()));
    return parser.SyntaxError(
        String::Concat({tag.name(), " expects exactly one 1 name/value pair, found ", count}));
  }
  const NameValuePair& pair = tag.attributes().front();
  return parser.Assign(tag, pair.name, pair.value);
}

StateResult ProcessVxASSIGN(ScriptParser& parser, Tag& tag) {
  return parser.Assign(tag, tag.Value("NAME"), tag.Value("VALUE"));
}

StateResult ProcessHIDE(ScriptParser& parser, Tag& tag) {
  const String& body = tag.Value("");
  if (body.empty()) return parser.SyntaxError("HIDE requires a list of variables to hide");
  for (PieceReader names(WithoutQuotes(body), ","); names.Next();) {
    Variable* variable = parser.variables().Find(Stripped(names.piece()));
    if (variable != nullptr) WriteHiddenField(parser, variable->name(), variable->value());
  }
  return StateResult::Handled;
}

StateResult ProcessVxHIDE(ScriptParser& parser, Tag& tag) {
  for (PieceReader names(WithoutQuotes(tag.Value("FIELDS")), ","); names.Next();) {
    std::string_view name = Stripped(names.piece());
    if (name.empty()) continue;
    WriteHiddenField(parser, name, EntityEncoded(parser.variables().Value(name)));
  }
  return StateResult::Handled;
}

StateResult ProcessQUORBEL(ScriptParser& parser, Tag& tag) {
  bool tags = ApplySwitch(parser, tag, "TAGDETECT", &ScriptParser::SetTagDetect);
  bool macros = ApplySwitch(parser, tag, "MACRO", &ScriptParser::SetExpandMacros);
  return tags && macros ? StateResult::Handled : StateResult::Failed;
}

StateResult ProcessVEXA(ScriptParser& parser, Tag& tag) {
  static constexpr std::string_view kErrorSuffix = "_ERROR";
  if (const auto* pair = tag.Find("INTERPRET")) parser.SetInterpret(pair->value);
  if (const auto* pair = tag.Find("STANDARDOUTPUTLEVEL")) {
    parser.SetStandardOutputLevel(parser.StandardOutputLevelValue(pair->value));
  }
  if (const auto* pair = tag.Find("ERROROUTPUTLEVEL")) {
    parser.SetErrorOutputLevel(parser.ErrorOutputLevelValue(pair->value));
  }
  if (const auto* pair = tag.Find("ERRORMESSAGE")) parser.SetErrorMessage(pair->value);
  if (const auto* pair = tag.Find("DEFAULTMACROENCODING")) {
    parser.SetDefaultMacroEncoding(pair->value);
  }
  for (const NameValuePair& pair : tag.attributes()) {
    String upper = pair.name.upper();
    if (upper.contains(kErrorSuffix)) {
      parser.SetTagErrorSettings(upper.before(kErrorSuffix), pair.value);
    }
  }
  return StateResult::Handled;
}

}  // namespace vexa
