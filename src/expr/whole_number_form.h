// WholeNumberForm: an expression of one operator between two operands that stand where they are, a
// variable or a whole-number constant each. It is what counts and compares in most loops, and it is
// computed in one step while all its variables hold whole numbers.
//
// Computing has no effect and cannot fail: whoever gets no number evaluates the expression as any
// other, as if nothing had been tried.

#ifndef VEXA_EXPR_WHOLE_NUMBER_FORM_H_
#define VEXA_EXPR_WHOLE_NUMBER_FORM_H_

#include <cstdint>

#include "core/script_value.h"
#include "core/variables.h"
#include "expr/operators.h"

namespace vexa {

class WholeNumberForm {
 public:
  struct Operand {
    KnownName variable;  // no name: the constant
    int64_t constant = 0;
  };

  // No form: Compute never gives a number.
  WholeNumberForm() = default;
  WholeNumberForm(OperatorCode code, const Operand& left, const Operand& right)
      : left_(left), right_(right), code_(code), known_(true) {}

  [[nodiscard]] bool known() const { return known_; }
  // Sets `value` to what the expression comes to now. False when that is not beyond doubt a whole
  // number; `value` is then unspecified. Built into its few callers: calling it would cost a third
  // of what it does.
  [[nodiscard, gnu::always_inline]] bool Compute(Variables& variables, int64_t& value) const {
    int64_t left;
    int64_t right;
    return known_ && Read(left_, variables, left) && Read(right_, variables, right) &&
           OperateOnWhole(code_, left, right, value);
  }

 private:
  [[gnu::always_inline]] static bool Read(const Operand& operand, Variables& variables,
                                          int64_t& number) {
    number = operand.constant;
    if (!operand.variable) return true;
    const Variable* variable = operand.variable.FindPlain(variables);
    if (variable == nullptr || !variable->plain_value().IsWhole()) return false;
    number = variable->plain_value().mantissa();
    return true;
  }

  Operand left_;
  Operand right_;
  OperatorCode code_ = OperatorCode::Add;
  bool known_ = false;
};

}  // namespace vexa

#endif  // VEXA_EXPR_WHOLE_NUMBER_FORM_H_
