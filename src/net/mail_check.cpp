// The limits of mails.

#include "net/mail_check.h"

#include "core/text.h"

namespace vexa {

namespace {

constexpr size_t kMostHeaderLines = 1000;
constexpr size_t kMostHeaderBytes = 256 * 1024;
constexpr size_t kMostLinesInAll = 100'000;  // of all headers together
constexpr size_t kMostParts = 10'000;
// What taking a mail apart costs at most, beside copies of its text; measured.
constexpr size_t kBytesForPart = 2048;
constexpr size_t kBytesForLine = 768;

bool IsHeaderLine(std::string_view line) {
  return (!line.empty() && (line[0] == ' ' || line[0] == '\t')) || HeaderNameEnd(line) != 0;
}

// One header, line by line.
class HeaderMeter {
 public:
  // Counts a line. False when the header is larger than one may be.
  bool Add(std::string_view line, size_t bytes) {
    lines_ += 1;
    bytes_ += bytes;
    // Whatever else stands there: what is said to be a message may be taken for one.
    holds_message_ = holds_message_ || FindIgnoreCase(line, "message/") != std::string_view::npos;
    return lines_ <= kMostHeaderLines && bytes_ <= kMostHeaderBytes;
  }
  [[nodiscard]] bool holds_message() const { return holds_message_; }

 private:
  static size_t FindIgnoreCase(std::string_view text, std::string_view part) {
    for (size_t i = 0; i + part.size() <= text.size(); ++i) {
      if (EqualsIgnoreCase(text.substr(i, part.size()), part)) return i;
    }
    return std::string_view::npos;
  }

  size_t lines_ = 0;
  size_t bytes_ = 0;
  bool holds_message_ = false;
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
  size_t parts = 1;
  size_t lines = 0;
  for (size_t at = 0; at < text.size();) {
    const size_t start = at;
    const std::string_view line = NextMailLine(text, at);
    const bool begins_part = line.starts_with("--");
    const bool begins_message = in_header && line.empty() && header.holds_message();
    if (begins_part || begins_message) {
      if (parts++ > kMostParts) cost.problem = MailProblem::TooManyParts;
      header = {};
      in_header = true;
    } else if (in_header && IsHeaderLine(line)) {
      if (!header.Add(line, at - start) || ++lines > kMostLinesInAll) {
        cost.problem = MailProblem::TooManyHeaderLines;
      }
    } else {
      in_header = false;
    }
    if (cost.problem != MailProblem::None) return cost;
  }
  cost.memory = 4 * text.size() + parts * kBytesForPart + lines * kBytesForLine;
  return cost;
}

}  // namespace vexa
