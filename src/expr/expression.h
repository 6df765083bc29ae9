// Expression: a parsed expression, read from a script or from a text and evaluated as often as
// wanted. The way of an expression: expression_reader reads tokens, expression_tree places them,
// expression_evaluation walks the tree, operators computes.
//
// Reading and evaluating never recurse on the machine stack, so an expression of 100,000 terms or
// 100,000 open parentheses ends in a value or in a clear error. (Calls of the script's own
// functions do recurse, within the limit of the executor.)

#ifndef VEXA_EXPR_EXPRESSION_H_
#define VEXA_EXPR_EXPRESSION_H_

#include <memory>
#include <string_view>

#include "core/string.h"
#include "expr/character_source.h"
#include "expr/expression_context.h"

namespace vexa {

class ExpressionTree;

// How the reading of a value ended.
enum class ValueEnd {
  Failed = 0,      // an error was reported
  Whitespace = 2,  // at white space: more attributes may follow
  TagEnd = 3,      // the closing `>` was consumed, or a text ended
};

// Where a value may end, and whether a lone double-quoted constant is itself an expression.
enum class ValueForm {
  Attribute,            // ends at `>` or at white space that no operator follows
  ExpressionAttribute,  // the same; a lone double-quoted constant is read again as an expression
  OptionalExpression,   // the same; a blank constant is no expression but stays a text
  Body,                 // ends at `>` only; a lone double-quoted constant is read again
  Text,                 // ends at the end of the source
};

class Expression {
 public:
  Expression();
  ~Expression();
  Expression(Expression&& other) noexcept;
  Expression& operator=(Expression&& other) noexcept;

  // Reads one value from `source`, replacing what was held. Errors are reported through
  // `context`, which is not kept. On failure the expression is empty.
  [[nodiscard]] ValueEnd Read(CharacterSource& source, ValueForm form, ExpressionContext& context);
  // Reads the whole `text` as one expression; false after an error was reported.
  [[nodiscard]] bool ReadText(std::string_view text, ExpressionContext& context);
  // Whether nothing has been read.
  [[nodiscard]] bool empty() const { return tree_ == nullptr; }

  // Evaluates to text. False after an error was reported; `result` is then unspecified.
  [[nodiscard]] bool Evaluate(ExpressionContext& context, String& result) const;

  // The truth rule: a text is false exactly when it holds nothing but "0" and at most one ".".
  [[nodiscard]] static bool IsTrue(std::string_view text);

  // The tree in a fully parenthesised form, for tests: every operator with its operands.
  [[nodiscard]] String Printed() const;

 private:
  std::unique_ptr<ExpressionTree> tree_;
};

}  // namespace vexa

#endif  // VEXA_EXPR_EXPRESSION_H_
