// Function: one of a script's own functions, known from its declaration on: met on the way through
// the script, or found by a scan ahead of it.

#ifndef VEXA_ENGINE_FUNCTION_H_
#define VEXA_ENGINE_FUNCTION_H_

#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "core/source_place.h"
#include "core/string.h"
#include "core/symbol.h"
#include "core/variables.h"
#include "engine/tag.h"
#include "expr/expression_context.h"

namespace vexa {

class ScriptParser;

// Output levels that mean "the function has none of its own".
inline constexpr int kNoOutputLevel = 255;
inline constexpr unsigned kNoErrorLevel = 0x7F000000;

class Function;

// The local scope of one call: the arguments under the names of the parameters. A later call of the
// same function uses it again, unless the function made further variables in it.
class FunctionFrame {
 public:
  // REQUIRES: `function` outlives it.
  explicit FunctionFrame(const Function& function);
  [[nodiscard]] VariableTree& locals() { return locals_; }
  // Moves the arguments in, one for each parameter.
  void SetArguments(std::span<ScriptValue> arguments);
  // Whether it holds nothing but the parameters; their values are let go.
  [[nodiscard]] bool Empty();

 private:
  VariableTree locals_;
  std::vector<Variable*> parameters_;  // in their order; a name that stands twice is one variable
  size_t count_ = 0;                   // of the variables at first
};

class Function final : public Callable {
 public:
  // `declaration` is the row of the declaring tag, `body` the place just behind it.
  Function(String name, const TagRow& declaration, const SourcePlace& body)
      : Callable(Kind::OfScript),
        name_(std::move(name)),
        symbol_(name_.view()),
        declaration_(declaration),
        body_(body) {}

  [[nodiscard]] const TagRow& declaration() const { return declaration_; }
  [[nodiscard]] SourcePlace& body() { return body_; }

  [[nodiscard]] const String& name() const { return name_; }
  [[nodiscard]] Symbol symbol() const { return symbol_; }
  [[nodiscard]] const SourcePlace& body() const { return body_; }
  [[nodiscard]] int linenumber() const { return body_.line; }
  [[nodiscard]] const std::vector<String>& parameters() const { return parameters_; }
  // The parameters' names as symbols, in the same order.
  [[nodiscard]] const std::vector<Symbol>& symbols() const { return symbols_; }
  [[nodiscard]] int parameter_count() const override {
    return static_cast<int>(parameters_.size());
  }
  // Takes the parameter names from a list separated by commas.
  void SetParameters(std::string_view list);

  // A frame for a call, and the way back for one that may be used again.
  [[nodiscard]] std::unique_ptr<FunctionFrame> TakeFrame();
  void GiveBackFrame(std::unique_ptr<FunctionFrame> frame);

  int standardoutputlevel = kNoOutputLevel;
  unsigned erroroutputlevel = kNoErrorLevel;

 private:
  String name_;
  Symbol symbol_;
  const TagRow& declaration_;
  SourcePlace body_;
  std::vector<String> parameters_;
  std::vector<Symbol> symbols_;
  std::vector<std::unique_ptr<FunctionFrame>> frames_;  // that no call uses
};

// A script's functions by their names. Open addressing, at most half full; nothing is taken out.
class FunctionTable {
 public:
  // The function of that name, or null.
  [[nodiscard]] Function* Find(Symbol name) const {
    if (functions_.empty()) return nullptr;
    for (size_t slot = name.number() & mask();; slot = (slot + 1) & mask()) {
      Function* function = functions_[slot].get();
      if (function == nullptr || function->symbol() == name) return function;
    }
  }
  // REQUIRES: there is none of its name.
  void Add(std::unique_ptr<Function> function);

 private:
  [[nodiscard]] size_t mask() const { return functions_.size() - 1; }

  std::vector<std::unique_ptr<Function>> functions_;  // a power of two
  size_t count_ = 0;
};

// Registers the function that a VxFUNCTION `tag`, just read, declares, and skips its body. Meeting
// the same declaration again only skips. Handled, or Failed after an error was reported.
[[nodiscard]] StateResult DeclareFunction(ScriptParser& parser, const Tag& tag);

}  // namespace vexa

#endif  // VEXA_ENGINE_FUNCTION_H_
