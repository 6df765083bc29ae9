// Function: one of a script's own functions, known from its declaration on: met on the way through
// the script, or found by a scan ahead of it.

#ifndef VEXA_ENGINE_FUNCTION_H_
#define VEXA_ENGINE_FUNCTION_H_

#include <string_view>
#include <vector>

#include "core/source_place.h"
#include "core/string.h"
#include "core/symbol.h"
#include "engine/tag.h"
#include "expr/expression_context.h"

namespace vexa {

class ScriptParser;

// Output levels that mean "the function has none of its own".
inline constexpr int kNoOutputLevel = 255;
inline constexpr unsigned kNoErrorLevel = 0x7F000000;

class Function final : public Callable {
 public:
  // `declaration` is the row of the declaring tag, `body` the place just behind it.
  Function(String name, const TagRow& declaration, const SourcePlace& body)
      : name_(std::move(name)), declaration_(declaration), body_(body) {}

  [[nodiscard]] const TagRow& declaration() const { return declaration_; }
  [[nodiscard]] SourcePlace& body() { return body_; }

  [[nodiscard]] const String& name() const { return name_; }
  [[nodiscard]] const SourcePlace& body() const { return body_; }
  [[nodiscard]] int linenumber() const { return body_.line; }
  [[nodiscard]] const std::vector<String>& parameters() const { return parameters_; }
  // The parameters' names as symbols, in the same order.
  [[nodiscard]] const std::vector<Symbol>& symbols() const { return symbols_; }
  [[nodiscard]] int parameter_count() const override {
    return static_cast<int>(parameters_.size());
  }
  [[nodiscard]] bool builtin() const override { return false; }
  // Takes the parameter names from a list separated by commas.
  void SetParameters(std::string_view list);

  int standardoutputlevel = kNoOutputLevel;
  unsigned erroroutputlevel = kNoErrorLevel;

 private:
  String name_;
  const TagRow& declaration_;
  SourcePlace body_;
  std::vector<String> parameters_;
  std::vector<Symbol> symbols_;
};

// Registers the function that a VxFUNCTION `tag`, just read, declares, and skips its body. Meeting
// the same declaration again only skips. Handled, or Failed after an error was reported.
[[nodiscard]] StateResult DeclareFunction(ScriptParser& parser, const Tag& tag);

}  // namespace vexa

#endif  // VEXA_ENGINE_FUNCTION_H_
