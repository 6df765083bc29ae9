// Expression: ties the reader to the tree and keeps the finished tree.

#include "expr/expression.h"

#include "core/text.h"
#include "expr/expression_reader.h"
#include "expr/expression_tree.h"

namespace vexa {

Expression::Expression() = default;
Expression::~Expression() = default;
Expression::Expression(Expression&& other) noexcept = default;
Expression& Expression::operator=(Expression&& other) noexcept = default;

ValueEnd Expression::Read(CharacterSource& source, ValueForm form, ExpressionContext& context) {
  tree_.reset();
  auto tree = std::make_unique<ExpressionTree>();
  ValueEnd end = ExpressionReader(source, form, context, *tree).Read();
  if (end == ValueEnd::Failed) return end;
  if (form == ValueForm::OptionalExpression && tree->IsDoubleQuotedConstant() &&
      !Stripped(tree->ConstantText()).empty()) {
    form = ValueForm::ExpressionAttribute;
  }
  bool may_quote_expression = form == ValueForm::ExpressionAttribute || form == ValueForm::Body;
  if (may_quote_expression && tree->IsDoubleQuotedConstant()) {
    // One level only: a constant within the quotes is a text.
    auto quoted = std::make_unique<ExpressionTree>();
    TextSource text(tree->ConstantText());
    if (ExpressionReader(text, ValueForm::Text, context, *quoted).Read() == ValueEnd::Failed) {
      return ValueEnd::Failed;
    }
    tree = std::move(quoted);
  }
  tree->Finish();
  tree_ = std::move(tree);
  return end;
}

bool Expression::ReadText(std::string_view text, ExpressionContext& context) {
  TextSource source(text);
  return Read(source, ValueForm::Text, context) != ValueEnd::Failed;
}

bool Expression::Evaluate(ExpressionContext& context, String& result) const {
  if (tree_ != nullptr) return tree_->Resolve(context, result);
  result.clear();
  return true;
}

bool Expression::IsTrue(std::string_view text) {
  bool point = false;
  for (char c : text) {
    if (c == '.' && !point) {
      point = true;
    } else if (c != '0') {
      return true;
    }
  }
  return false;
}

String Expression::Printed() const { return tree_ ? tree_->Printed() : String(); }

}  // namespace vexa
