// ScriptValue: the value of a variable, a constant or an expression: a text, which may carry its
// number beside it.
//
// Every value is a text for whoever looks. A value that arithmetic made need not have its text
// written yet, and a value that came as a text is read as a number only once. The number stands
// beside the text only when the text is exactly what that number prints: "7", "-0.25" and, from a
// rounding, "2.50", but not "007", "-0", "1e3" or "1.50x". So who computes with the number and who
// reads the text see the same value, and no text can ever change by this.
//
// A number is a count of decimal fractions: `mantissa` / 10^`places`. Its mantissa is below 2^53
// in magnitude, so that the division gives the very real that reading the text would give.

#ifndef VEXA_CORE_SCRIPT_VALUE_H_
#define VEXA_CORE_SCRIPT_VALUE_H_

#include <cassert>
#include <cstdint>
#include <string_view>
#include <utility>

#include "core/shortcuts.h"
#include "core/string.h"

namespace vexa {

class ScriptValue {
 public:
  // Whole numbers below this magnitude, and no others, are kept as numbers.
  static constexpr int64_t kWholeLimit = int64_t{1} << 53;
  // The most decimals of a number that is kept beside its text.
  static constexpr int kMostDecimals = 9;

  ScriptValue() = default;  // the empty text
  ScriptValue(String text) : text_(std::move(text)) {}
  ScriptValue(std::string_view text) : text_(text) {}
  ScriptValue(const char* text) : text_(text) {}
  ScriptValue(const ScriptValue& other)
      : mantissa_(other.mantissa_),
        state_(other.state_),
        places_(other.places_),
        trimmed_(other.trimmed_) {
    if (other.has_text()) text_ = other.text_;
  }
  // What is left behind is some value.
  ScriptValue(ScriptValue&& other) noexcept
      : mantissa_(other.mantissa_),
        state_(other.state_),
        places_(other.places_),
        trimmed_(other.trimmed_) {
    if (other.has_text()) text_ = std::move(other.text_);
  }
  ScriptValue& operator=(const ScriptValue& other) {
    if (other.has_text()) {
      text_ = other.text_;
    } else {
      text_.ReleaseStorage();
    }
    mantissa_ = other.mantissa_;
    state_ = other.state_;
    places_ = other.places_;
    trimmed_ = other.trimmed_;
    return *this;
  }
  ScriptValue& operator=(ScriptValue&& other) noexcept {
    if (other.has_text()) {
      text_ = std::move(other.text_);
    } else {
      text_.ReleaseStorage();
    }
    mantissa_ = other.mantissa_;
    state_ = other.state_;
    places_ = other.places_;
    trimmed_ = other.trimmed_;
    return *this;
  }
  ScriptValue& operator=(String text) {
    text_ = std::move(text);
    state_ = State::Text;
    return *this;
  }
  ScriptValue& operator=(std::string_view text) {
    text_ = text;
    state_ = State::Text;
    return *this;
  }
  ScriptValue& operator=(const char* text) { return *this = std::string_view(text); }
  ~ScriptValue() = default;
  void clear() {
    text_.Reset();
    state_ = State::Text;
  }

  // --- As a text -----------------------------------------------------------------------------

  // Valid until the value is changed or destroyed.
  [[nodiscard]] const String& text() const {
    if (!has_text()) WriteText();
    return text_;
  }
  [[nodiscard]] std::string_view view() const { return text().view(); }
  // The bytes of the text that is held; 0 while it is not written.
  [[nodiscard]] size_t text_size() const { return has_text() ? text_.size() : 0; }
  [[nodiscard]] bool IsEmpty() const { return has_text() && text_.empty(); }
  // The text, to be changed in place; the number is forgotten.
  [[nodiscard]] String& MutableText() {
    if (!has_text()) WriteText();
    state_ = State::Text;
    return text_;
  }
  // The text, moved out. The value is then some text.
  [[nodiscard]] String TakeText() { return std::move(MutableText()); }

  // A number that no other text of this process has or had: it goes with copies of the value and is
  // lost when the text changes, so whoever worked on the text knows it again without comparing. 0
  // for a value that is a number.
  [[nodiscard]] uint64_t Mark() const;

  // --- As a number ---------------------------------------------------------------------------

  // Whether a number stands beside the text; looks at the text the first time.
  [[nodiscard]] bool IsNumber() const {
    return state_ >= State::Both || (state_ == State::Text && Recognise());
  }
  // Whether one is known to; the text is not looked at.
  [[nodiscard]] bool IsKnownNumber() const { return state_ >= State::Both; }
  // Whether it is a whole number.
  [[nodiscard]] bool IsWhole() const { return IsNumber() && places_ == 0; }
  // The count of fractions, which is the number itself when it is whole. REQUIRES: IsNumber().
  [[nodiscard]] int64_t mantissa() const {
    assert(state_ >= State::Both);
    return mantissa_;
  }
  // The reading of the text as ReadReal gives it.
  [[nodiscard]] double Real() const;
  // The reading of the text as ReadInteger gives it: saturated at 32 bits.
  [[nodiscard]] int32_t Integer() const;
  [[nodiscard]] int64_t Integer64() const;
  // Whether the text is true: false exactly when it holds nothing but "0" and at most one ".".
  [[nodiscard]] bool IsTrue() const { return IsNumber() ? mantissa_ != 0 : TextIsTrue(text_); }
  [[nodiscard]] static bool TextIsTrue(std::string_view text);

  // Make it what PrintInteger, PrintReal and PrintRounded print.
  void SetInteger(int64_t value) {
    if (value > -kWholeLimit && value < kWholeLimit && UseShortcuts()) {
      SetNumber(value, 0);
    } else {
      WriteInteger(value);
    }
  }
  // The same for a whole number that is known to be kept as one. Built into its callers: what
  // counts does little else. REQUIRES: below kWholeLimit in magnitude, and numbers are kept.
  [[gnu::always_inline]] void SetWhole(int64_t value) {
    assert(value > -kWholeLimit && value < kWholeLimit && UseShortcuts());
    SetNumber(value, 0);
  }
  void SetReal(double value);
  void SetRounded(double value, int places);
  void SetFlag(bool value) { SetInteger(value ? 1 : 0); }

 private:
  enum class State : uint8_t {
    Text,      // the text; whether a number may stand beside it was not asked yet
    TextOnly,  // the text, which is no number
    Marked,    // the same; its mark stands in place of the number
    Both,
    Number,  // the number; the text is not written yet
  };

  [[nodiscard]] bool has_text() const { return state_ != State::Number; }
  void SetNumber(int64_t mantissa, int places) {
    text_.ReleaseStorage();
    mantissa_ = mantissa;
    places_ = static_cast<uint8_t>(places);
    trimmed_ = false;
    state_ = State::Number;
  }
  [[nodiscard]] bool Recognise() const;
  void WriteText() const;
  void WriteInteger(int64_t value);

  // What is known of the value grows while others only look at it.
  mutable String text_;
  mutable int64_t mantissa_ = 0;
  mutable State state_ = State::Text;
  mutable uint8_t places_ = 0;
  bool trimmed_ = false;  // whether the text leaves out zeros at the end of the decimals
};

// The comparison rule: as numbers when both texts are wholly numbers (the empty text is 0), else
// byte by byte. Negative, 0 or positive.
[[nodiscard]] int Compare(const ScriptValue& a, const ScriptValue& b);

}  // namespace vexa

#endif  // VEXA_CORE_SCRIPT_VALUE_H_
