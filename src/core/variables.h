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

#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "core/splay_tree.h"
#include "core/string.h"

namespace vexa {

// A named value. Subclasses compute their value or check what is assigned.
class Variable {
 public:
  Variable(String name, String value) : name_(std::move(name)), value_(std::move(value)) {}
  virtual ~Variable() = default;
  Variable(const Variable&) = delete;
  Variable& operator=(const Variable&) = delete;

  [[nodiscard]] const String& name() const { return name_; }
  // The value, computed anew where it is a computed one. Valid until the next call or assignment.
  [[nodiscard]] virtual const String& value() { return value_; }
  // Assigns. False when the variable refuses; error() then says why and the value is unchanged.
  [[nodiscard]] virtual bool SetValue(const String& value) {
    value_ = value;
    return true;
  }
  // The message of the last refused assignment, empty when there was none.
  [[nodiscard]] const String& error() const { return error_; }

 protected:
  String name_;
  String value_;
  String error_;

 private:
  friend class Variables;  // joins repeated form fields in place
};

// One scope: variables in the order of their names. Owns them.
class VariableTree : public SplayTree<Variable> {
 public:
  // Sets the variable, creating a plain one when there is none. Returns it when it refused the
  // value, else null.
  Variable* SetVariable(std::string_view name, const String& value);
};

// Names and values in a fixed order, for callers that want a whole scope at once.
using VariableList = std::vector<Variable*>;

// Where the fields of open databases come from.
class FieldSource {
 public:
  virtual ~FieldSource() = default;
  // The field of that name in the first view that has one, of `database` (empty: of any), or null.
  // Letter case is ignored. Valid until a database is closed.
  [[nodiscard]] virtual Variable* FindField(std::string_view field, std::string_view database) = 0;
};

enum class VariableScope { Local = 0, Global = 1, System = 2, Database = 3, Unqualified = 4 };

// A written name taken apart. The texts are upper-case, so what a script creates is stored so.
struct ScopedName {
  VariableScope scope = VariableScope::Unqualified;
  String variable;
  String database;  // empty: every open database
};

class Variables {
 public:
  // `fields` is borrowed.
  explicit Variables(FieldSource& fields);

  [[nodiscard]] static ScopedName Scope(std::string_view name);

  // The variable that `name` means, or null. Valid until its scope is dropped.
  [[nodiscard]] Variable* Find(std::string_view name);
  // Its value; the empty text when there is none. Valid until the next operation here.
  [[nodiscard]] const String& Value(std::string_view name);
  // Assigns as a script does. Returns null when that was done (or silently ignored, for unknown
  // system and database variables), else the variable that refused the value.
  Variable* SetVariable(std::string_view name, const String& value);

  void AddGlobalVariable(std::string_view name, const String& value);
  // A submitted form field: a global of exactly that name; repeated fields join with ",".
  void AddFormVariable(std::string_view name, const String& value);
  // A system variable; a later one of the same name replaces an earlier one.
  void AddSystemVariable(std::string_view name, const String& value);
  void AddSystemVariable(std::unique_ptr<Variable> variable);
  // The value of exactly that system variable, without scope prefixes; empty when unknown.
  [[nodiscard]] const String& GetSystemVariableValue(std::string_view name);

  // The local scope of a function call. The tree is borrowed until it is popped.
  void PushLocalVars(VariableTree* locals) { locals_.push_back(locals); }
  void PopLocalVars() { locals_.pop_back(); }
  // A further system scope, asked before all others. Borrowed until it is popped.
  void PushSystemVars(VariableTree* scope) { systems_.push_back(scope); }
  void PopSystemVars() { systems_.pop_back(); }

  // Append the variables of a scope in the order of their names.
  void GetGlobalVariableList(VariableList& list) const;
  void GetSystemVariableList(VariableList& list) const;
  void GetLocalVariableList(VariableList& list) const;

 private:
  Variable* FindIn(const ScopedName& name);
  Variable* FindSystem(std::string_view name);
  VariableTree& locals_or_globals() { return locals_.empty() ? globals_ : *locals_.back(); }

  FieldSource& fields_;
  VariableTree globals_;
  VariableTree system_;
  std::vector<VariableTree*> locals_;   // the last is the running function's
  std::vector<VariableTree*> systems_;  // system_ at the bottom
  String empty_;
};

}  // namespace vexa

#endif  // VEXA_CORE_VARIABLES_H_
