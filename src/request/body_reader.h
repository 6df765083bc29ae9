// BodyReader: the body of a multipart request as lines and as data up to the next delimiter.
//
// The body is read in pieces into a window; what is not consumed yet moves to the window's front.
// The window holds one piece more than the longest text that must be seen at once (a delimiter and
// what follows it on its line), so a delimiter is found wherever the pieces happen to end:
//
//   window:  [ consumed | begin_ ... unread ... end_ | room for the next piece ]
//
// A delimiter is CR LF, two dashes and the boundary, followed by two dashes (the last one) or by
// the end of its line, with spaces and tabs before it. Anything else that looks like one is data;
// but where reading is strict, a line that only its line ends keep from being a delimiter is
// damage, for the part behind it would be lost in the data.

#ifndef VEXA_REQUEST_BODY_READER_H_
#define VEXA_REQUEST_BODY_READER_H_

#include <cstdint>
#include <memory>
#include <string_view>

#include "core/string.h"

namespace vexa {

// Where the bytes of a body come from.
class ContentSource {
 public:
  virtual ~ContentSource() = default;
  // Reads up to `count` bytes. 0 at the end of the body, negative on an error or a time-out.
  [[nodiscard]] virtual int ReadContent(char* buffer, int count) = 0;
};

// What the data up to a delimiter is given to, piece by piece.
class PartSink {
 public:
  virtual ~PartSink() = default;
  // False after an error was shown: reading stops.
  [[nodiscard]] virtual bool Take(std::string_view data) = 0;
};

class BodyReader {
 public:
  // What ended a part's data.
  enum class DataEnd { Part, LastPart, BodyEnd, Failed, Damaged };
  enum class LineEnd { Line, BodyEnd, TooLong };
  enum class Reading { Lenient, Strict };

  // A boundary longer than this is refused; the standard allows 70.
  static constexpr size_t kLongestBoundary = 200;

  // Reads `length` bytes from `source`, which is borrowed, `piece_bytes` at once. REQUIRES:
  // `boundary` is not empty and at most kLongestBoundary bytes long.
  BodyReader(ContentSource& source, int64_t length, std::string_view boundary, int piece_bytes,
             Reading reading = Reading::Lenient);

  // Reads the first line of the body, which must be a delimiter without its CR LF. Failed when it
  // is anything else.
  [[nodiscard]] DataEnd ReadFirstLine();
  // Reads a line without its line end, which may be LF alone. TooLong when it has more than
  // `longest` bytes, a CR counted. A line that the end of the body cuts off is BodyEnd.
  [[nodiscard]] LineEnd ReadLine(String& line, size_t longest);
  // Hands all data before the next delimiter to `sink` and consumes the delimiter with its line.
  [[nodiscard]] DataEnd ReadData(PartSink& sink) { return ReadData(sink, '\n'); }
  // Reads what is behind the last part to the end of the body. BodyEnd unless parts follow there.
  [[nodiscard]] DataEnd ReadRest();
  // Whether a line is a delimiter or begins like one.
  [[nodiscard]] bool BeginsLikeDelimiter(std::string_view line) const {
    return line.starts_with(dashes());
  }
  // Whether the body has ended before its length.
  [[nodiscard]] bool cut_off() const { return cut_off_; }
  // Bytes that may still come, as far as they were announced.
  [[nodiscard]] int64_t remaining() const { return remaining_; }

 private:
  // What stands behind a text that looks like a delimiter.
  struct Tail {
    // Broken: a line that ends with CR or LF alone, or whose white space is too long to be read.
    enum class Kind { Part, LastPart, Data, Broken, Unknown } kind;
    size_t length;  // bytes it takes
  };
  [[nodiscard]] static Tail TailOf(std::string_view text);

  [[nodiscard]] std::string_view unread() const { return {window_.get() + begin_, end_ - begin_}; }
  // Reads another piece into the window; false at the end of the body.
  bool Fill();
  [[nodiscard]] DataEnd CheckTail(size_t delimiter_length);
  // `before` is the byte that stands before the data.
  [[nodiscard]] DataEnd ReadData(PartSink& sink, char before);
  [[nodiscard]] bool strict() const { return reading_ == Reading::Strict; }
  // The delimiter without its CR LF.
  [[nodiscard]] std::string_view dashes() const { return delimiter_.view().substr(2); }

  ContentSource& source_;
  int64_t remaining_;  // bytes of the body that were not read yet
  Reading reading_;
  bool cut_off_ = false;
  String delimiter_;
  size_t piece_;  // bytes to read at once
  size_t size_;
  std::unique_ptr<char[]> window_;
  size_t begin_ = 0;
  size_t end_ = 0;
};

}  // namespace vexa

#endif  // VEXA_REQUEST_BODY_READER_H_
