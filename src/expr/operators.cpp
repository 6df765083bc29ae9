// The operators in groups (arithmetic on reals, arithmetic on integers, truth and comparison,
// searching, texts) and, at the end, their table.
//
// A handler is one row of the table: it reads its operands in the way that suits it, with the
// readings of core/number.h, and leaves its result in the left one. Operands are read in full
// before the result is written, since both may be the same text. Answers that look odd (an empty
// text is found by IN but not by EIN, shifts use five bits, 0 * -1 is -0) are on purpose: pages
// test for them.

#include "expr/operators.h"

#include <string.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>

#include "core/name_table.h"
#include "core/text.h"
#include "expr/format_picture.h"
#include "expr/math_library.h"

namespace vexa {

namespace {

constexpr std::string_view kDivideByZero = "Divide by 0";

// Every handler sets `left` to the result and returns true unless it reported an error.

bool SetFlag(ScriptValue& left, bool value) {
  left.SetFlag(value);
  return true;
}

bool SetInteger(ScriptValue& left, int64_t value) {
  left.SetInteger(value);
  return true;
}

bool SetReal(ScriptValue& left, double value) {
  left.SetReal(value);
  return true;
}

// --- Reals -----------------------------------------------------------------------------------

bool Add(ExpressionContext&, ScriptValue& left, const ScriptValue& right) {
  return SetReal(left, left.Real() + right.Real());
}

bool Subtract(ExpressionContext&, ScriptValue& left, const ScriptValue& right) {
  return SetReal(left, left.Real() - right.Real());
}

bool Multiply(ExpressionContext&, ScriptValue& left, const ScriptValue& right) {
  return SetReal(left, left.Real() * right.Real());
}

bool Divide(ExpressionContext& context, ScriptValue& left, const ScriptValue& right) {
  double divisor = right.Real();
  if (divisor == 0) return context.ReportExpressionError(kDivideByZero);
  return SetReal(left, left.Real() / divisor);
}

bool Power(ExpressionContext& context, ScriptValue& left, const ScriptValue& right) {
  double power;
  return CallMathFunction<"pow">(context, power, left.Real(), right.Real()) && SetReal(left, power);
}

bool Round(ExpressionContext&, ScriptValue& left, const ScriptValue& right) {
  left.SetRounded(left.Real(), right.Integer());
  return true;
}

// --- Integers --------------------------------------------------------------------------------

bool Modulo(ExpressionContext& context, ScriptValue& left, const ScriptValue& right) {
  int64_t divisor = right.Integer();
  if (divisor == 0) return context.ReportExpressionError(kDivideByZero);
  // In 64 bits, so that the smallest integer modulo -1 is 0 and no overflow.
  return SetInteger(left, int64_t{left.Integer()} % divisor);
}

bool BitAnd(ExpressionContext&, ScriptValue& left, const ScriptValue& right) {
  return SetInteger(left, left.Integer() & right.Integer());
}

bool BitOr(ExpressionContext&, ScriptValue& left, const ScriptValue& right) {
  return SetInteger(left, left.Integer() | right.Integer());
}

bool BitXor(ExpressionContext&, ScriptValue& left, const ScriptValue& right) {
  return SetInteger(left, left.Integer() ^ right.Integer());
}

bool BitComplement(ExpressionContext&, ScriptValue& left, const ScriptValue&) {
  return SetInteger(left, ~left.Integer());
}

// Only the low five bits of a shift count are used, so 33 shifts by 1.
int ShiftCount(const ScriptValue& value) { return value.Integer() & 31; }

bool BitShiftLeft(ExpressionContext&, ScriptValue& left, const ScriptValue& right) {
  uint32_t bits = static_cast<uint32_t>(left.Integer()) << ShiftCount(right);
  return SetInteger(left, static_cast<int32_t>(bits));
}

bool BitShiftRight(ExpressionContext&, ScriptValue& left, const ScriptValue& right) {
  return SetInteger(left, left.Integer() >> ShiftCount(right));
}

// --- Truth and comparison --------------------------------------------------------------------

bool And(ExpressionContext&, ScriptValue& left, const ScriptValue& right) {
  return SetFlag(left, left.IsTrue() && right.IsTrue());
}

bool Or(ExpressionContext&, ScriptValue& left, const ScriptValue& right) {
  return SetFlag(left, left.IsTrue() || right.IsTrue());
}

bool Not(ExpressionContext&, ScriptValue& left, const ScriptValue&) {
  return SetFlag(left, !left.IsTrue());
}

bool Equal(ExpressionContext&, ScriptValue& left, const ScriptValue& right) {
  return SetFlag(left, Compare(left, right) == 0);
}

bool NotEqual(ExpressionContext&, ScriptValue& left, const ScriptValue& right) {
  return SetFlag(left, Compare(left, right) != 0);
}

bool GreaterOrEqual(ExpressionContext&, ScriptValue& left, const ScriptValue& right) {
  return SetFlag(left, Compare(left, right) >= 0);
}

bool LessOrEqual(ExpressionContext&, ScriptValue& left, const ScriptValue& right) {
  return SetFlag(left, Compare(left, right) <= 0);
}

bool LessThan(ExpressionContext&, ScriptValue& left, const ScriptValue& right) {
  return SetFlag(left, Compare(left, right) < 0);
}

bool GreaterThan(ExpressionContext&, ScriptValue& left, const ScriptValue& right) {
  return SetFlag(left, Compare(left, right) > 0);
}

// --- Searching -------------------------------------------------------------------------------

// The position from 1 of the first `text` within `whole`, 0 when it is not there. Takes time in
// proportion to both lengths whatever the texts are. REQUIRES: `text` is not empty.
int64_t PositionOf(std::string_view text, std::string_view whole) {
  if (text.size() > whole.size()) return 0;
  const void* found = ::memmem(whole.data(), whole.size(), text.data(), text.size());
  return found ? static_cast<const char*>(found) - whole.data() + 1 : 0;
}

// The answers for an empty left operand differ on purpose: IN says 1, EIN says 0. Scripts test
// for them.
int64_t StartPosition(std::string_view text, std::string_view whole) {
  return text.empty() ? 1 : PositionOf(text, whole);
}

int64_t EndPosition(std::string_view text, std::string_view whole) {
  int64_t start = text.empty() ? 0 : PositionOf(text, whole);
  return start == 0 ? 0 : start - 1 + static_cast<int64_t>(text.size());
}

bool In(ExpressionContext&, ScriptValue& left, const ScriptValue& right) {
  return SetInteger(left, StartPosition(left.view(), right.view()));
}

bool CaselessIn(ExpressionContext&, ScriptValue& left, const ScriptValue& right) {
  return SetInteger(left, StartPosition(left.text().upper(), right.text().upper()));
}

bool EndIn(ExpressionContext&, ScriptValue& left, const ScriptValue& right) {
  return SetInteger(left, EndPosition(left.view(), right.view()));
}

bool CaselessEndIn(ExpressionContext&, ScriptValue& left, const ScriptValue& right) {
  return SetInteger(left, EndPosition(left.text().upper(), right.text().upper()));
}

// --- Texts -----------------------------------------------------------------------------------

bool Concatenate(ExpressionContext&, ScriptValue& left, const ScriptValue& right) {
  AppendPiece(left.MutableText(), right.view());
  return true;
}

// Takes what scanf's "%u" would take off the front of `rest`: white space, a sign, digits. Numbers
// beyond 32 bits saturate; a negative one counts down from 2 to the power of 32, as in C. False
// when there is no number.
bool TakeUnsigned(std::string_view& rest, uint32_t& value) {
  size_t i = 0;
  while (i < rest.size() && (IsWhitespace(rest[i]) || rest[i] == '\v' || rest[i] == '\f')) ++i;
  bool negative = i < rest.size() && rest[i] == '-';
  if (i < rest.size() && (rest[i] == '-' || rest[i] == '+')) ++i;
  size_t first_digit = i;
  constexpr uint64_t kMost = std::numeric_limits<uint32_t>::max();
  uint64_t number = 0;
  for (; i < rest.size() && IsDigit(rest[i]); ++i) {
    if (number <= kMost) number = number * 10 + static_cast<uint64_t>(rest[i] - '0');
  }
  if (i == first_digit) return false;
  rest.remove_prefix(i);
  if (number > kMost) {
    value = static_cast<uint32_t>(kMost);
  } else {
    value = negative ? 0 - static_cast<uint32_t>(number) : static_cast<uint32_t>(number);
  }
  return true;
}

bool SubStr(ExpressionContext&, ScriptValue& left, const ScriptValue& right) {
  std::string_view rest = right.view();
  uint32_t start = 0;
  uint32_t length = 0;
  bool readable = TakeUnsigned(rest, start) && rest.starts_with(',');
  if (readable) {
    rest.remove_prefix(1);
    readable = TakeUnsigned(rest, length);
  }
  if (start == 0) start = 1;
  String& text = left.MutableText();
  if (!readable || start > text.size()) {
    text.clear();
  } else {
    text = String(text.view().substr(start - 1, length));
  }
  return true;
}

bool Crypt(ExpressionContext& context, ScriptValue& left, const ScriptValue& right) {
  const std::string_view alphabet = right.view();
  if (alphabet.empty()) {
    return context.ReportExpressionError("The CRYPT operator expects a non-empty alphabet");
  }
  const char salt[] = {alphabet[0], alphabet.size() == 1 ? alphabet[0] : alphabet[1]};
  left = context.host().Crypt(left.text(), String(std::string_view(salt, sizeof salt)));
  return true;
}

bool FormatByPicture(ExpressionContext& context, ScriptValue& left, const ScriptValue& right) {
  if (left.view().size() > kLongestFormatted) {
    return context.ReportExpressionError(
        "The left operand to the FMT operator is limited to 512 characters");
  }
  left = Format(left.view(), right.view());
  return true;
}

// --- Table -----------------------------------------------------------------------------------

constexpr std::array<OperatorInfo, 30> kOperators = {{
    {"+", 3, OperatorCode::Add, Operands::Two, Add},
    {"-", 3, OperatorCode::Subtract, Operands::Two, Subtract},
    {"$", 3, OperatorCode::Concatenate, Operands::Two, Concatenate},
    {"BITAND", 3, OperatorCode::BitAnd, Operands::Two, BitAnd},
    {"BITOR", 3, OperatorCode::BitOr, Operands::Two, BitOr},
    {"BITXOR", 3, OperatorCode::BitXor, Operands::Two, BitXor},
    {"BITOC", 3, OperatorCode::BitComplement, Operands::Prefix, BitComplement},
    {"BITSL", 3, OperatorCode::BitShiftLeft, Operands::Two, BitShiftLeft},
    {"BITSR", 3, OperatorCode::BitShiftRight, Operands::Two, BitShiftRight},
    {"/", 4, OperatorCode::Divide, Operands::Two, Divide},
    {"*", 4, OperatorCode::Multiply, Operands::Two, Multiply},
    {"MOD", 4, OperatorCode::Modulo, Operands::Two, Modulo},
    {"AND", 1, OperatorCode::And, Operands::Two, And},
    {"OR", 1, OperatorCode::Or, Operands::Two, Or},
    {"IN", 2, OperatorCode::In, Operands::Two, In},
    {"CIN", 2, OperatorCode::CaselessIn, Operands::Two, CaselessIn},
    {"EIN", 2, OperatorCode::EndIn, Operands::Two, EndIn},
    {"ECIN", 2, OperatorCode::CaselessEndIn, Operands::Two, CaselessEndIn},
    {"EQ", 2, OperatorCode::Equal, Operands::Two, Equal},
    {"NE", 2, OperatorCode::NotEqual, Operands::Two, NotEqual},
    {"GE", 2, OperatorCode::GreaterOrEqual, Operands::Two, GreaterOrEqual},
    {"LE", 2, OperatorCode::LessOrEqual, Operands::Two, LessOrEqual},
    {"LT", 2, OperatorCode::LessThan, Operands::Two, LessThan},
    {"GT", 2, OperatorCode::GreaterThan, Operands::Two, GreaterThan},
    {"FMT", 5, OperatorCode::Format, Operands::Two, FormatByPicture},
    {"ROUND", 5, OperatorCode::Round, Operands::Two, Round},
    {"CRYPT", 5, OperatorCode::Crypt, Operands::Two, Crypt},
    {"SUBSTR", 5, OperatorCode::SubStr, Operands::Two, SubStr},
    {"POW", 5, OperatorCode::Power, Operands::Two, Power},
    {"NOT", 6, OperatorCode::Not, Operands::Prefix, Not},
}};

constexpr NameTable kOperatorNames(kOperators,
                                   [](const OperatorInfo& row) { return row.spelling; });

static_assert([] {
  size_t longest = 0;
  for (const OperatorInfo& info : kOperators) longest = std::max(longest, info.spelling.size());
  return longest == kLongestOperator;
}());

}  // namespace

std::span<const OperatorInfo> AllOperators() { return kOperators; }

const OperatorInfo* FindOperator(std::string_view word) {
  if (word.size() > kLongestOperator) return nullptr;
  const int row = kOperatorNames.Find(kOperators, word);
  return row < 0 ? nullptr : &kOperators[static_cast<size_t>(row)];
}

void AppendPiece(String& text, std::string_view piece) {
  // A text that grows again and again would be copied each time; short texts stay exact in size.
  constexpr size_t kLong = 256;
  const size_t length = text.size() + piece.size();
  if (length >= static_cast<size_t>(text.capacity()) && text.size() >= kLong) {
    const bool own = piece.data() >= text.data() && piece.data() <= text.data() + text.size();
    if (!own) text.Reserve(length);
  }
  text.cat(piece);
}

bool OperateOnAnyWhole(OperatorCode code, int64_t a, int64_t b, int64_t& value) {
  switch (code) {
    case OperatorCode::LessThan:
      value = a < b;
      break;
    case OperatorCode::Add:
      value = a + b;
      break;
    case OperatorCode::Subtract:
      value = a - b;
      break;
    case OperatorCode::Multiply:
      // Nothing times a negative number is "-0".
      if (__builtin_mul_overflow(a, b, &value) || (value == 0 && (a < 0 || b < 0))) return false;
      break;
    case OperatorCode::Modulo:
      if (b == 0 || a < INT32_MIN || a > INT32_MAX || b < INT32_MIN || b > INT32_MAX) return false;
      value = a % b;
      break;
    case OperatorCode::Equal:
      value = a == b;
      break;
    case OperatorCode::NotEqual:
      value = a != b;
      break;
    case OperatorCode::GreaterOrEqual:
      value = a >= b;
      break;
    case OperatorCode::LessOrEqual:
      value = a <= b;
      break;
    case OperatorCode::GreaterThan:
      value = a > b;
      break;
    default:
      return false;
  }
  // Beyond it reals skip whole numbers.
  return value > -ScriptValue::kWholeLimit && value < ScriptValue::kWholeLimit;
}

bool OperateOnNumbers(OperatorCode code, const ScriptValue& left, const ScriptValue& right,
                      ScriptValue& result) {
  int64_t value = 0;
  if (!left.IsWhole() || !right.IsWhole() ||
      !OperateOnWhole(code, left.mantissa(), right.mantissa(), value)) {
    return false;
  }
  result.SetWhole(value);
  return true;
}

}  // namespace vexa
