// Reading and printing numbers. The common case, a short whole number, is done by hand with the
// same result byte for byte; everything else goes through the C library.

#include "core/number.h"

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <system_error>

#include "core/text.h"

namespace vexa {

namespace {

// Up to this many digits a whole number is exact in a double and in 64 bits.
constexpr size_t kExactDigits = 15;

// Reads a text that is nothing but an optional "-" and 1 to 15 digits.
bool ReadShortWhole(std::string_view text, int64_t* value) {
  bool negative = !text.empty() && text[0] == '-';
  if (negative) text.remove_prefix(1);
  if (text.empty() || text.size() > kExactDigits) return false;
  int64_t number = 0;
  for (char c : text) {
    if (!IsDigit(c)) return false;
    number = number * 10 + (c - '0');
  }
  if (negative && number == 0) return false;  // "-0" is a real of its own.
  *value = negative ? -number : number;
  return true;
}

// A NUL-terminated copy of a text for the C library, on the stack when it is short.
class Terminated {
 public:
  explicit Terminated(std::string_view text) {
    if (text.size() < sizeof local_) {
      if (!text.empty()) std::memcpy(local_, text.data(), text.size());
      local_[text.size()] = '\0';
      text_ = local_;
    } else {
      copy_ = text;
      text_ = copy_.c_str();
    }
  }
  Terminated(const Terminated&) = delete;
  Terminated& operator=(const Terminated&) = delete;
  [[nodiscard]] const char* text() const { return text_; }

 private:
  char local_[64];
  String copy_;
  const char* text_;
};

// The same digits as printf's "%.*f": both are exact.
String Printed(double value, int places) {
  char local[128];
  auto [end, error] =
      std::to_chars(local, local + sizeof local, value, std::chars_format::fixed, places);
  if (error == std::errc()) {
    return std::string_view(local, static_cast<size_t>(end - local));
  }
  String result;  // Reals are printed in full, whatever their length.
  auto length = static_cast<size_t>(std::snprintf(nullptr, 0, "%.*f", places, value));
  std::snprintf(result.Overwrite(length), length + 1, "%.*f", places, value);
  return result;
}

}  // namespace

double ReadReal(std::string_view text) {
  int64_t whole;
  if (ReadShortWhole(text, &whole)) return static_cast<double>(whole);
  if (text.empty()) return 0;
  return std::strtod(Terminated(text).text(), nullptr);
}

int64_t ReadInteger64(std::string_view text) {
  int64_t whole;
  if (ReadShortWhole(text, &whole)) return whole;
  if (text.empty()) return 0;
  static_assert(sizeof(long) == sizeof(int64_t));
  return std::strtol(Terminated(text).text(), nullptr, 10);
}

int32_t ReadInteger(std::string_view text) {
  int64_t value = ReadInteger64(text);
  if (value > INT32_MAX) return INT32_MAX;
  if (value < INT32_MIN) return INT32_MIN;
  return static_cast<int32_t>(value);
}

bool ReadStrict(std::string_view text, double* value) {
  int64_t whole;
  if (ReadShortWhole(text, &whole)) {
    *value = static_cast<double>(whole);
    return true;
  }
  if (text.empty()) {
    *value = 0;
    return true;
  }
  Terminated copy(text);
  char* end;
  errno = 0;
  *value = std::strtod(copy.text(), &end);
  if (end != copy.text() + text.size()) return false;
  return !(errno == ERANGE && std::isinf(*value));
}

String PrintReal(double value) {
  // Whole numbers of up to 15 digits print as integers do; the sign keeps "-0" out.
  if (std::fabs(value) < 1e15 && value == std::trunc(value) && !(value == 0 && std::signbit(value)))
    return PrintInteger(static_cast<int64_t>(value));
  String text = Printed(value, 6);
  std::string_view kept = text;
  if (kept.find('.') == std::string_view::npos) return text;  // inf and nan
  while (kept.back() == '0') kept.remove_suffix(1);
  if (kept.back() == '.') kept.remove_suffix(1);
  text.Truncate(kept.size());
  return text;
}

String PrintInteger(int64_t value) {
  char digits[24];
  auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
  return std::string_view(digits, static_cast<size_t>(end - digits));
}

String PrintRounded(double value, int places) {
  if (places > kMostPlaces) places = kMostPlaces;
  return Printed(value, places < 0 ? 6 : places);
}

int DrawNumber() {
  static const bool kSeeded = (std::srand(static_cast<unsigned>(std::time(nullptr))), true);
  (void)kSeeded;
  return std::rand();
}

}  // namespace vexa
