// Expression: ties the reader to the tree and keeps the finished tree.

#include "expr/expression.h"

#include "core/text.h"
#include "expr/expression_reader.h"
#include "expr/expression_tree.h"

namespace vexa {

ExpressionTree* Expression::ReadTree(CharacterSource& source, ValueForm form,
                                     ExpressionContext& context, ExpressionTree& tree,
                                     ExpressionTree& quoted, ValueEnd& end) {
  end = ExpressionReader(source, form, context, tree).Read();
  if (end == ValueEnd::Failed) return nullptr;
  if (form == ValueForm::Attribute || form == ValueForm::Text || !tree.IsDoubleQuotedConstant()) {
    return &tree;
  }
  const std::string_view text = tree.ConstantText();
  if (form == ValueForm::OptionalExpression && Stripped(text).empty()) return &tree;
  // One level only: a constant within the quotes is a text.
  TextSource inner(text);
  if (ExpressionReader(inner, ValueForm::Text, context, quoted).Read() != ValueEnd::Failed) {
    return &quoted;
  }
  end = ValueEnd::Failed;
  return nullptr;
}

ValueEnd Expression::Read(CharacterSource& source, ValueForm form, ExpressionContext& context) {
  program_ = {};
  empty_ = true;
  ExpressionTree tree;
  ExpressionTree quoted;
  ValueEnd end;
  if (ExpressionTree* read = ReadTree(source, form, context, tree, quoted, end)) {
    read->Finish(program_);
    empty_ = false;
  }
  return end;
}

bool Expression::ReadText(std::string_view text, ExpressionContext& context) {
  TextSource source(text);
  return Read(source, ValueForm::Text, context) != ValueEnd::Failed;
}

bool Expression::Evaluate(ExpressionContext& context, ScriptValue& result) const {
  if (!empty_) return program_.Evaluate(context, result);
  result.clear();
  return true;
}

bool Expression::Evaluate(ExpressionContext& context, String& result) const {
  ScriptValue value;
  if (!Evaluate(context, value)) return false;
  result = value.TakeText();
  return true;
}

}  // namespace vexa
