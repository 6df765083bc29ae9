// Building and printing of ExpressionTree. Its evaluation is in expression_evaluation.cpp.
//
// Building follows four rules: an operand goes to the left of the current node, else to its right;
// an operator fills an empty group; a tighter operator takes over the right operand of the current
// one; any other takes the place of the current one, or of its parent. Every rule keeps the
// invariant that a child names its parent and a parent its child, except below the current node of
// a call's arguments: those trees hang in the Argument nodes and have no parent.

#include "expr/expression_tree.h"

#include <algorithm>

namespace vexa {

ExpressionTree::ExpressionTree() { StartTree(); }

// --- Building --------------------------------------------------------------------------------

void ExpressionTree::StartTree() {
  root_ = AddNode(ExpressionElement::Group);
  current_ = root_;
}

ExpressionTree::NodeIndex ExpressionTree::AddNode(ExpressionElement kind) {
  nodes_.push_back(Node{.kind = kind});
  return static_cast<NodeIndex>(nodes_.size() - 1);
}

ExpressionTree::NodeIndex ExpressionTree::AddTextNode(ExpressionElement kind,
                                                      std::string_view text) {
  NodeIndex index = AddNode(kind);
  Node& node = nodes_[index];
  node.text = static_cast<uint32_t>(texts_.size());
  node.text_length = static_cast<uint32_t>(text.size());
  texts_.Reserve(texts_.size() + text.size());
  texts_.cat(text);
  return index;
}

void ExpressionTree::InsertConstant(std::string_view text, ConstantStyle style) {
  NodeIndex index = AddTextNode(ExpressionElement::Constant, text);
  nodes_[index].style = style;
  InsertOperand(index);
}

void ExpressionTree::InsertVariable(std::string_view name) {
  InsertOperand(AddTextNode(ExpressionElement::Variable, name));
}

void ExpressionTree::InsertOperand(NodeIndex operand) {
  Node& current = nodes_[current_];
  (current.left == kNone ? current.left : current.right) = operand;
  nodes_[operand].parent = current_;
}

void ExpressionTree::InsertOperator(const OperatorInfo& op) {
  Node& current = nodes_[current_];
  if (current.kind == ExpressionElement::Group) {
    current.kind = ExpressionElement::Operator;
    current.op = &op;
    return;
  }
  bool tighter = op.precedence > current.op->precedence;
  NodeIndex index = AddNode(ExpressionElement::Operator);
  nodes_[index].op = &op;
  if (tighter) {
    InsertBelow(index);
  } else {
    InsertAbove(index);
  }
  current_ = index;
}

// A tighter operator takes over the right operand of the current one.
void ExpressionTree::InsertBelow(NodeIndex op) {
  Node& current = nodes_[current_];
  nodes_[op].left = current.right;
  if (current.right != kNone) nodes_[current.right].parent = op;
  current.right = op;
  nodes_[op].parent = current_;
}

// An operator that binds no tighter takes the place of the current one, or of its parent. It climbs
// one level only, on purpose: 'a AND b + c * d OR e' groups as 'a AND ((b + (c * d)) OR e)', and
// scripts are written for that.
void ExpressionTree::InsertAbove(NodeIndex op) {
  NodeIndex parent = nodes_[current_].parent;
  bool may_climb = parent != kNone && (OpenParentheses() == 0 || parent != parentheses_.back());
  if (may_climb && (nodes_[parent].kind != ExpressionElement::Operator ||
                    nodes_[parent].op->precedence >= nodes_[op].op->precedence)) {
    current_ = parent;
  }
  NodeIndex above = nodes_[current_].parent;
  if (above == kNone) {
    root_ = op;
  } else {
    Node& node = nodes_[above];
    (node.left == current_ ? node.left : node.right) = op;
  }
  nodes_[op].parent = above;
  nodes_[op].left = current_;
  nodes_[current_].parent = op;
}

void ExpressionTree::OpenParen() {
  parentheses_.push_back(current_);
  NodeIndex group = AddNode(ExpressionElement::Group);
  Node& current = nodes_[current_];
  if (current.left == kNone) {
    current.left = group;
  } else {
    nodes_[group].left = current.right;
    if (current.right != kNone) nodes_[current.right].parent = group;
    current.right = group;
  }
  nodes_[group].parent = current_;
  current_ = group;
}

bool ExpressionTree::CloseParen() {
  if (OpenParentheses() == 0) return false;
  current_ = parentheses_.back();
  parentheses_.pop_back();
  return true;
}

// The number of open parentheses of the tree that is being built, those around a call left out.
size_t ExpressionTree::OpenParentheses() const {
  return parentheses_.size() - (frames_.empty() ? 0 : frames_.back().outer_parentheses);
}

void ExpressionTree::OpenCall(std::string_view name) {
  NodeIndex call = AddTextNode(ExpressionElement::Call, name);
  InsertOperand(call);
  frames_.push_back({call, kNone, root_, current_, parentheses_.size()});
  StartTree();
}

void ExpressionTree::NextArgument() {
  NodeIndex argument = AddNode(ExpressionElement::Argument);
  nodes_[argument].left = root_;
  CallFrame& frame = frames_.back();
  Node& call = nodes_[frame.call];
  (frame.last_argument == kNone ? call.left : nodes_[frame.last_argument].right) = argument;
  frame.last_argument = argument;
  ++call.argument_count;
  StartTree();
}

void ExpressionTree::CloseCall() {
  if (!NoArgumentBegun()) NextArgument();
  const CallFrame& frame = frames_.back();
  root_ = frame.outer_root;
  current_ = frame.outer_current;
  frames_.pop_back();
}

ExpressionTree::Open ExpressionTree::innermost() const {
  if (OpenParentheses() > 0) return Open::Parenthesis;
  return frames_.empty() ? Open::Nothing : Open::Call;
}

bool ExpressionTree::NoArgumentBegun() const {
  const Node& root = nodes_[root_];
  return frames_.back().last_argument == kNone && root.kind == ExpressionElement::Group &&
         root.left == kNone;
}

// --- The lone constant -----------------------------------------------------------------------

bool ExpressionTree::IsDoubleQuotedConstant() const {
  const Node& root = nodes_[root_];
  if (root.kind != ExpressionElement::Group || root.left == kNone) return false;
  const Node& content = nodes_[root.left];
  return content.kind == ExpressionElement::Constant &&
         content.style == ConstantStyle::DoubleQuoted;
}

std::string_view ExpressionTree::ConstantText() const { return TextOf(nodes_[nodes_[root_].left]); }

// --- Printing --------------------------------------------------------------------------------

// What is still to be printed: a node, or a text when `node` is kNone.
struct ExpressionTree::PrintItem {
  NodeIndex node;
  std::string_view text;
};

String ExpressionTree::Printed() const {
  String out;
  std::vector<PrintItem> pending = {{root_, {}}};
  while (!pending.empty()) {
    PrintItem item = pending.back();
    pending.pop_back();
    if (item.node != kNone) {
      PrintNode(item.node, out, pending);
    } else {
      out.Reserve(out.size() + item.text.size());
      out.cat(item.text);
    }
  }
  return out;
}

// Puts the parts of a node on `pending`, last part first.
void ExpressionTree::PrintNode(NodeIndex index, String& out,
                               std::vector<PrintItem>& pending) const {
  const Node& node = nodes_[index];
  auto add_text = [&](std::string_view text) { pending.push_back({kNone, text}); };
  auto add_operand = [&](NodeIndex operand) { pending.push_back({operand, "_"}); };
  switch (node.kind) {
    case ExpressionElement::Group:
      add_operand(node.left);
      return;
    case ExpressionElement::Variable:
      add_text(TextOf(node));
      return;
    case ExpressionElement::Constant: {
      std::string_view quote = node.style == ConstantStyle::Bare ? "" : "'";
      add_text(quote);
      add_text(TextOf(node));
      add_text(quote);
      return;
    }
    case ExpressionElement::Call:
      out.cat(TextOf(node));
      out.cat('(');
      add_text(")");
      if (node.left != kNone) add_operand(node.left);
      return;
    case ExpressionElement::Argument:
      if (node.right != kNone) {
        add_operand(node.right);
        add_text(", ");
      }
      add_operand(node.left);
      return;
    case ExpressionElement::Operator:
      break;
  }
  out.cat('(');
  add_text(")");
  if (!node.op->IsPrefix()) {
    add_operand(node.right);
    add_text(" ");
    add_text(node.op->spelling);
    add_text(" ");
    add_operand(node.left);
    return;
  }
  if (node.right != kNone) {
    add_operand(node.right);
    add_text(", ");
  }
  add_operand(node.left);
  add_text(" ");
  add_text(node.op->spelling);
}

}  // namespace vexa
