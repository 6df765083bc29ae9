// The limits of mails.

#include "net/mail_check.h"

#include <algorithm>

#include "core/text.h"

namespace vexa {

namespace {

constexpr size_t kMostHeaderLines = 1000;
// Colons and commas in the values of one header. Each colon may begin a group of addresses inside
// of the one before, and what the addresses of one list cost grows with the square of their number.
constexpr size_t kMostSeparators = 5000;
constexpr size_t kMostHeaderBytes = 256 * 1024;
constexpr size_t kMostLinesInAll = 100'000;  // of all headers together
constexpr size_t kMostSeparatorsInAll = 100'000;
constexpr size_t kMostParts = 10'000;
// What taking a mail apart costs at most, beside copies of its text; measured.
constexpr size_t kBytesForPart = 2048;
constexpr size_t kBytesForLine = 768;
constexpr size_t kBytesForSeparator = 512;

bool IsHeaderLine(std::string_view line) {
  return (!line.empty() && (line[0] == ' ' || line[0] == '\t')) || HeaderNameEnd(line) != 0;
}

size_t CountSeparators(std::string_view text) {
  return static_cast<size_t>(
      std::ranges::count_if(text, [](char c) { return c == ':' || c == ','; }));
}

// One header, line by line.
class HeaderMeter {
 public:
  // Counts a line. False when the header is larger than one may be.
  bool Add(std::string_view line, size_t bytes) {
    const size_t name_end = HeaderNameEnd(line);
    if (name_end != 0) is_type_ = EqualsIgnoreCase(line.substr(0, name_end), "Content-Type:");
    const std::string_view value = line.substr(name_end);
    lines_ += 1;
    bytes_ += bytes;
    separators_ += CountSeparators(value);
    // The word alone, since comments may stand around the "/" behind it.
    holds_message_ = holds_message_ || (is_type_ && HasWord(value, "message"));
    holds_digest_ = holds_digest_ || (is_type_ && HasWord(value, "digest"));
    return lines_ <= kMostHeaderLines && bytes_ <= kMostHeaderBytes &&
           separators_ <= kMostSeparators;
  }
  [[nodiscard]] bool holds_message() const { return holds_message_; }
  // Whether the parts behind it are messages, whatever they say of themselves.
  [[nodiscard]] bool holds_digest() const { return holds_digest_; }

 private:
  static bool HasWord(std::string_view line, std::string_view word) {
    for (size_t i = 0; i + word.size() <= line.size(); ++i) {
      if (EqualsIgnoreCase(line.substr(i, word.size()), word)) return true;
    }
    return false;
  }

  size_t lines_ = 0;
  size_t bytes_ = 0;
  size_t separators_ = 0;
  bool is_type_ = false;  // the present field is the content type
  bool holds_message_ = false;
  bool holds_digest_ = false;
};

}  // namespace

std::string_view NextMailLine(std::string_view text, size_t& at) {
  const size_t end = text.find('\n', at);
  std::string_view line = text.substr(at, end == std::string_view::npos ? end : end - at);
  at = end == std::string_view::npos ? text.size() : end + 1;
  if (line.ends_with('\r')) line.remove_suffix(1);
  return line;
}

size_t HeaderNameEnd(std::string_view line) {
  size_t i = 0;
  while (i < line.size() && line[i] > ' ' && line[i] <= '~' && line[i] != ':') ++i;
  return i > 0 && i < line.size() && line[i] == ':' ? i + 1 : 0;
}

std::string_view MailHead(std::string_view text) {
  HeaderMeter header;
  for (size_t at = 0; at < text.size();) {
    const size_t start = at;
    const std::string_view line = NextMailLine(text, at);
    if (!IsHeaderLine(line) || !header.Add(line, at - start)) return text.substr(0, start);
  }
  return text;
}

MailCost MeasureMail(std::string_view text) {
  HeaderMeter header;
  MailCost cost;
  bool in_header = true;
  bool in_digest = false;  // once there was one, anywhere
  size_t parts = 1;
  size_t lines = 0;
  size_t separators = 0;
  for (size_t at = 0; at < text.size();) {
    const size_t start = at;
    const std::string_view line = NextMailLine(text, at);
    const bool begins_part = line.starts_with("--");
    in_digest = in_digest || header.holds_digest();
    const bool begins_message = in_header && line.empty() && (in_digest || header.holds_message());
    if (begins_part || begins_message) {
      if (parts++ > kMostParts) cost.problem = MailProblem::TooManyParts;
      header = {};
      in_header = true;
    } else if (in_header && IsHeaderLine(line)) {
      separators += CountSeparators(line);
      if (!header.Add(line, at - start) || ++lines > kMostLinesInAll ||
          separators > kMostSeparatorsInAll) {
        cost.problem = MailProblem::TooManyHeaderLines;
      }
    } else {
      in_header = false;
    }
    if (cost.problem != MailProblem::None) return cost;
  }
  cost.memory = 4 * text.size() + parts * kBytesForPart + lines * kBytesForLine +
                separators * kBytesForSeparator;
  return cost;
}

}  // namespace vexa
