// The thirty operators: their spelling and binding strength, and what each makes of its operands.
//
// Every operand and every result is text; each operator decides whether it reads its operands as
// reals, as 32-bit integers, as truth values or as texts. Each result is what printing it gives, so
// (1/3)*3 is 0.999999 and scripts depend on that rounding; a number kept beside a text is exactly
// what is printed (core/script_value.h).

#ifndef VEXA_EXPR_OPERATORS_H_
#define VEXA_EXPR_OPERATORS_H_

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "core/script_value.h"
#include "core/string.h"
#include "expr/expression_context.h"

namespace vexa {

// The numbers are part of the language's definition; the order of the table differs.
enum class OperatorCode {
  Add = 0,
  Subtract = 1,
  Concatenate = 2,
  BitAnd = 3,
  BitOr = 4,
  BitXor = 5,
  BitComplement = 6,
  BitShiftLeft = 7,
  BitShiftRight = 8,
  Divide = 9,
  Multiply = 10,
  And = 11,
  Or = 12,
  In = 13,
  CaselessIn = 14,
  EndIn = 15,
  CaselessEndIn = 16,
  Equal = 17,
  NotEqual = 18,
  GreaterOrEqual = 19,
  LessOrEqual = 20,
  LessThan = 21,
  GreaterThan = 22,
  Not = 23,
  Format = 24,
  Round = 25,
  Crypt = 26,
  Modulo = 27,
  SubStr = 28,
  Power = 29,
};

enum class Operands {
  Prefix,  // one, behind the operator
  Two,
};

// Computes an operator. `left` holds the left operand (the only one of a prefix operator) and
// becomes the result. False after an error was reported through `context`; `left` is then
// unspecified.
using OperatorHandler = bool (*)(ExpressionContext& context, ScriptValue& left,
                                 const ScriptValue& right);

struct OperatorInfo {
  std::string_view spelling;
  int precedence;  // 1 to 6; higher binds tighter
  OperatorCode code;
  Operands operands;
  OperatorHandler handler;

  [[nodiscard]] bool IsPrefix() const { return operands == Operands::Prefix; }
};

// All operators, in the order of the language's table.
[[nodiscard]] std::span<const OperatorInfo> AllOperators();

// The operator spelled `word`, letter case ignored, or null.
[[nodiscard]] const OperatorInfo* FindOperator(std::string_view word);

// The length of the longest spelling.
inline constexpr size_t kLongestOperator = 6;

// Whether `c` is an operator by itself and so ends the word before it. "|" and "^" are on purpose
// although no operator is spelled so: names cannot hold them.
[[nodiscard]] constexpr bool IsOperatorChar(char c) {
  return c == '|' || c == '^' || c == '+' || c == '-' || c == '/' || c == '*' || c == '$';
}

// Computes `op` on the operands as OperatorHandler describes.
[[nodiscard]] inline bool Operate(const OperatorInfo& op, ExpressionContext& context,
                                  ScriptValue& left, const ScriptValue& right) {
  return op.handler(context, left, right);
}

// Computes the commonest operators on two whole numbers below ScriptValue::kWholeLimit, to the
// number, below it too, whose text Operate would give. False, and `value` is unspecified, for
// anything else.
[[nodiscard]] bool OperateOnAnyWhole(OperatorCode code, int64_t a, int64_t b, int64_t& value);
// The same, with what nearly every loop does built into its callers.
[[nodiscard, gnu::always_inline]] inline bool OperateOnWhole(OperatorCode code, int64_t a,
                                                             int64_t b, int64_t& value) {
  if (code == OperatorCode::LessThan) {
    value = a < b;
    return true;
  }
  if (code != OperatorCode::Add) return OperateOnAnyWhole(code, a, b, value);
  value = a + b;
  // Beyond it reals skip whole numbers.
  return value > -ScriptValue::kWholeLimit && value < ScriptValue::kWholeLimit;
}

// The same for values. False, and `result` is unchanged, when they are not both whole numbers or it
// is another operator. `result` may be an operand. REQUIRES: both are numbers.
[[nodiscard]] bool OperateOnNumbers(OperatorCode code, const ScriptValue& left,
                                    const ScriptValue& right, ScriptValue& result);

// Appends `piece`, which may be `text` itself. Appending again and again takes time in proportion
// to what is appended.
void AppendPiece(String& text, std::string_view piece);

}  // namespace vexa

#endif  // VEXA_EXPR_OPERATORS_H_
