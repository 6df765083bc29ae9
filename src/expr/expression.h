// Expression: a parsed expression, read from a script or from a text and evaluated as often as
// wanted. The way of an expression: expression_reader reads tokens, expression_tree places them,
// expression_program holds the finished steps and takes them, operators computes.
//
// Reading and evaluating never recurse on the machine stack, so an expression of 100,000 terms or
// 100,000 open parentheses ends in a value or in a clear error. (Calls of the script's own
// functions do recurse, within the limit of the executor.)

#ifndef VEXA_EXPR_EXPRESSION_H_
#define VEXA_EXPR_EXPRESSION_H_

#include <string_view>

#include "core/script_value.h"
#include "core/string.h"
#include "expr/character_source.h"
#include "expr/expression_context.h"
#include "expr/expression_program.h"

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
  // Reads one value from `source`, replacing what was held. Errors are reported through
  // `context`, which is not kept. On failure the expression is empty.
  [[nodiscard]] ValueEnd Read(CharacterSource& source, ValueForm form, ExpressionContext& context);
  // Reads the whole `text` as one expression; false after an error was reported.
  [[nodiscard]] bool ReadText(std::string_view text, ExpressionContext& context);
  // Whether nothing has been read.
  [[nodiscard]] bool empty() const { return empty_; }

  // Evaluates; the value of an empty expression is the empty text. False after an error was
  // reported; `result` is then unspecified. REQUIRES: `result` is no value of a variable.
  [[nodiscard]] bool Evaluate(ExpressionContext& context, ScriptValue& result) const;
  [[nodiscard]] bool Evaluate(ExpressionContext& context, String& result) const;

  // The finished steps. REQUIRES: not empty().
  [[nodiscard]] const ExpressionProgram& program() const { return program_; }

  // The truth rule: a text is false exactly when it holds nothing but "0" and at most one ".".
  [[nodiscard]] static bool IsTrue(std::string_view text) { return ScriptValue::TextIsTrue(text); }

  // Reads as Read does, up to the tree, which is a new one. For who wants to look at it: the tree
  // of a value that is read again stands in `quoted`, another new one, and is returned.
  [[nodiscard]] static ExpressionTree* ReadTree(CharacterSource& source, ValueForm form,
                                                ExpressionContext& context, ExpressionTree& tree,
                                                ExpressionTree& quoted, ValueEnd& end);

 private:
  ExpressionProgram program_;
  bool empty_ = true;
};

}  // namespace vexa

#endif  // VEXA_EXPR_EXPRESSION_H_
