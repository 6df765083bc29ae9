// Declaring functions.

#include "engine/function.h"

#include <memory>

#include "core/number.h"
#include "core/text.h"
#include "engine/block_state.h"
#include "engine/script_parser.h"
#include "expr/builtin_table.h"

namespace vexa {

void FunctionTable::Add(std::unique_ptr<Function> function) {
  if (2 * (count_ + 1) > functions_.size()) {
    std::vector<std::unique_ptr<Function>> former(functions_.empty() ? 8 : functions_.size() * 2);
    former.swap(functions_);
    count_ = 0;
    for (std::unique_ptr<Function>& known : former) {
      if (known != nullptr) Add(std::move(known));
    }
  }
  size_t slot = function->symbol().number() & mask();
  while (functions_[slot] != nullptr) slot = (slot + 1) & mask();
  functions_[slot] = std::move(function);
  ++count_;
}

void Function::SetParameters(std::string_view list) {
  for (PieceReader pieces(list, ","); pieces.Next();) {
    parameters_.emplace_back(Stripped(pieces.piece()));
    symbols_.emplace_back(parameters_.back().view());
  }
  SetParameterCount(static_cast<int>(parameters_.size()));
}

StateResult DeclareFunction(ScriptParser& parser, const Tag& tag) {
  const WantedTag body_end[] = {{tag.row().closing_id, 0}};
  const String& name = tag.Value("NAME");
  SourcePlace body = parser.CurrentPlace();
  if (FindBuiltin(name) != nullptr) {
    return parser.SyntaxError(
        String::Concat({"Function '", name, "' has the same name as a built-in function"}));
  }
  const Function* known = parser.FindOwnFunction(Symbol(name));
  if (known != nullptr && !(known->body() == body)) {
    return parser.SyntaxError(
        String::Concat({"A function with the name '", name, "' has already been declared, on line ",
                        PrintInteger(known->linenumber())}));
  }
  if (known == nullptr) {
    auto function = std::make_unique<Function>(name, tag.row(), body);
    if (const NameValuePair* level = tag.Find("STANDARDOUTPUTLEVEL")) {
      function->standardoutputlevel = parser.StandardOutputLevelValue(level->value.text());
    }
    if (const NameValuePair* level = tag.Find("ERROROUTPUTLEVEL")) {
      function->erroroutputlevel = parser.ErrorOutputLevelValue(level->value.text());
    }
    function->SetParameters(tag.Value("PARAMETERS"));
    parser.AddFunction(std::move(function));
  }
  const BlockState block(parser, tag.row());
  return parser.SkipTo(body_end, block) != nullptr ? StateResult::Handled : StateResult::Failed;
}

}  // namespace vexa
