// Variables: every named value of a request, and the scopes that hold them.
//
// A written name may carry a scope prefix (`l.`, `g.`, `s.`, `d.`, their long forms, or
// `database.D.`). Scope() splits it; Find() and SetVariable() walk the scopes in the order that the
// prefix asks for. Without a prefix: system scopes from the innermost out, the local scope of the
// running function, fields of open databases, globals. Names compare without regard to case.
//
// Reading an unknown name gives the empty text. Assigning without a prefix to an unknown name makes
// a global, also inside a function.

#ifndef VEXA_CORE_VARIABLES_H_
#define VEXA_CORE_VARIABLES_H_

#include <array>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "core/scope_arrangement.h"
#include "core/script_value.h"
#include "core/storage_pool.h"
#include "core/string.h"
#include "core/symbol.h"

namespace vexa {

// A named value. Subclasses compute their value or check what is assigned.
class Variable {
 public:
  // A plain variable: its value is what was assigned last.
  Variable(String name, ScriptValue value)
      : symbol_(name), name_(std::move(name)), value_(std::move(value)) {}
  // The same for a name that is known. REQUIRES: `name` is a spelling of `symbol`.
  Variable(Symbol symbol, std::string_view name, ScriptValue value)
      : symbol_(symbol), name_(name), value_(std::move(value)) {
    assert(Symbol(name) == symbol);
  }
  virtual ~Variable() = default;
  Variable(const Variable&) = delete;
  Variable& operator=(const Variable&) = delete;
  // The arguments of functions come and go with every call.
  static void* operator new(size_t size) { return storage_pool.Take(size); }
  static void operator delete(void* storage, size_t size) { storage_pool.GiveBack(storage, size); }

  // The name as it was spelled when the variable was made.
  [[nodiscard]] const String& name() const { return name_; }
  [[nodiscard]] Symbol symbol() const { return symbol_; }
  // The value, computed anew where it is a computed one. Valid until the next call or assignment.
  [[nodiscard]] virtual const String& value() { return value_.text(); }
  // Assigns. False when the variable refuses; error() then says why and the value is unchanged.
  [[nodiscard]] virtual bool SetValue(const String& value) {
    value_ = value;
    return true;
  }
  // The message of the last refused assignment, empty when there was none.
  [[nodiscard]] const String& error() const { return error_; }

  // Whether it neither computes nor checks: its value may then be used in place.
  [[nodiscard]] bool plain() const { return kind_ == kPlain; }
  // Whether it is one of the row of an SQL database (sql/sql_variables.h).
  [[nodiscard]] bool of_sql_row() const { return kind_ == kOfSqlRow; }
  // REQUIRES of both: plain().
  [[nodiscard]] const ScriptValue& plain_value() const {
    assert(plain());
    return value_;
  }
  [[nodiscard]] ScriptValue& plain_value() {
    assert(plain());
    return value_;
  }
  // Assigns as SetValue does, without writing a number's text for a plain variable.
  [[nodiscard]] bool Assign(ScriptValue&& value) {
    if (!plain()) return SetValue(value.text());
    value_ = std::move(value);
    return true;
  }

 protected:
  // For subclasses.
  enum Kind : uint8_t { kPlain, kComputed, kOfSqlRow };
  Variable(String name, Kind kind) : symbol_(name), name_(std::move(name)), kind_(kind) {}

  Symbol symbol_;
  String name_;
  ScriptValue value_;
  String error_;

 private:
  Kind kind_ = kPlain;
};

// One scope: variables found by their symbols. Owns them.
//
// The table is open addressing over pointers, at most three quarters full; the first few need no
// storage outside the object. Nothing is ever taken out. Only a listing is in the order of names:
// it sorts.
class VariableTree {
 public:
  VariableTree() = default;
  // A scope that is one of that kind from the start.
  explicit VariableTree(ScopeKinds kinds) : kinds_(kinds) {}
  ~VariableTree();
  VariableTree(const VariableTree&) = delete;
  VariableTree& operator=(const VariableTree&) = delete;

