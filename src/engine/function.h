// Function: one of a script's own functions, known from its declaration on: met on the way through
// the script, or found by a scan ahead of it.

#ifndef VEXA_ENGINE_FUNCTION_H_
#define VEXA_ENGINE_FUNCTION_H_

#include <memory>
#include <string_view>
#include <vector>

#include "core/source_place.h"
#include "core/string.h"
#include "core/symbol.h"
#include "engine/function_call.h"
#include "engine/tag.h"
#include "expr/expression_context.h"

namespace vexa {

class ScriptParser;

class Function final : public Callable {
 public:
  // `declaration` is the row of the declaring tag, `body` the place just behind it.
  Function(String name, const TagRow& declaration, const SourcePlace& body)
      : Callable(Kind::OfScript, 0),
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
  // Takes the parameter names from a list separated by commas.
  void SetParameters(std::string_view list);

  // Its calls that are over.
  [[nodiscard]] WaitingCalls& waiting_calls() { return waiting_calls_; }

  int standardoutputlevel = kNoOutputLevel;
  unsigned erroroutputlevel = kNoErrorLevel;

 private:
  String name_;
  Symbol symbol_;
  const TagRow& declaration_;
  SourcePlace body_;
  std::vector<String> parameters_;
  std::vector<Symbol> symbols_;
  WaitingCalls waiting_calls_;
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
