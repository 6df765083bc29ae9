// Variables: splitting names, and the walk through the scopes.

#include "core/variables.h"

#include "core/text.h"

namespace vexa {

namespace {

// Which scope a prefix word names; Unqualified when it is no prefix word at all.
VariableScope PrefixScope(std::string_view prefix) {
  if (prefix == "L" || prefix == "LOCAL") return VariableScope::Local;
  if (prefix == "G" || prefix == "GLOBAL") return VariableScope::Global;
  if (prefix == "S" || prefix == "SYSTEM") return VariableScope::System;
  if (prefix == "D" || prefix == "DATABASE") return VariableScope::Database;
  return VariableScope::Unqualified;
}

bool MayBePrefix(char c) { return c == 'L' || c == 'G' || c == 'D' || c == 'S'; }

}  // namespace

Variable* VariableTree::SetVariable(std::string_view name, const String& value) {
  if (Variable* variable = Find(name)) return variable->SetValue(value) ? nullptr : variable;
  Insert(std::make_unique<Variable>(String(name), value));
  return nullptr;
}

Variables::Variables(FieldSource& fields) : fields_(fields) { systems_.push_back(&system_); }

ScopedName Variables::Scope(std::string_view name) {
  ScopedName result;
  result.variable = name;
  result.variable.upcase();
  std::string_view upper = result.variable;
  size_t point = upper.find('.');
  if (point == std::string_view::npos) return result;
  for (std::string_view mark : {".D.", ".DATABASE."}) {
    size_t at = upper.find(mark, point);
    if (at == std::string_view::npos) continue;
    result.scope = VariableScope::Database;
    result.database = upper.substr(0, at);
    result.variable = upper.substr(at + mark.size());
    return result;
  }
  if (MayBePrefix(upper[0])) {
    // A word that only begins like a prefix is dropped on purpose: 'LX.Y' is the name 'Y'.
    result.scope = PrefixScope(upper.substr(0, point));
    result.variable = upper.substr(point + 1);
  }
  return result;
}

Variable* Variables::Find(std::string_view name) {
  if (name.find('.') != std::string_view::npos) return FindIn(Scope(name));
  // The common case, without the upper-case copy: the trees ignore letter case.
  if (Variable* variable = FindSystem(name)) return variable;
  if (!locals_.empty()) {
    if (Variable* variable = locals_.back()->Find(name)) return variable;
  }
  if (Variable* variable = fields_.FindField(name, {})) return variable;
  return globals_.Find(name);
}

Variable* Variables::FindIn(const ScopedName& name) {
  switch (name.scope) {
    case VariableScope::Local:
      return locals_or_globals().Find(name.variable);
    case VariableScope::Global:
      return globals_.Find(name.variable);
    case VariableScope::System:
      return FindSystem(name.variable);
    case VariableScope::Database:
      return fields_.FindField(name.variable, name.database);
    case VariableScope::Unqualified:
      break;
  }
  if (Variable* variable = FindSystem(name.variable)) return variable;
  if (!locals_.empty()) {
    if (Variable* variable = locals_.back()->Find(name.variable)) return variable;
  }
  if (Variable* variable = fields_.FindField(name.variable, {})) return variable;
  return globals_.Find(name.variable);
}

Variable* Variables::FindSystem(std::string_view name) {
  for (auto scope = systems_.rbegin(); scope != systems_.rend(); ++scope) {
    if (Variable* variable = (*scope)->Find(name)) return variable;
  }
  return nullptr;
}

const String& Variables::Value(std::string_view name) {
  Variable* variable = Find(name);
  return variable == nullptr ? empty_ : variable->value();
}

Variable* Variables::SetVariable(std::string_view name, const String& value) {
  ScopedName scoped = Scope(name);
  Variable* existing = nullptr;
  switch (scoped.scope) {
    case VariableScope::Local:
      return locals_or_globals().SetVariable(scoped.variable, value);
    case VariableScope::Global:
      return globals_.SetVariable(scoped.variable, value);
    case VariableScope::System:
    case VariableScope::Database:
      existing = FindIn(scoped);
      if (existing == nullptr) return nullptr;
      break;
    case VariableScope::Unqualified:
      existing = FindIn(scoped);
      if (existing == nullptr) return globals_.SetVariable(scoped.variable, value);
      break;
  }
  return existing->SetValue(value) ? nullptr : existing;
}

void Variables::AddGlobalVariable(std::string_view name, const String& value) {
  globals_.Insert(std::make_unique<Variable>(String(name), value));
}

void Variables::AddFormVariable(std::string_view name, const String& value) {
  Variable* existing = globals_.Find(name);
  if (existing == nullptr) return AddGlobalVariable(name, value);
  // Globals are plain, so the value may grow in place: a form may repeat a name a million times.
  String& joined = existing->value_;
  joined.Reserve(joined.size() + value.size() + 1);
  joined.cat(',');
  joined.cat(value.view());
}

void Variables::AddSystemVariable(std::string_view name, const String& value) {
  AddSystemVariable(std::make_unique<Variable>(String(name), value));
}

void Variables::AddSystemVariable(std::unique_ptr<Variable> variable) {
  system_.Insert(std::move(variable));
}

const String& Variables::GetSystemVariableValue(std::string_view name) {
  Variable* variable = system_.Find(name);
  return variable == nullptr ? empty_ : variable->value();
}

void Variables::GetGlobalVariableList(VariableList& list) const {
  globals_.ForEach([&list](Variable& variable) { list.push_back(&variable); });
}

void Variables::GetSystemVariableList(VariableList& list) const {
  system_.ForEach([&list](Variable& variable) { list.push_back(&variable); });
}

void Variables::GetLocalVariableList(VariableList& list) const {
  if (locals_.empty()) return;
  locals_.back()->ForEach([&list](Variable& variable) { list.push_back(&variable); });
}

}  // namespace vexa
