// ExpressionTree: what the reader builds, element by element. A finished tree becomes an
// ExpressionProgram, which is what is evaluated.
//
// All nodes live in one array and name each other by index; the texts of all constants and names
// live in another. Both begin inside the tree, so building, printing and destroying a tree of any
// depth needs no recursion, and of the usual size no allocation.
//
//   kind       left             right           text
//   Group      its content      -               -       "( )", or a root nothing was added to yet
//   Constant   -                -               the text without quotes
//   Variable   -                -               the name
//   Call       first Argument   -               the function's name
//   Argument   root of a tree   next Argument   -
//   Operator   left operand     right operand   -
//
// A prefix operator has its operand on the left. Binary operators that follow one may leave a side
// empty or give a prefix operator a right side that it ignores: the insertion rules say so and
// scripts depend on what comes out.
//
// While a tree is built, `current_` is the node where the next element goes and `parentheses_`
// holds for each open parenthesis the node that was current before it. Each argument list being
// read has a frame with the state of the tree around it, so an argument is built like a tree of its
// own. Finish() puts the nodes in the order in which they are evaluated.

#ifndef VEXA_EXPR_EXPRESSION_TREE_H_
#define VEXA_EXPR_EXPRESSION_TREE_H_

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "core/small_array.h"
#include "core/string.h"
#include "expr/expression_program.h"
#include "expr/operators.h"

namespace vexa {

enum class ExpressionElement : uint8_t { Group, Constant, Variable, Call, Argument, Operator };

// How a constant was written.
enum class ConstantStyle : uint8_t { Bare, SingleQuoted, DoubleQuoted };

class ExpressionTree {
 public:
  ExpressionTree();

  // --- Building, in the order in which the elements are read ---------------------------------

  void InsertConstant(std::string_view text, ConstantStyle style);
  void InsertVariable(std::string_view name);
  void InsertOperator(const OperatorInfo& op);
  void OpenParen();
  // False when the innermost argument list, or else the tree, has no open parenthesis.
  [[nodiscard]] bool CloseParen();
  // The call of `name` with the arguments that follow until CloseCall().
  void OpenCall(std::string_view name);
  // End the argument just read. REQUIRES: innermost() is Call.
  void NextArgument();
  void CloseCall();

  // What was opened last and is not closed yet.
  enum class Open { Nothing, Parenthesis, Call };
  [[nodiscard]] Open innermost() const;
  // Whether nothing was added yet between the call's "(" and here. REQUIRES: innermost() is Call.
  [[nodiscard]] bool NoArgumentBegun() const;

  // Whether the tree is one double-quoted constant and nothing else. REQUIRES: not finished yet.
  [[nodiscard]] bool IsDoubleQuotedConstant() const;
  // Its text. REQUIRES: IsDoubleQuotedConstant().
  [[nodiscard]] std::string_view ConstantText() const;

  // Makes `program`, a new one, of the tree, which is of no use afterwards. REQUIRES: the tree is
  // complete and nothing is open.
  void Finish(ExpressionProgram& program);

  // For tests: operators as "(left OP right)" or "(OP operand)", a side that is empty as "_", the
  // ignored right side of a prefix operator behind a comma.
  [[nodiscard]] String Printed() const;

 private:
  using NodeIndex = uint32_t;
  static constexpr NodeIndex kNone = UINT32_MAX;

  struct Node {
    ExpressionElement kind = ExpressionElement::Group;
    ConstantStyle style = ConstantStyle::Bare;
    NodeIndex parent = kNone;
    NodeIndex left = kNone;
    NodeIndex right = kNone;
    uint32_t text = 0;  // offset in texts_
    uint32_t text_length = 0;
    uint32_t argument_count = 0;       // of a Call
    const OperatorInfo* op = nullptr;  // of an Operator
  };

  // An argument list being read.
  struct CallFrame {
    NodeIndex call;
    NodeIndex last_argument;  // kNone before the first is complete
    NodeIndex outer_root;     // the tree that the call stands in
    NodeIndex outer_current;
    size_t outer_parentheses;  // how many of parentheses_ belong to trees further out
  };

  NodeIndex AddNode(ExpressionElement kind);
  NodeIndex AddTextNode(ExpressionElement kind, std::string_view text);
  void InsertOperand(NodeIndex operand);
  void InsertBelow(NodeIndex op);
  void InsertAbove(NodeIndex op);
  void StartTree();
  size_t OpenParentheses() const;

  std::string_view TextOf(const Node& node) const {
    return {texts_.begin() + node.text, node.text_length};
  }
  bool IsLeaf(NodeIndex node) const;
  NodeIndex WithoutGroups(NodeIndex node) const;
  uint32_t LeafOf(NodeIndex node, ExpressionProgram& program) const;

  // What is still to do while the steps are put in order.
  struct PendingStep {
    NodeIndex node;
    ExpressionProgram::Action action;  // Push: a subtree still to be walked
    uint32_t call;                     // of a Call: its site
  };
  using PendingSteps = SmallArray<PendingStep, 16>;
  void WalkNode(NodeIndex node, ExpressionProgram& program, PendingSteps& pending);
  void WalkCall(NodeIndex node, ExpressionProgram& program, PendingSteps& pending);
  void AddOperation(const Node& node, ExpressionProgram& program) const;

  struct PrintItem;
  void PrintNode(NodeIndex index, String& out, std::vector<PrintItem>& pending) const;

  SmallArray<Node, 8> nodes_;
  SmallArray<char, 128> texts_;
  NodeIndex root_ = kNone;
  NodeIndex current_ = kNone;
  SmallArray<NodeIndex, 8> parentheses_;
  SmallArray<CallFrame, 4> frames_;
};

}  // namespace vexa

#endif  // VEXA_EXPR_EXPRESSION_TREE_H_
