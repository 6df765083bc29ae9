// Conversion with iconv. The name of a charset comes from strangers and the C library looks for
// converters in files: only plain names reach it.

#include "net/charset.h"

#include <iconv.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <utility>

#include "core/late_function.h"
#include "core/text.h"

namespace vexa {

namespace {

constexpr size_t kLongestName = 40;
constexpr std::string_view kReplacement = "\xEF\xBF\xBD";  // U+FFFD

bool IsPlainName(std::string_view name) {
  const auto is_plain = [](char c) {
    return IsAlpha(c) || IsDigit(c) || c == '-' || c == '_' || c == ':' || c == '.';
  };
  return !name.empty() && name.size() <= kLongestName && std::ranges::all_of(name, is_plain);
}

// How many bytes are left out where the text is wrong, so that what follows is in step again.
size_t UnitSize(std::string_view charset) {
  for (const std::string_view wide : {"UTF-16", "UTF16", "UCS-2", "UCS2"}) {
    if (EqualsIgnoreCase(charset.substr(0, wide.size()), wide)) return 2;
  }
  for (const std::string_view wide : {"UTF-32", "UTF32", "UCS-4", "UCS4"}) {
    if (EqualsIgnoreCase(charset.substr(0, wide.size()), wide)) return 4;
  }
  return 1;
}

// A converter of the C library, closed with the object.
class Converter {
 public:
  explicit Converter(std::string_view charset)
      : unit_(UnitSize(charset)),
        handle_(LateFunction<"iconv_open", decltype(::iconv_open)>()("UTF-8",
                                                                     String(charset).c_str())) {}
  ~Converter() {
    if (usable()) LateFunction<"iconv_close", decltype(::iconv_close)>()(handle_);
  }
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;
  [[nodiscard]] bool usable() const { return handle_ != reinterpret_cast<iconv_t>(-1); }

  void Append(std::string_view text, String& out) {
    // The converter takes a pointer to bytes it does not change.
    char* in = const_cast<char*>(text.data());
    size_t left = text.size();
    while (left > 0) {
      if (Step(&in, &left, out) || errno == E2BIG) continue;
      out.Append(kReplacement);
      if (errno == EINVAL) break;  // A character is cut off by the end.
      const size_t wrong = std::min(unit_, left);
      in += wrong;
      left -= wrong;
    }
    while (!Step(nullptr, nullptr, out) && errno == E2BIG) {
    }
  }

 private:
  // Converts as much as fits a piece. False with errno set when input is left or cannot be read.
  bool Step(char** in, size_t* left, String& out) {
    char piece[4096];
    char* end = piece;
    size_t room = sizeof piece;
    const size_t result =
        LateFunction<"iconv", decltype(::iconv)>()(handle_, in, left, &end, &room);
    const int reason = errno;
    out.Append({piece, sizeof piece - room});
    errno = reason;
    return result != static_cast<size_t>(-1);
  }

  size_t unit_;
  iconv_t handle_;
};

}  // namespace

bool ConvertToUtf8(std::string_view text, std::string_view charset, String& utf8) {
  if (!IsPlainName(charset)) return false;
  Converter converter(charset);
  if (!converter.usable()) return false;
  String converted;
  converter.Append(text, converted);
  utf8 = std::move(converted);
  return true;
}

bool IsUtf8Name(std::string_view charset) {
  return EqualsIgnoreCase(charset, "utf-8") || EqualsIgnoreCase(charset, "utf8");
}

ByteOrderMark FindByteOrderMark(std::string_view text) {
  // The longer one first: it begins with the shorter.
  static constexpr ByteOrderMark kMarks[] = {
      {"\xEF\xBB\xBF", "UTF-8"},         {{"\xFF\xFE\0\0", 4}, "UTF-32LE"},
      {{"\0\0\xFE\xFF", 4}, "UTF-32BE"}, {"\xFF\xFE", "UTF-16LE"},
      {"\xFE\xFF", "UTF-16BE"},
  };
  for (const ByteOrderMark& mark : kMarks) {
    if (text.starts_with(mark.bytes)) return mark;
  }
  return {};
}

}  // namespace vexa
