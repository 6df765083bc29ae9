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

#include "core/number.h"
#include "core/text.h"
#include "expr/expression.h"
#include "expr/format_picture.h"
#include "expr/math_library.h"

namespace vexa {

namespace {

constexpr std::string_view kDivideByZero = "Divide by 0";

// Every handler sets `left` to the result and returns true unless it reported an error.

bool SetFlag(String& left, bool value) {
  left.assign(value ? '1' : '0');
  return true;
}

bool SetInteger(String& left, int64_t value) {
  left = PrintInteger(value);
  return true;
}

bool SetReal(String& left, double value) {
  left = PrintReal(value);
  return true;
}

// --- Reals -----------------------------------------------------------------------------------

bool Add(ExpressionContext&, String& left, std::string_view right) {
  return SetReal(left, ReadReal(left) + ReadReal(right));
}

bool Subtract(ExpressionContext&, String& left, std::string_view right) {
  return SetReal(left, ReadReal(left) - ReadReal(right));
}

bool Multiply(ExpressionContext&, String& left, std::string_view right) {
  return SetReal(left, ReadReal(left) * ReadReal(right));
}

bool Divide(ExpressionContext& context, String& left, std::string_view right) {
  double divisor = ReadReal(right);
  if (divisor == 0) return context.ReportExpressionError(kDivideByZero);
  return SetReal(left, ReadReal(left) / divisor);
}

bool Power(ExpressionContext& context, String& left, std::string_view right) {
  double power;
  return CallMathFunction<"pow">(context, power, ReadReal(left), ReadReal(right)) &&
         SetReal(left, power);
}

bool Round(ExpressionContext&, String& left, std::string_view right) {
  left = PrintRounded(ReadReal(left), ReadInteger(right));
  return true;
}

// --- Integers --------------------------------------------------------------------------------

bool Modulo(ExpressionContext& context, String& left, std::string_view right) {
  int64_t divisor = ReadInteger(right);
  if (divisor == 0) return context.ReportExpressionError(kDivideByZero);
  // In 64 bits, so that the smallest integer modulo -1 is 0 and no overflow.
  return SetInteger(left, int64_t{ReadInteger(left)} % divisor);
}

bool BitAnd(ExpressionContext&, String& left, std::string_view right) {
  return SetInteger(left, ReadInteger(left) & ReadInteger(right));
}

bool BitOr(ExpressionContext&, String& left, std::string_view right) {
  return SetInteger(left, ReadInteger(left) | ReadInteger(right));
}

bool BitXor(ExpressionContext&, String& left, std::string_view right) {
  return SetInteger(left, ReadInteger(left) ^ ReadInteger(right));
}

bool BitComplement(ExpressionContext&, String& left, std::string_view) {
  return SetInteger(left, ~ReadInteger(left));
}

// Only the low five bits of a shift count are used, so 33 shifts by 1.
int ShiftCount(std::string_view text) { return ReadInteger(text) & 31; }

bool BitShiftLeft(ExpressionContext&, String& left, std::string_view right) {
  uint32_t bits = static_cast<uint32_t>(ReadInteger(left)) << ShiftCount(right);
  return SetInteger(left, static_cast<int32_t>(bits));
}

bool BitShiftRight(ExpressionContext&, String& left, std::string_view right) {
  return SetInteger(left, ReadInteger(left) >> ShiftCount(right));
}

// --- Truth and comparison --------------------------------------------------------------------

bool And(ExpressionContext&, String& left, std::string_view right) {
  return SetFlag(left, Expression::IsTrue(left) && Expression::IsTrue(right));
}

bool Or(ExpressionContext&, String& left, std::string_view right) {
  return SetFlag(left, Expression::IsTrue(left) || Expression::IsTrue(right));
}

bool Not(ExpressionContext&, String& left, std::string_view) {
  return SetFlag(left, !Expression::IsTrue(left));
}

bool Equal(ExpressionContext&, String& left, std::string_view right) {
  return SetFlag(left, Compare(left, right) == 0);
}

bool NotEqual(ExpressionContext&, String& left, std::string_view right) {
  return SetFlag(left, Compare(left, right) != 0);
}

bool GreaterOrEqual(ExpressionContext&, String& left, std::string_view right) {
  return SetFlag(left, Compare(left, right) >= 0);
}

bool LessOrEqual(ExpressionContext&, String& left, std::string_view right) {
  return SetFlag(left, Compare(left, right) <= 0);
}

bool LessThan(ExpressionContext&, String& left, std::string_view right) {
  return SetFlag(left, Compare(left, right) < 0);
}

bool GreaterThan(ExpressionContext&, String& left, std::string_view right) {
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

bool In(ExpressionContext&, String& left, std::string_view right) {
  return SetInteger(left, StartPosition(left, right));
}

bool CaselessIn(ExpressionContext&, String& left, std::string_view right) {
  return SetInteger(left, StartPosition(left.upper(), String(right).upper()));
}

bool EndIn(ExpressionContext&, String& left, std::string_view right) {
  return SetInteger(left, EndPosition(left, right));
}

bool CaselessEndIn(ExpressionContext&, String& left, std::string_view right) {
  return SetInteger(left, EndPosition(left.upper(), String(right).upper()));
}

// --- Texts -----------------------------------------------------------------------------------

bool Concatenate(ExpressionContext&, String& left, std::string_view right) {
  // A long chain would copy its growing left side again and again; short texts stay exact in size.
  constexpr size_t kLong = 256;
  if (left.size() >= kLong) left.Reserve(left.size() + right.size());
  left.cat(right);
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

bool SubStr(ExpressionContext&, String& left, std::string_view right) {
  uint32_t start = 0;
  uint32_t length = 0;
  bool readable = TakeUnsigned(right, start) && right.starts_with(',');
  if (readable) {
    right.remove_prefix(1);
    readable = TakeUnsigned(right, length);
  }
  if (start == 0) start = 1;
  if (!readable || start > left.size()) {
    left.clear();
  } else {
    left = String(left.view().substr(start - 1, length));
  }
  return true;
}

bool Crypt(ExpressionContext& context, String& left, std::string_view right) {
  if (right.empty()) {
    return context.ReportExpressionError("The CRYPT operator expects a non-empty alphabet");
  }
  const char salt[] = {right[0], right.size() == 1 ? right[0] : right[1]};
  left = context.host().Crypt(left, String(std::string_view(salt, sizeof salt)));
  return true;
}

bool FormatByPicture(ExpressionContext& context, String& left, std::string_view right) {
  if (left.size() > kLongestFormatted) {
    return context.ReportExpressionError(
        "The left operand to the FMT operator is limited to 512 characters");
  }
  left = Format(left, right);
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

// The upper-case spelling and its length packed into one number, so that every word of an
// expression is compared with all spellings by plain integer comparisons.
constexpr uint64_t PackedSpelling(std::string_view word) {
  uint64_t packed = word.size();
  for (char c : word) packed = packed << 8 | static_cast<unsigned char>(ToUpper(c));
  return packed;
}

constexpr std::array<uint64_t, kOperators.size()> kPackedSpellings = [] {
  std::array<uint64_t, kOperators.size()> packed{};
  for (size_t i = 0; i < packed.size(); ++i) packed[i] = PackedSpelling(kOperators[i].spelling);
  return packed;
}();

static_assert([] {
  size_t longest = 0;
  for (const OperatorInfo& info : kOperators) longest = std::max(longest, info.spelling.size());
  return longest == kLongestOperator;
}());

}  // namespace

std::span<const OperatorInfo> AllOperators() { return kOperators; }

const OperatorInfo* FindOperator(std::string_view word) {
  if (word.empty() || word.size() > kLongestOperator) return nullptr;
  uint64_t packed = PackedSpelling(word);
  for (size_t i = 0; i < kPackedSpellings.size(); ++i) {
    if (kPackedSpellings[i] == packed) return &kOperators[i];
  }
  return nullptr;
}

int NumberCompare(std::string_view a, std::string_view b) {
  double left = 0;
  double right = 0;
  if (!ReadStrict(a, &left) || !ReadStrict(b, &right)) return kNotNumbers;
  // "nan" is no number here: it has no place in the order.
  if (std::isnan(left) || std::isnan(right)) return kNotNumbers;
  if (left == right) return 0;
  return left > right ? 1 : -1;
}

int Compare(std::string_view a, std::string_view b) {
  int order = NumberCompare(a, b);
  return order == kNotNumbers ? a.compare(b) : order;
}

}  // namespace vexa
