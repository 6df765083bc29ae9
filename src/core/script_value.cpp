// ScriptValue: texts recognised as numbers, reals kept as decimal fractions, and texts written.
//
// A real is kept as a number only when the last decimal that printing it would show is beyond
// doubt. Printing rounds the exact value v * 10^p; what is computed here is q, that product rounded
// to a double, which is off by at most |q| * 2^-53. So when q lies further than that from the
// middle between two whole numbers, the nearest one is what printing shows. Otherwise, and where
// the result is "-0" or beyond the limits, the C library's digits are taken.

#include "core/script_value.h"

#include <array>
#include <charconv>
#include <cmath>

#include "core/number.h"
#include "core/text.h"

namespace vexa {

namespace {

constexpr int kRealPlaces = 6;
constexpr int64_t kMillion = 1'000'000;
constexpr std::array<double, ScriptValue::kMostDecimals + 1> kPowers = {1,   1e1, 1e2, 1e3, 1e4,
                                                                        1e5, 1e6, 1e7, 1e8, 1e9};
constexpr std::array<int64_t, ScriptValue::kMostDecimals + 1> kWholePowers = {
    1, 10, 100, 1'000, 10'000, 100'000, 1'000'000, 10'000'000, 100'000'000, 1'000'000'000};

// The longest text of a number: the digits of 2^53 or of a 0 and its decimals, a point and a sign.
constexpr size_t kMostCharacters = 20;
static_assert(kMostCharacters < String::kCapacityStep);

// Below this magnitude rounding by addition is exact.
constexpr double kRoundingLimit = 0x1p51;

// The whole number nearest to `value` * `power`. False when the neighbour may be meant.
bool NearestBeyondDoubt(double value, double power, int64_t* nearest) {
  const double scaled = value * power;
  if (!(std::fabs(scaled) < kRoundingLimit)) return false;  // NaN too
  const double rounded = (scaled + 0x1.8p52) - 0x1.8p52;
  if (std::fabs(scaled - rounded) >= 0.5 - std::fabs(scaled) * 0x1p-52) return false;
  *nearest = static_cast<int64_t>(rounded);
  return true;
}

}  // namespace

bool ScriptValue::TextIsTrue(std::string_view text) {
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

// Reads texts of the form [-]digits[.decimals] with up to 15 digits, no superfluous zero in front
// and no "-" before nothing but zeros.
bool ScriptValue::Recognise() const {
  state_ = State::TextOnly;
  constexpr size_t kMostCharacters = 17;
  std::string_view text = text_.view();
  if (text.empty() || text.size() > kMostCharacters || !UseShortcuts()) return false;
  const bool negative = text[0] == '-';
  if (negative) text.remove_prefix(1);
  if (text.empty() || !IsDigit(text[0])) return false;
  int64_t number = 0;
  size_t point = text.size();
  for (size_t i = 0; i < text.size(); ++i) {
    if (IsDigit(text[i])) {
      number = number * 10 + (text[i] - '0');
    } else if (text[i] == '.' && point == text.size()) {
      point = i;
    } else {
      return false;
    }
  }
  const size_t decimals = point == text.size() ? 0 : text.size() - point - 1;
  const bool plain = point == text.size() || decimals > 0;
  if (!plain || decimals > kMostDecimals || point + decimals > 15) return false;
  if ((text[0] == '0' && point > 1) || (negative && number == 0)) return false;
  mantissa_ = negative ? -number : number;
  places_ = static_cast<uint8_t>(decimals);
  state_ = State::Both;
  return true;
}

uint64_t ScriptValue::Mark() const {
  static int64_t last_mark = 0;
  if (IsNumber()) return 0;
  if (state_ != State::Marked) {
    state_ = State::Marked;
    mantissa_ = ++last_mark;
  }
  return static_cast<uint64_t>(mantissa_);
}

double ScriptValue::Real() const {
  if (!IsNumber()) return ReadReal(text_);
  const auto mantissa = static_cast<double>(mantissa_);
  return places_ == 0 ? mantissa : mantissa / kPowers[places_];
}

int64_t ScriptValue::Integer64() const {
  if (!IsNumber()) return ReadInteger64(text_);
  return places_ == 0 ? mantissa_ : mantissa_ / kWholePowers[places_];
}

int32_t ScriptValue::Integer() const {
  const int64_t value = Integer64();
  if (value > INT32_MAX) return INT32_MAX;
  if (value < INT32_MIN) return INT32_MIN;
  return static_cast<int32_t>(value);
}

void ScriptValue::SetReal(double value) {
  int64_t number;
  if (UseShortcuts() && NearestBeyondDoubt(value, kPowers[kRealPlaces], &number) &&
      (number != 0 || !std::signbit(value))) {
    if (number % kMillion == 0) {
      SetNumber(number / kMillion, 0);
    } else {
      SetNumber(number, kRealPlaces);
      trimmed_ = true;
    }
    return;
  }
  if (UseShortcuts() && std::fabs(value) < static_cast<double>(kWholeLimit) &&
      value == static_cast<double>(static_cast<int64_t>(value)) && value != 0) {
    SetNumber(static_cast<int64_t>(value), 0);
    return;
  }
  *this = PrintReal(value);
}

void ScriptValue::SetRounded(double value, int places) {
  int64_t number;
  if (places >= 0 && places <= kMostDecimals && UseShortcuts() &&
      NearestBeyondDoubt(value, kPowers[static_cast<size_t>(places)], &number) &&
      (number != 0 || !std::signbit(value))) {
    SetNumber(number, places);
    return;
  }
  *this = PrintRounded(value, places);
}

void ScriptValue::WriteInteger(int64_t value) { *this = PrintInteger(value); }

void ScriptValue::WriteText() const {
  assert(state_ == State::Number);
  // Behind the digits there is room to copy a whole short text from any of them.
  char digits[kMostCharacters + String::kCapacityStep];
  char* const end = digits + kMostCharacters;
  char* begin = end;
  uint64_t rest = static_cast<uint64_t>(mantissa_ < 0 ? -mantissa_ : mantissa_);
  if (places_ > 0) {
    int left = places_;
    bool trimming = trimmed_;
    for (; left > 0; --left, rest /= 10) {
      const char digit = static_cast<char>('0' + rest % 10);
      if (trimming && digit == '0') continue;
      trimming = false;
      *--begin = digit;
    }
    *--begin = '.';
  }
  do {
    *--begin = static_cast<char>('0' + rest % 10);
    rest /= 10;
  } while (rest > 0);
  if (mantissa_ < 0) *--begin = '-';
  text_.AssignShort(begin, static_cast<size_t>(end - begin));
  state_ = State::Both;
}

int Compare(const ScriptValue& a, const ScriptValue& b) {
  if (a.IsNumber() && b.IsNumber()) {
    if (a.IsWhole() && b.IsWhole())
      return (a.mantissa() > b.mantissa()) - (a.mantissa() < b.mantissa());
    const double left = a.Real();
    const double right = b.Real();
    return (left > right) - (left < right);
  }
  double left = 0;
  double right = 0;
  // "nan" is no number here: it has no place in the order.
  if (ReadStrict(a.text(), &left) && ReadStrict(b.text(), &right) && !std::isnan(left) &&
      !std::isnan(right)) {
    return (left > right) - (left < right);
  }
  return a.view().compare(b.view());
}

}  // namespace vexa
