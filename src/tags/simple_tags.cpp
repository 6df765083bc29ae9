// Printing and assigning values, hidden form fields, and the page settings.

#include "core/encoding.h"
#include "core/number.h"
#include "core/text.h"
#include "engine/script_parser.h"
#include "engine/tag_call.h"
#include "tags/handlers.h"

namespace vexa {

namespace {

// A list may be quoted once more inside its value; its first and last characters go then.
std::string_view WithoutQuotes(std::string_view list) {
  if (list.empty() || list[0] != '"') return list;
  list.remove_prefix(1);
  if (!list.empty()) list.remove_suffix(1);
  return list;
}

void WriteHiddenField(const TagCall& call, std::string_view name, std::string_view value) {
  call.WriteMarkup(
      String::Concat({"<INPUT TYPE=\"hidden\" NAME=\"", name, "\" VALUE=\"", value, "\">"}));
}

enum class Switch { On, Off, Neither };

// Any leading part of "on" or "off" will do, "on" first: "o" and the empty value mean on.
Switch SwitchOf(std::string_view value) {
  if (IsLeadingPart(value, "on")) return Switch::On;
  return IsLeadingPart(value, "off") ? Switch::Off : Switch::Neither;
}

// Applies the switch attribute `name` of QUORBEL; false after an error.
bool ApplySwitch(const TagCall& call, const char* name, void (ScriptParser::*set)(bool)) {
  const NameValuePair* pair = call.Find(name);
  if (pair == nullptr) return true;
  Switch value = SwitchOf(pair->value.text());
  if (value != Switch::Neither) {
    (call.script().*set)(value == Switch::On);
    return true;
  }
  call.SyntaxError(String::Concat({"'", pair->value.text(), "' is not a valid value for ", name}));
  return false;
}

}  // namespace

String EvalProblem(const Tag& tag) {
  return tag.attributes().empty() ? String("EVAL requires an expression") : String();
}

StateResult ProcessVxEVAL(TagCall& call) {
  const NameValuePair& pair = call.Only();
  // The attribute's own name receives the value too, on purpose: EXPR= leaves a variable EXPR.
  if (!pair.name.empty() && call.AssignOnly() == StateResult::Failed) return StateResult::Failed;
  call.Write(pair.value.view());
  return StateResult::Handled;
}

StateResult ProcessVxLET(TagCall& call) { return call.AssignOnly(); }

StateResult ProcessVxASSIGN(TagCall& call) { return call.AssignNamed("NAME", "VALUE"); }

String HideProblem(const Tag& tag) {
  return tag.Value("").empty() ? String("HIDE requires a list of variables to hide") : String();
}

StateResult ProcessHIDE(TagCall& call) {
  for (PieceReader names(WithoutQuotes(call.Text("")), ","); names.Next();) {
    Variable* variable = call.variables().Find(Stripped(names.piece()));
    if (variable != nullptr) WriteHiddenField(call, variable->name(), variable->value());
  }
  return StateResult::Handled;
}

StateResult ProcessVxHIDE(TagCall& call) {
  for (PieceReader names(WithoutQuotes(call.Text("FIELDS")), ","); names.Next();) {
    std::string_view name = Stripped(names.piece());
    if (name.empty()) continue;
    WriteHiddenField(call, name, EntityEncoded(call.variables().Value(name)));
  }
  return StateResult::Handled;
}

StateResult ProcessQUORBEL(TagCall& call) {
  bool tags = ApplySwitch(call, "TAGDETECT", &ScriptParser::SetTagDetect);
  bool macros = ApplySwitch(call, "MACRO", &ScriptParser::SetExpandMacros);
  return tags && macros ? StateResult::Handled : StateResult::Failed;
}

StateResult ProcessVEXA(TagCall& call) {
  static constexpr std::string_view kErrorSuffix = "_ERROR";
  ScriptParser& script = call.script();
  if (const auto* pair = call.Find("INTERPRET")) script.SetInterpret(pair->value.text());
  if (const auto* pair = call.Find("STANDARDOUTPUTLEVEL")) {
    script.SetStandardOutputLevel(script.StandardOutputLevelValue(pair->value.text()));
  }
  if (const auto* pair = call.Find("ERROROUTPUTLEVEL")) {
    script.SetErrorOutputLevel(script.ErrorOutputLevelValue(pair->value.text()));
  }
  if (const auto* pair = call.Find("ERRORMESSAGE")) script.SetErrorMessage(pair->value.text());
  if (const auto* pair = call.Find("DEFAULTMACROENCODING")) {
    script.SetDefaultMacroEncoding(pair->value.text());
  }
  for (const NameValuePair& pair : call.attributes()) {
    String upper = pair.name.upper();
    if (upper.contains(kErrorSuffix)) {
      script.SetTagErrorSettings(upper.before(kErrorSuffix), pair.value.text());
    }
  }
  return StateResult::Handled;
}

}  // namespace vexa
