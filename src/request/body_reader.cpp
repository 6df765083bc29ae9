// BodyReader: the window and the search for delimiters.

#include "request/body_reader.h"

#include <algorithm>
#include <cassert>
#include <cstring>

namespace vexa {

namespace {

// Spaces and tabs that may stand between a delimiter and the end of its line.
constexpr size_t kMostPadding = 32;
constexpr size_t kLongestTail = kMostPadding + 2;
// A larger piece would only cost memory.
constexpr int64_t kLargestPiece = 65536;

}  // namespace

BodyReader::BodyReader(ContentSource& source, int64_t length, std::string_view boundary,
                       int piece_bytes, Reading reading)
    : source_(source),
      remaining_(length),
      reading_(reading),
      delimiter_(String::Concat({"\r\n--", boundary})),
      piece_(static_cast<size_t>(std::clamp<int64_t>(piece_bytes, 1, kLargestPiece))),
      size_(piece_ + delimiter_.size() + kLongestTail),
      window_(std::make_unique_for_overwrite<char[]>(size_)) {
  assert(!boundary.empty() && boundary.size() <= kLongestBoundary);
}

// REQUIRES: at most a delimiter and its tail are unread, so that there is room for a piece.
bool BodyReader::Fill() {
  assert(begin_ <= end_ && end_ <= size_);
  if (begin_ > 0) std::memmove(window_.get(), window_.get() + begin_, end_ - begin_);
  end_ -= begin_;
  begin_ = 0;
  int64_t wanted = std::min(static_cast<int64_t>(std::min(piece_, size_ - end_)), remaining_);
  if (wanted <= 0) return false;
  int count = source_.ReadContent(window_.get() + end_, static_cast<int>(wanted));
  if (count < 1) {
    remaining_ = 0;
    cut_off_ = true;
    return false;
  }
  end_ += static_cast<size_t>(count);
  remaining_ -= count;
  return true;
}

// `text` is what follows a delimiter. Unknown when it is too short to tell.
BodyReader::Tail BodyReader::TailOf(std::string_view text) {
  if (text.starts_with("--")) return {Tail::Kind::LastPart, 2};
  if (text == "-") return {Tail::Kind::Unknown, 0};
  size_t padding = std::min(text.find_first_not_of(" \t"), text.size());
  if (padding > kMostPadding) return {Tail::Kind::Broken, 0};
  text.remove_prefix(padding);
  if (text.starts_with("\r\n")) return {Tail::Kind::Part, padding + 2};
  if (text.empty() || text == "\r") return {Tail::Kind::Unknown, 0};
  const bool broken = text.front() == '\r' || text.front() == '\n';
  return {broken ? Tail::Kind::Broken : Tail::Kind::Data, 0};
}

// The unread text begins with something that looks like a delimiter of that length. Consumes it
// and returns what it ends; BodyEnd and consumes nothing when it is only data, and likewise
// Damaged.
BodyReader::DataEnd BodyReader::CheckTail(size_t delimiter_length) {
  Tail tail = TailOf(unread().substr(delimiter_length));
  while (tail.kind == Tail::Kind::Unknown && Fill()) {
    tail = TailOf(unread().substr(delimiter_length));
  }
  if (tail.kind == Tail::Kind::Broken && strict()) return DataEnd::Damaged;
  if (tail.kind == Tail::Kind::Data || tail.kind == Tail::Kind::Broken) return DataEnd::BodyEnd;
  if (tail.kind == Tail::Kind::Unknown && strict()) return DataEnd::Damaged;
  begin_ += delimiter_length + tail.length;
  // A body that ends right behind a delimiter has brought all of its parts.
  return tail.kind == Tail::Kind::Part ? DataEnd::Part : DataEnd::LastPart;
}

BodyReader::DataEnd BodyReader::ReadFirstLine() {
  std::string_view first = dashes();
  while (unread().size() < first.size() && Fill()) {
  }
  if (!unread().starts_with(first)) return DataEnd::Failed;
  DataEnd end = CheckTail(first.size());
  if (end == DataEnd::Damaged && TailOf(unread().substr(first.size())).kind == Tail::Kind::Broken) {
    return DataEnd::Failed;
  }
  return end == DataEnd::BodyEnd ? DataEnd::Failed : end;
}

BodyReader::LineEnd BodyReader::ReadLine(String& line, size_t longest) {
  line.clear();
  for (;;) {
    size_t feed = unread().find('\n');
    std::string_view piece = unread().substr(0, feed);
    if (line.size() + piece.size() > longest) return LineEnd::TooLong;
    line.cat(piece);
    begin_ += piece.size();
    if (feed != std::string_view::npos) break;
    if (!Fill()) return LineEnd::BodyEnd;
  }
  ++begin_;
  if (line.view().ends_with('\r')) line.Truncate(line.size() - 1);
  return LineEnd::Line;
}

// Lenient reading looks for whole delimiters. Strict reading looks for them without their CR LF,
// and then at what stands before: CR LF, another line end, or data.
BodyReader::DataEnd BodyReader::ReadData(PartSink& sink, char before) {
  const std::string_view sought = strict() ? dashes() : delimiter_.view();
  // Hands on the data that comes next.
  const auto take = [&](size_t count) {
    if (count == 0) return true;
    const std::string_view data = unread().substr(0, count);
    before = data.back();
    begin_ += count;
    return sink.Take(data);
  };
  for (;;) {
    const size_t found = unread().find(sought);
    if (found == std::string_view::npos) {
      // The beginning of a delimiter may still stand at the end of the window.
      const size_t kept = std::min(unread().size(), delimiter_.size() - 1);
      if (!take(unread().size() - kept)) return DataEnd::Failed;
      if (Fill()) continue;
      return take(unread().size()) ? DataEnd::BodyEnd : DataEnd::Failed;
    }
    const size_t line_end = strict() && unread().substr(0, found).ends_with("\r\n") ? 2 : 0;
    if (!take(found - line_end)) return DataEnd::Failed;
    const bool begins_line = !strict() || line_end > 0 || before == '\n' || before == '\r';
    if (begins_line) {
      const DataEnd end = CheckTail(line_end + sought.size());
      if (end != DataEnd::BodyEnd) {
        return strict() && line_end == 0 ? DataEnd::Damaged : end;
      }
    }
    // Only data: its first byte is no longer a candidate.
    if (!take(line_end + 1)) return DataEnd::Failed;
  }
}

BodyReader::DataEnd BodyReader::ReadRest() {
  class NoSink final : public PartSink {
   public:
    [[nodiscard]] bool Take(std::string_view) override { return true; }
  } sink;
  return ReadData(sink, '-');
}

}  // namespace vexa
