// Evaluation of ExpressionTree.
//
// Since both sides of every operator are always evaluated, the order of evaluation never depends on
// values. It is computed once, as a list of steps over a stack of texts:
//
//   Push       puts the value of a constant or a variable on the stack
//   PushEmpty  puts the empty text there, for an operator without a left side
//   Operate    replaces the operands of an operator by its result
//   CheckCall  looks the function up, before its arguments are evaluated
//   Call       replaces the arguments of a function by its result
//
// A right operand that is a constant or a variable gets no Push: the operator takes it from where
// it is, since nothing can change it between its turn and the operator's.

#include <algorithm>
#include <array>

#include "core/number.h"
#include "core/variables.h"
#include "expr/expression_tree.h"

namespace vexa {

// --- The order of evaluation -----------------------------------------------------------------

void ExpressionTree::Finish() {
  parentheses_ = {};
  frames_ = {};
  AddSteps();
  MeasureSteps();
}

ExpressionTree::NodeIndex ExpressionTree::WithoutGroups(NodeIndex node) const {
  while (node != kNone && nodes_[node].kind == ExpressionElement::Group) node = nodes_[node].left;
  return node;
}

bool ExpressionTree::IsLeaf(NodeIndex node) const {
  ExpressionElement kind = nodes_[node].kind;
  return kind == ExpressionElement::Constant || kind == ExpressionElement::Variable;
}

// Walks the tree in post-order. `pending` holds what is still to do, the next at its end: a Push is
// a subtree still to be walked, anything else a step to be noted.
void ExpressionTree::AddSteps() {
  std::vector<Step> pending;
  root_ = WithoutGroups(root_);
  if (root_ != kNone) pending.push_back({root_, Action::Push});
  while (!pending.empty()) {
    Step step = pending.back();
    pending.pop_back();
    Node& node = nodes_[step.node];
    if (step.action != Action::Push || IsLeaf(step.node)) {
      steps_.push_back(step);
    } else if (node.kind == ExpressionElement::Call) {
      steps_.push_back({step.node, Action::CheckCall});
      AddStepsOfCall(step.node, pending);
    } else {
      node.left = WithoutGroups(node.left);
      node.right = WithoutGroups(node.right);
      pending.push_back({step.node, Action::Operate});
      if (node.right != kNone && !IsLeaf(node.right)) pending.push_back({node.right, Action::Push});
      if (node.left == kNone) {
        pending.push_back({step.node, Action::PushEmpty});
      } else {
        pending.push_back({node.left, Action::Push});
      }
    }
  }
}

void ExpressionTree::AddStepsOfCall(NodeIndex node, std::vector<Step>& pending) {
  pending.push_back({node, Action::Call});
  size_t first = pending.size();
  for (NodeIndex i = nodes_[node].left; i != kNone; i = nodes_[i].right) {
    nodes_[i].left = WithoutGroups(nodes_[i].left);
    pending.push_back({nodes_[i].left, Action::Push});
  }
  std::reverse(pending.begin() + static_cast<std::ptrdiff_t>(first), pending.end());
}

// Counts what the steps will hold at most, so that an evaluation never has to look.
void ExpressionTree::MeasureSteps() {
  size_t texts = 0;
  size_t functions = 0;
  for (const Step& step : steps_) {
    const Node& node = nodes_[step.node];
    switch (step.action) {
      case Action::Push:
      case Action::PushEmpty:
        ++texts;
        break;
      case Action::Operate:
        if (node.right != kNone && !IsLeaf(node.right)) --texts;
        break;
      case Action::CheckCall:
        ++functions;
        break;
      case Action::Call:
        --functions;
        texts = texts - node.argument_count + 1;
        break;
    }
    most_texts_ = std::max(most_texts_, texts);
    most_functions_ = std::max(most_functions_, functions);
  }
}

// --- Evaluating ------------------------------------------------------------------------------

bool ExpressionTree::Resolve(ExpressionContext& context, String& result) const {
  if (steps_.size() == 1 && steps_[0].action == Action::Push) {
    result = LeafValue(nodes_[steps_[0].node], context);
    return true;
  }
  constexpr size_t kFew = 6;
  std::array<String, kFew> few_texts;
  std::array<const Callable*, kFew> few_functions;
  std::vector<String> many_texts(most_texts_ > kFew ? most_texts_ : 0);
  std::vector<const Callable*> many_functions(most_functions_ > kFew ? most_functions_ : 0);
  Values values = {many_texts.empty() ? few_texts.data() : many_texts.data(),
                   many_functions.empty() ? few_functions.data() : many_functions.data()};
  if (!Run(context, values)) return false;
  result = std::move(values.texts[0]);
  return true;
}

bool ExpressionTree::Run(ExpressionContext& context, Values& values) const {
  for (const Step& step : steps_) {
    const Node& node = nodes_[step.node];
    switch (step.action) {
      case Action::Push:
        values.texts[values.text_count++] = LeafValue(node, context);
        break;
      case Action::PushEmpty:
        values.texts[values.text_count++].clear();
        break;
      case Action::Operate:
        if (!OperateOn(node, context, values)) return false;
        break;
      case Action::CheckCall:
        if (!CheckFunctionCall(node, context, values)) return false;
        break;
      case Action::Call:
        if (!Call(node, context, values)) return false;
        break;
    }
  }
  return true;
}

// The value of a constant or a variable; valid until the next operation on the variables.
std::string_view ExpressionTree::LeafValue(const Node& node, ExpressionContext& context) const {
  if (node.kind == ExpressionElement::Constant) return TextOf(node);
  return context.host().vars().Value(TextOf(node));
}

bool ExpressionTree::OperateOn(const Node& node, ExpressionContext& context, Values& values) const {
  std::string_view right;
  if (node.right != kNone) {
    right = IsLeaf(node.right) ? LeafValue(nodes_[node.right], context)
                               : values.texts[--values.text_count].view();
  }
  return Operate(*node.op, context, values.texts[values.text_count - 1], right);
}

bool ExpressionTree::CheckFunctionCall(const Node& node, ExpressionContext& context,
                                       Values& values) const {
  std::string_view name = TextOf(node);
  const Callable* function;
  if (!context.FindFunction(name, function)) return false;
  if (function == nullptr) {
    return context.ReportExpressionError(
        String::Concat({"Call to undefined function '", name, "'"}));
  }
  int expected = function->parameter_count();
  if (static_cast<uint32_t>(expected) != node.argument_count) {
    return context.ReportExpressionError(
        String::Concat({"Call to function '", name, "' expects ", PrintInteger(expected).view(),
                        expected == 1 ? " parameter, found " : " parameters, found ",
                        PrintInteger(node.argument_count).view()}));
  }
  values.functions[values.function_count++] = function;
  return true;
}

bool ExpressionTree::Call(const Node& node, ExpressionContext& context, Values& values) {
  const Callable& function = *values.functions[--values.function_count];
  values.text_count -= node.argument_count;
  String result;
  std::span<String> arguments(values.texts + values.text_count, node.argument_count);
  if (!context.CallFunction(function, arguments, result)) return false;
  values.texts[values.text_count++] = std::move(result);
  return true;
}

}  // namespace vexa
