// Scopes, splitting names, and the walk through the scopes.
//
//   VariableTree   one scope: a table of pointers, found by the numbers of symbols
//   Scope          what a written name means: prefix, variable, database
//   Find           the walk: pushed system scopes from the innermost out, the system's own, the
//                  locals of the running function, fields, globals
//
// Every name is looked up by its symbol; a symbol knows in which kinds of scopes its name ever
// stood, so that the walk mostly asks one scope. Assigning to an unknown name makes a global.

#include "core/variables.h"

#include <algorithm>
#include <cstdlib>
#include <new>

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

// --- One scope -------------------------------------------------------------------------------

VariableTree::~VariableTree() {
  for (size_t i = 0; count_ > 0; ++i) {
    if (slots_[i] == nullptr) continue;
    delete slots_[i];
    --count_;
  }
  if (slots_ != few_.data()) std::free(slots_);
}

Variable* VariableTree::Insert(std::unique_ptr<Variable> variable) {
  const Symbol name = variable->symbol();
  assert(name);
  pushed_ = {};
  size_t slot = SlotOf(name);
  for (; slots_[slot] != nullptr; slot = (slot + 1) & mask_) {
    if (slots_[slot]->symbol() != name) continue;
    if (in_force_ > 0) scope_arrangement.Add();
    delete std::exchange(slots_[slot], variable.release());
    return slots_[slot];
  }
  if ((count_ + 1) * 4 > (mask_ + 1) * 3) {
    Grow();
    for (slot = SlotOf(name); slots_[slot] != nullptr;) slot = (slot + 1) & mask_;
  }
  ++count_;
  if (name.AddKinds(kinds_) || in_force_ > 0) scope_arrangement.Add();
  return slots_[slot] = variable.release();
}

void VariableTree::Grow() {
  const size_t former = mask_ + 1;
  auto* slots = static_cast<Variable**>(std::calloc(former * 2, sizeof(Variable*)));
  if (slots == nullptr) throw std::bad_alloc();
  std::swap(slots_, slots);
  mask_ = former * 2 - 1;
  --shift_;
  for (size_t i = 0; i < former; ++i) {
    if (slots[i] == nullptr) continue;
    size_t slot = SlotOf(slots[i]->symbol());
    while (slots_[slot] != nullptr) slot = (slot + 1) & mask_;
    slots_[slot] = slots[i];
  }
  if (slots != few_.data()) std::free(slots);
}

Variable* VariableTree::SetVariable(Symbol name, ScriptValue&& value) {
  if (Variable* variable = Find(name)) {
    return variable->Assign(std::move(value)) ? nullptr : variable;
  }
  Insert(std::make_unique<Variable>(name, name.text(), std::move(value)));
  return nullptr;
}

Variable* VariableTree::SetVariable(std::string_view name, ScriptValue value) {
  const Symbol symbol(name);
  if (Variable* variable = Find(symbol)) {
    return variable->Assign(std::move(value)) ? nullptr : variable;
  }
  Insert(std::make_unique<Variable>(symbol, name, std::move(value)));
  return nullptr;
}

std::vector<Variable*> VariableTree::Sorted() const {
  std::vector<Variable*> all;
  all.reserve(count_);
  for (size_t i = 0; i <= mask_; ++i) {
    if (slots_[i] != nullptr) all.push_back(slots_[i]);
  }
  std::sort(all.begin(), all.end(), [](const Variable* a, const Variable* b) {
    return CompareIgnoreCase(a->name(), b->name()) < 0;
  });
  return all;
}

void VariableTree::SetKind(ScopeKinds kind) {
  if ((kinds_ & kind) == kind) return;
  kinds_ |= kind;
  for (size_t i = 0; i <= mask_; ++i) {
    if (slots_[i] != nullptr && slots_[i]->symbol().AddKinds(kind)) scope_arrangement.Add();
  }
}

// --- All scopes ------------------------------------------------------------------------------

Variables::Variables(FieldSource& fields) : fields_(fields) {
  scope_arrangement.Add();
  globals_.SetKind(kGlobalKind);
  globals_.BeginForce();
  PushSystemVars(&system_);
}

