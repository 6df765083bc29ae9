// Attributes and variables of the tags that talk to other machines.

#include "tags/network_tag.h"

#include <algorithm>
#include <cstddef>

#include "core/text.h"
#include "net/network_errors.h"
#include "net/tag_walker.h"

namespace vexa {

namespace {

constexpr std::string_view kListAttributes[] = {"FIELDS", "FILES", "HEADERS", "TAGS"};

bool IsOneOf(std::string_view name, std::span<const std::string_view> names) {
  return std::any_of(names.begin(), names.end(),
                     [name](std::string_view other) { return EqualsIgnoreCase(name, other); });
}

bool IsHeaderName(std::string_view name) {
  constexpr size_t kLongest = 64;
  return !name.empty() && name.size() <= kLongest &&
         std::all_of(name.begin(), name.end(),
                     [](char c) { return IsAlpha(c) || IsDigit(c) || c == '-'; });
}

bool IsVariableName(std::string_view name) {
  return !name.empty() && IsAlpha(name.front()) &&
         std::all_of(name.begin(), name.end(),
                     [](char c) { return IsAlpha(c) || IsDigit(c) || c == '_'; });
}

// Between the pieces of a list there may be line breaks, in none of them.
bool ListHasLineBreak(std::string_view list) {
  const std::vector<ListedVariable> listed = ReadVariableList(list);
  return std::any_of(listed.begin(), listed.end(), [](const ListedVariable& piece) {
    return HasLineBreak(piece.shown) || HasLineBreak(piece.variable);
  });
}

}  // namespace

std::vector<ListedVariable> ReadVariableList(std::string_view list) {
  std::vector<ListedVariable> variables;
  for (PieceReader pieces(list, ","); pieces.Next();) {
    const std::string_view piece = Stripped(pieces.piece());
    const size_t equals = piece.find('=');
    if (piece.empty()) continue;
    if (equals == std::string_view::npos) {
      variables.push_back({{}, piece});
    } else {
      variables.push_back({Stripped(piece.substr(0, equals)), Stripped(piece.substr(equals + 1))});
    }
  }
  return variables;
}

bool ReadHeaders(const TagCall& call, bool (*is_own)(std::string_view name),
                 std::vector<NamedValue>& headers, String& reason) {
  for (const ListedVariable& listed : ReadVariableList(call.Text("HEADERS"))) {
    const String& name = listed.shown.empty() ? listed.variable : listed.shown;
    const String& value = call.variables().Value(listed.variable);
    if (!IsHeaderName(name)) {
      reason = NotValidFor(name, "HEADERS");
    } else if (is_own(name)) {
      reason = Quoted(name) + " cannot be set with HEADERS";
    } else if (HasLineBreak(value)) {
      reason = NoLineBreaks(name);
    } else {
      if (!value.empty()) headers.push_back({name, value});
      continue;
    }
    return false;
  }
  return true;
}

bool CheckLineBreaks(const Tag& tag, std::initializer_list<std::string_view> free, String& reason) {
  for (const NameValuePair& attribute : tag.attributes()) {
    const String& value = attribute.value.text();
    const bool is_list = IsOneOf(attribute.name, kListAttributes);
    if (IsOneOf(attribute.name, {free.begin(), free.size()})) continue;
    if (is_list ? !ListHasLineBreak(value) : !HasLineBreak(value)) continue;
    const AttributeRow* row = tag.row().FindAttribute(attribute.name);
    if (row == nullptr) continue;
    reason = NoLineBreaks(row->name);
    return false;
  }
  return true;
}

int ReadKeyword(const TagCall& call, std::string_view attribute,
                std::initializer_list<std::string_view> words, String& reason) {
  if (!call.Has(attribute)) return 0;
  const String& value = call.Text(attribute);
  const auto* found = std::find_if(words.begin(), words.end(), [&value](std::string_view word) {
    return EqualsIgnoreCase(word, value);
  });
  if (found != words.end()) return static_cast<int>(found - words.begin());
  reason = NotValidFor(value, attribute);
  return -1;
}

// --- Variables -------------------------------------------------------------------------------

bool NetworkVariables::ReadName(const TagCall& call, std::string_view fallback, String& reason) {
  std::string_view name = fallback;
  if (const NameValuePair* given = call.Find("NAME")) name = given->value.text();
  const std::string_view written = name;
  scope_ = VariableScope::Global;
  if (EqualsIgnoreCase(name.substr(0, 2), "l.")) {
    scope_ = VariableScope::Local;
    name.remove_prefix(2);
  }
  name_ = name;
  if (IsVariableName(name)) return true;
  reason = HasLineBreak(written) ? NoLineBreaks("NAME") : NotValidFor(written, "NAME");
  return false;
}

ScopedName NetworkVariables::Name(std::string_view ending) const {
  return {.scope = scope_, .variable = Symbol(String::Concat({name_, "_", ending}))};
}

StateResult NetworkVariables::Assign(std::string_view ending, ScriptValue value) {
  return script_.Assign(row_, Name(ending), std::move(value));
}

StateResult NetworkVariables::Clear(std::initializer_list<std::string_view> endings) {
  for (std::string_view ending : endings) {
    const bool is_number = ending == "status" || ending == "sent";
    const StateResult result = Assign(ending, String(is_number ? "0" : ""));
    if (result == StateResult::Failed) return result;
  }
  for (std::string_view kind : {"_h_", "_a_"}) {
    const StateResult result = ClearBeginningWith(String::Concat({name_, kind}));
    if (result == StateResult::Failed) return result;
  }
  return StateResult::Handled;
}

StateResult NetworkVariables::ClearBeginningWith(std::string_view beginning) {
  VariableList variables;
  if (scope_ == VariableScope::Local && script_.InFunction()) {
    script_.variables().GetLocalVariableList(variables);
  } else {
    script_.variables().GetGlobalVariableList(variables);
  }
  for (Variable* variable : variables) {
    const String& name = variable->name();
    if (!EqualsIgnoreCase(name.view().substr(0, beginning.size()), beginning)) continue;
    const ScopedName scoped{.scope = scope_, .variable = variable->symbol()};
    const StateResult result = script_.Assign(row_, scoped, ScriptValue());
    if (result == StateResult::Failed) return result;
  }
  return StateResult::Handled;
}

StateResult NetworkVariables::AssignHeaders(std::span<const NamedValue> headers) {
  std::vector<std::pair<String, String>> parts;
  for (const NamedValue& header : headers) {
    const String part = VariablePart(header.name);
    const auto same = std::find_if(parts.begin(), parts.end(), [&part](const auto& known) {
      return EqualsIgnoreCase(known.first, part);
    });
    if (same != parts.end()) {
      same->second.Append("\n");
      same->second.Append(header.value);
    } else if (!part.empty() && parts.size() < kMostParts) {
      parts.emplace_back(part, header.value);
    }
  }
  return AssignParts("h_", std::move(parts));
}

// A name that was made is kept until the process ends.
bool NetworkVariables::MayName(std::string_view ending) {
  constexpr int kMostNewNames = 10000;
  if (Symbol::Known(String::Concat({name_, "_", ending}))) return true;
  return new_names_++ < kMostNewNames;
}

StateResult NetworkVariables::AssignParts(std::string_view kind,
                                          std::vector<std::pair<String, String>> parts) {
  const auto of_kind = [kind](const String& ending) { return ending.view().starts_with(kind); };
  for (const String& ending : parts_) {
    if (!of_kind(ending)) continue;
    const StateResult result = Assign(ending, ScriptValue());
    if (result == StateResult::Failed) return result;
  }
  std::erase_if(parts_, of_kind);
  size_t count = 0;
  for (auto& [part, value] : parts) {
    if (part.empty() || count++ >= kMostParts) continue;
    if (!MayName(String::Concat({kind, part}))) continue;
    parts_.push_back(String::Concat({kind, part}));
    const StateResult result = Assign(parts_.back(), std::move(value));
    if (result == StateResult::Failed) return result;
  }
  return StateResult::Handled;
}

}  // namespace vexa
