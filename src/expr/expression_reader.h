// ExpressionReader: reads one value from the characters of a script or of a text and builds its
// tree.
//
// The reader stands either where an operand must come or where an operator must come:
//
//                  operand: constant, variable, ")" of a call
//        .--------------------------------------------------------.
//        |                                                        v
//   [operand] <-- prefix operator, "(", "name(" stay here     [operator] <-- ")" stays here
//        ^                                                        |
//        '--------------------------------------------------------'
//                  binary operator, "," of an argument list
//
// Only there, with an operator due, can a value end well. The tokens:
//
//   number     digits with at most one point, then anything up to a delimiter: "12abc" is one. A
//              "-" where an operand is due, directly before a digit or a point, begins a number.
//   text       "..." or '...', with the entities of its characters
//   operator   an operator character, or a word that spells one
//   call       any other word directly followed by "("
//   variable   any other word
//
// Delimiters are the operator characters, white space, commas, parentheses and quotes, in a script
// also ">".

#ifndef VEXA_EXPR_EXPRESSION_READER_H_
#define VEXA_EXPR_EXPRESSION_READER_H_

#include <cstddef>
#include <string>
#include <string_view>

#include "expr/character_source.h"
#include "expr/expression.h"
#include "expr/expression_context.h"
#include "expr/expression_tree.h"

namespace vexa {

class ExpressionReader {
 public:
  // Everything is borrowed for the reader's life. `tree` must be new.
  ExpressionReader(CharacterSource& source, ValueForm form, ExpressionContext& context,
                   ExpressionTree& tree)
      : source_(source), form_(form), context_(context), tree_(tree) {}

  // Reads up to the end of the value. A text ends with ValueEnd::TagEnd. On ValueEnd::Failed an
  // error was reported, nothing in particular was consumed, and the tree is of no use.
  [[nodiscard]] ValueEnd Read();

 private:
  static constexpr int kEnd = -1;  // what a source gives at its end
  enum class Step { Failed, More, AtWhitespace, AtTagEnd };

  Step ReadOperand();
  Step ReadOperandWord(char first);
  Step ReadMinus();
  Step ReadOperator();
  Step ReadOperatorWord(char first);
  Step ReadAfterGap();
  Step InsertOperator(std::string_view token);
  Step ReadComma();
  Step ReadClosing();
  Step ReadEnd(int c);
  Step ReadTextConstant(char quote);
  Step RefuseTextConstant(char quote);

  void ReadWord(char first);
  bool ReadPossibleOperator(char first);
  void DecodeEntity(size_t ampersand);
  int SkipWhitespace(int c);
  int Peek();
  void PutBack(int c);

  bool InScript() const { return form_ != ValueForm::Text; }
  bool EndsAtWhitespace() const {
    return form_ == ValueForm::Attribute || form_ == ValueForm::ExpressionAttribute;
  }
  bool EndsValue(int c) const { return c == kEnd || (c == '>' && InScript()); }
  bool EndsWord(int c) const;

  Step Fail(std::string_view message);
  Step FailOnToken(std::string_view expected, std::string_view token);
  Step FailOnQuote(char quote);

  CharacterSource& source_;
  ValueForm form_;
  ExpressionContext& context_;
  ExpressionTree& tree_;
  bool operand_due_ = true;
  bool after_gap_ = false;  // white space stands between the operand and here
  std::string token_;       // the word or the text being read
};

}  // namespace vexa

#endif  // VEXA_EXPR_EXPRESSION_READER_H_