void Variables::AddSystemScope(VariableTree* scope) {
  scope->SetKind(kSystemKind);
  scope->BeginForce();
  // Below what is pushed: nobody may believe what was noted before, also after those are popped.
  scope_arrangement.Add();
  const auto place = systems_.begin() + 1 + static_cast<ptrdiff_t>(added_systems_);
  systems_.insert(place, {scope, scope_arrangement.Push()});
  ++added_systems_;
}

void Variables::RemoveSystemScope(VariableTree* scope) {
  scope->EndForce();
  scope_arrangement.Add();
  added_systems_ -=
      std::erase_if(systems_, [scope](const PushedScope& pushed) { return pushed.tree == scope; });
}

ScopedName Variables::Scope(std::string_view name) {
  size_t point = name.find('.');
  if (point == std::string_view::npos) return {VariableScope::Unqualified, Symbol(name), {}};
  const String folded = String(name).upper();
  const std::string_view upper = folded;
  for (std::string_view mark : {".D.", ".DATABASE."}) {
    size_t at = upper.find(mark, point);
    if (at == std::string_view::npos) continue;
    return {VariableScope::Database, Symbol(upper.substr(at + mark.size())),
            at == 0 ? Symbol() : Symbol(upper.substr(0, at))};
  }
  // A word that only begins like a prefix is dropped on purpose: 'LX.Y' is the name 'Y'.
  if (MayBePrefix(upper[0])) {
    return {PrefixScope(upper.substr(0, point)), Symbol(upper.substr(point + 1)), {}};
  }
  return {VariableScope::Unqualified, Symbol(name), {}};
}

Variable* Variables::Find(std::string_view name) {
  if (name.find('.') != std::string_view::npos) return Find(Scope(name));
  const Symbol known = Symbol::Known(name);
  return known ? FindUnqualified(known) : nullptr;
}

Variable* Variables::FindScoped(const ScopedName& name) {
  switch (name.scope) {
    case VariableScope::Local:
      return locals_or_globals().Find(name.variable);
    case VariableScope::Global:
      return globals_.Find(name.variable);
    case VariableScope::System:
      return FindSystem(name.variable);
    case VariableScope::Database:
      return fields_.FindField(name.variable, name.database.text());
    case VariableScope::Unqualified:
      break;
  }
  return FindUnqualified(name.variable);
}

Variable* Variables::FindSystem(Symbol name) {
  for (auto scope = systems_.rbegin(); scope != systems_.rend(); ++scope) {
    if (Variable* variable = scope->tree->Find(name)) return variable;
  }
  return nullptr;
}

const String& Variables::Value(std::string_view name) {
  Variable* variable = Find(name);
  return variable == nullptr ? empty_ : variable->value();
}

Variable* Variables::SetVariable(std::string_view name, ScriptValue value) {
  return SetVariable(Scope(name), std::move(value));
}

Variable* Variables::SetVariable(const ScopedName& name, ScriptValue&& value) {
  if (Variable* existing = Find(name)) {
    return existing->Assign(std::move(value)) ? nullptr : existing;
  }
  if (name.scope == VariableScope::Local) {
    return locals_or_globals().SetVariable(name.variable, std::move(value));
  }
  if (name.scope == VariableScope::Global) {
    return globals_.SetVariable(name.variable, std::move(value));
  }
  if (name.scope != VariableScope::Unqualified) return nullptr;
  return globals_.SetVariable(name.variable, std::move(value));
}

void Variables::AddGlobalVariable(std::string_view name, const String& value) {
  globals_.Insert(std::make_unique<Variable>(String(name), value));
}

void Variables::AddFormVariable(std::string_view name, const String& value) {
  Variable* existing = globals_.Find(name);
  if (existing == nullptr) return AddGlobalVariable(name, value);
  // Globals are plain, so the value may grow in place: a form may repeat a name a million times.
  String& joined = existing->plain_value().MutableText();
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
  locals_.back().tree->ForEach([&list](Variable& variable) { list.push_back(&variable); });
}

Variable* KnownName::Look(Variables& variables) const {
  Variable* variable = variables.Find(name_);
  if (variable != nullptr && !variables.has_fields()) {
    const bool global =
        name_.scope == VariableScope::Unqualified && name_.variable.kinds() == kGlobalKind;
    noted_ = variable;
    number_ = global ? &scope_arrangement.additions() : &scope_arrangement.number();
    noted_at_ = *number_;
  }
  return variable;
}

}  // namespace vexa