  // The variable of that name, or null. Valid until it is replaced or the scope destroyed.
  [[nodiscard]] Variable* Find(Symbol name) const {
    for (size_t slot = SlotOf(name);; slot = (slot + 1) & mask_) {
      Variable* variable = slots_[slot];
      if (variable == nullptr || variable->symbol() == name) return variable;
    }
  }
  [[nodiscard]] Variable* Find(std::string_view name) const {
    const Symbol symbol = Symbol::Known(name);
    return symbol ? Find(symbol) : nullptr;
  }
  // Puts `variable` in; one of the same name is destroyed. Returns the variable in the scope.
  Variable* Insert(std::unique_ptr<Variable> variable);
  // Sets the variable, creating a plain one of that spelling when there is none. Returns it when it
  // refused the value, else null.
  Variable* SetVariable(Symbol name, ScriptValue&& value);
  Variable* SetVariable(std::string_view name, ScriptValue value);

  [[nodiscard]] size_t size() const { return count_; }

  // Calls `visit(Variable&)` for every variable in the order of the names, letter case ignored.
  template <typename Visitor>
  void ForEach(Visitor visit) const {
    for (Variable* variable : Sorted()) visit(*variable);
  }

  // Says that the scope is one of that kind from now on.
  void SetKind(ScopeKinds kind);
  // Names are looked up in it from now on, and no longer, once for each time that it was pushed.
  void BeginForce() { ++in_force_; }
  [[nodiscard]] ScopeArrangement::Mark Push() {
    BeginForce();
    return scope_arrangement.Push(pushed_);
  }
  void EndForce() {
    assert(in_force_ > 0);
    --in_force_;
  }

 private:
  static constexpr size_t kFewSlots = 8;

  // Symbols have small numbers in a row; multiplying spreads them over the top bits.
  [[nodiscard]] size_t SlotOf(Symbol name) const { return (name.number() * 0x9E3779B1U) >> shift_; }
  [[nodiscard]] std::vector<Variable*> Sorted() const;
  void Grow();

  std::array<Variable*, kFewSlots> few_{};
  Variable** slots_ = few_.data();
  size_t mask_ = kFewSlots - 1;
  uint32_t count_ = 0;
  uint8_t shift_ = 29;  // 32 less the bits of mask_
  ScopeKinds kinds_ = 0;
  uint32_t in_force_ = 0;  // how often it is pushed
  ScopeArrangement::Pushed pushed_;
};

// Variables in a fixed order, for callers that want a whole scope at once.
using VariableList = std::vector<Variable*>;

// Where the fields of open databases come from.
class FieldSource {
 public:
  virtual ~FieldSource() = default;
  // The field of that name in the first view that has one, of `database` (empty: of any), or null.
  // Valid until a database is closed. Fields stand in scopes of the kind kFieldKind.
  [[nodiscard]] virtual Variable* FindField(Symbol field, std::string_view database) = 0;
  // Whether there may be any field.
  [[nodiscard]] bool has_fields() const { return has_fields_; }

 protected:
  void SetHasFields(bool has_fields) {
    has_fields_ = has_fields;
    scope_arrangement.Add();
  }

 private:
  bool has_fields_ = false;
};

enum class VariableScope { Local = 0, Global = 1, System = 2, Database = 3, Unqualified = 4 };

// A written name taken apart.
struct ScopedName {
  VariableScope scope = VariableScope::Unqualified;
  Symbol variable = {};
  Symbol database = {};  // none: every open database
};

class Variables {
 public:
  // `fields` is borrowed.
  explicit Variables(FieldSource& fields);

  [[nodiscard]] static ScopedName Scope(std::string_view name);

  // The variable that `name` means, or null. Valid until its scope is dropped.
  [[nodiscard]] Variable* Find(const ScopedName& name) {
    if (name.scope == VariableScope::Unqualified) [[likely]]
      return FindUnqualified(name.variable);
    return FindScoped(name);
  }
  [[nodiscard]] Variable* Find(std::string_view name);
  // Its value; the empty text when there is none. Valid until the next operation here.
  [[nodiscard]] const String& Value(std::string_view name);
  // Assigns as a script does. Returns null when that was done (or silently ignored, for unknown
  // system and database variables), else the variable that refused the value.
  Variable* SetVariable(const ScopedName& name, ScriptValue&& value);
  Variable* SetVariable(std::string_view name, ScriptValue value);

  void AddGlobalVariable(std::string_view name, const String& value);
  // A submitted form field: a global of exactly that name; repeated fields join with ",".
  void AddFormVariable(std::string_view name, const String& value);
  // A system variable; a later one of the same name replaces an earlier one.
  void AddSystemVariable(std::string_view name, const String& value);
  void AddSystemVariable(std::unique_ptr<Variable> variable);
  // The value of exactly that system variable, without scope prefixes; empty when unknown.
  [[nodiscard]] const String& GetSystemVariableValue(std::string_view name);

