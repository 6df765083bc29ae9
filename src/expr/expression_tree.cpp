// Building of ExpressionTree, putting it in the order of evaluation, and printing it.
//
// Building follows four rules: an operand goes to the left of the current node, else to its right;
// an operator fills an empty group; a tighter operator takes over the right operand of the current
// one; any other takes the place of the current one, or of its parent. Every rule keeps the
// invariant that a child names its parent and a parent its child, except below the current node of
// a call's arguments: those trees hang in the Argument nodes and have no parent.

#include "expr/expression_tree.h"

#include <algorithm>
#include <cassert>

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
  texts_.Append(text.data(), text.size());
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
  assert(innermost() == Open::Call);
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
  assert(innermost() == Open::Call);
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

std::string_view ExpressionTree::ConstantText() const {
  assert(IsDoubleQuotedConstant());
  return TextOf(nodes_[nodes_[root_].left]);
}

// --- The order of evaluation -----------------------------------------------------------------

ExpressionTree::NodeIndex ExpressionTree::WithoutGroups(NodeIndex node) const {
  while (node != kNone && nodes_[node].kind == ExpressionElement::Group) node = nodes_[node].left;
  return node;
}

bool ExpressionTree::IsLeaf(NodeIndex node) const {
  ExpressionElement kind = nodes_[node].kind;
  return kind == ExpressionElement::Constant || kind == ExpressionElement::Variable;
}

uint32_t ExpressionTree::LeafOf(NodeIndex node, ExpressionProgram& program) const {
  assert(IsLeaf(node));
  const std::string_view text = TextOf(nodes_[node]);
  return nodes_[node].kind == ExpressionElement::Constant ? program.AddConstant(text)
                                                          : program.AddVariable(text);
}

// Walks the tree in post-order. `pending` holds what is still to do, the next at its end.
void ExpressionTree::Finish(ExpressionProgram& program) {
  assert(innermost() == Open::Nothing);
  root_ = WithoutGroups(root_);
  assert(root_ != kNone);
  program.Expect(
      static_cast<size_t>(std::count_if(nodes_.begin(), nodes_.end(), [](const Node& node) {
        return node.kind == ExpressionElement::Constant || node.kind == ExpressionElement::Variable;
      })));
  if (IsLeaf(root_)) {
    (void)LeafOf(root_, program);
    program.Finish();
    return;
  }
  PendingSteps pending;
  pending.push_back({root_, ExpressionProgram::Action::Push, 0});
  while (!pending.empty()) {
    const PendingStep step = pending.back();
    pending.pop_back();
    switch (step.action) {
      case ExpressionProgram::Action::Push:
        WalkNode(step.node, program, pending);
        break;
      case ExpressionProgram::Action::Operate:
        AddOperation(nodes_[step.node], program);
        break;
      default:
        program.AddStep({.action = step.action, .left = step.call});
        break;
    }
  }
  program.Finish();
}

void ExpressionTree::WalkNode(NodeIndex index, ExpressionProgram& program, PendingSteps& pending) {
  using Action = ExpressionProgram::Action;
  Node& node = nodes_[index];
  if (IsLeaf(index)) {
    program.AddStep({.action = Action::Push, .left = LeafOf(index, program)});
    return;
  }
  if (node.kind == ExpressionElement::Call) {
    WalkCall(index, program, pending);
    return;
  }
  node.left = WithoutGroups(node.left);
  node.right = WithoutGroups(node.right);
  pending.push_back({index, Action::Operate, 0});
  const bool right_first = node.right != kNone && !IsLeaf(node.right);
  if (right_first) pending.push_back({node.right, Action::Push, 0});
  if (node.left == kNone) {
    pending.push_back({index, Action::PushEmpty, 0});
  } else if (right_first || !IsLeaf(node.left)) {
    pending.push_back({node.left, Action::Push, 0});
  }
}

void ExpressionTree::WalkCall(NodeIndex index, ExpressionProgram& program, PendingSteps& pending) {
  using Action = ExpressionProgram::Action;
  const Node& node = nodes_[index];
  const uint32_t call = program.AddCall(TextOf(node), node.argument_count);
  program.AddStep({.action = Action::CheckCall, .left = call});
  pending.push_back({index, Action::Call, call});
  const size_t first = pending.size();
  for (NodeIndex i = node.left; i != kNone; i = nodes_[i].right) {
    pending.push_back({WithoutGroups(nodes_[i].left), Action::Push, 0});
  }
  std::reverse(pending.begin() + first, pending.end());
}

void ExpressionTree::AddOperation(const Node& node, ExpressionProgram& program) const {
  ExpressionProgram::Step step = {.action = ExpressionProgram::Action::Operate,
                                  .left = ExpressionProgram::kStack,
                                  .right = ExpressionProgram::kNone,
                                  .op = node.op};
  const bool right_leaf = node.right == kNone || IsLeaf(node.right);
  if (node.left != kNone && IsLeaf(node.left) && right_leaf) step.left = LeafOf(node.left, program);
  if (node.right != kNone) {
    step.right = right_leaf ? LeafOf(node.right, program) : ExpressionProgram::kStack;
  }
  program.AddStep(step);
}

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
      out.Append(item.text);
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