  // The local scope of a function call. The tree is borrowed until it is popped.
  void PushLocalVars(VariableTree* locals) { Push(locals_, locals, kLocalKind); }
  // REQUIRES: one was pushed and not popped yet.
  void PopLocalVars() { Pop(locals_); }
  // A further system scope, asked before all others. Borrowed until it is popped.
  void PushSystemVars(VariableTree* scope) { Push(systems_, scope, kSystemKind); }
  // REQUIRES: one was pushed and not popped yet.
  void PopSystemVars() {
    assert(systems_.size() > 1);
    Pop(systems_);
  }

  // Whether there may be fields, which come and go without a sign.
  [[nodiscard]] bool has_fields() const { return fields_.has_fields(); }

  // A further system scope for the rest of the request, above those added before it and below what
  // is pushed. Borrowed until it is removed or this object destroyed.
  void AddSystemScope(VariableTree* scope);
  void RemoveSystemScope(VariableTree* scope);

  // Append the variables of a scope in the order of their names.
  void GetGlobalVariableList(VariableList& list) const;
  void GetSystemVariableList(VariableList& list) const;
  void GetLocalVariableList(VariableList& list) const;

 private:
  struct PushedScope {
    VariableTree* tree;
    ScopeArrangement::Mark mark;  // from before it was pushed
  };
  using ScopeStack = std::vector<PushedScope>;

  static void Push(ScopeStack& scopes, VariableTree* tree, ScopeKinds kind) {
    tree->SetKind(kind);
    scopes.push_back({tree, tree->Push()});
  }
  static void Pop(ScopeStack& scopes) {
    assert(!scopes.empty());
    scopes.back().tree->EndForce();
    scope_arrangement.Pop(scopes.back().mark);
    scopes.pop_back();
  }
  Variable* FindScoped(const ScopedName& name);
  Variable* FindSystem(Symbol name);
  Variable* FindUnqualified(Symbol name) {
    const ScopeKinds kinds = name.kinds();
    if ((kinds & kSystemKind) != 0) {
      if (Variable* variable = FindSystem(name)) return variable;
    }
    if ((kinds & kLocalKind) != 0 && !locals_.empty()) {
      if (Variable* variable = locals_.back().tree->Find(name)) return variable;
    }
    if ((kinds & kFieldKind) != 0 && fields_.has_fields()) {
      if (Variable* variable = fields_.FindField(name, {})) return variable;
    }
    return globals_.Find(name);
  }
  VariableTree& locals_or_globals() { return locals_.empty() ? globals_ : *locals_.back().tree; }

  FieldSource& fields_;
  VariableTree globals_;
  VariableTree system_;
  ScopeStack locals_;   // the last is the running function's
  ScopeStack systems_;  // system_ at the bottom, above it those that were added
  size_t added_systems_ = 0;
  String empty_;
};

// A written name that is looked up again and again, with a note of what it meant last. REQUIRES: it
// is looked up in the same Variables each time.
class KnownName {
 public:
  KnownName() = default;
  KnownName(const ScopedName& name) : name_(name) {}
  [[nodiscard]] const ScopedName& name() const { return name_; }
  // Whether it is a name at all. REQUIRES of the rest: it is.
  [[nodiscard]] explicit operator bool() const { return static_cast<bool>(name_.variable); }

  // The variable that it means, or null. Built into its callers: calling it would cost as much as
  // it does.
  [[nodiscard, gnu::always_inline]] Variable* Find(Variables& variables) const {
    return noted_at_ == *number_ ? noted_ : Look(variables);
  }
  // The variable that it means when that is a plain one, else null.
  [[nodiscard, gnu::always_inline]] Variable* FindPlain(Variables& variables) const {
    Variable* variable = Find(variables);
    return variable != nullptr && variable->plain() ? variable : nullptr;
  }

 private:
  Variable* Look(Variables& variables) const;

  ScopedName name_;
  mutable Variable* noted_ = nullptr;
  mutable uint64_t noted_at_ = 0;  // what `number_` was then; 0: never
  mutable const uint64_t* number_ = &scope_arrangement.number();
};

}  // namespace vexa

#endif  // VEXA_CORE_VARIABLES_H_
