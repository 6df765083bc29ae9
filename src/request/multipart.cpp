// MultipartFormDataParser: from part to part.

#include "request/multipart.h"

#include "core/error.h"

namespace vexa {

namespace {

// Bytes of header lines that one part may have; browsers send a few hundred.
constexpr size_t kLongestHeader = 65536;

// The value of a plain field.
class FieldSink final : public PartSink {
 public:
  explicit FieldSink(const BodyReader& body) : body_(body) {}
  [[nodiscard]] bool Take(std::string_view data) override {
    AppendOfBody(value_, data, body_.remaining());
    return true;
  }
  [[nodiscard]] String& value() { return value_; }

 private:
  const BodyReader& body_;
  String value_;
};

// What is left out.
class NoSink final : public PartSink {
 public:
  [[nodiscard]] bool Take(std::string_view) override {
    empty_ = false;
    return true;
  }
  [[nodiscard]] bool empty() const { return empty_; }

 private:
  bool empty_ = true;
};

}  // namespace

MultipartFormDataParser::MultipartFormDataParser(const FormInput& input,
                                                 std::string_view content_type)
    : ContentParser(input), functions_(input.receiver, input.page) {
  (void)HeaderParameter(content_type, "boundary", boundary_);
}

void MultipartFormDataParser::Fail(std::string_view message) {
  receiver().Error(FatalError(message, 400));
}

int MultipartFormDataParser::Parse(int64_t length) {
  using DataEnd = BodyReader::DataEnd;
  bool usable = !boundary_.empty() && boundary_.size() <= BodyReader::kLongestBoundary;
  BodyReader body(receiver(), length, usable ? boundary_.view() : "-", input().piece_bytes,
                  strict() ? BodyReader::Reading::Strict : BodyReader::Reading::Lenient);
  DataEnd end = usable ? body.ReadFirstLine() : DataEnd::Failed;
  if (end == DataEnd::Failed) {
    if (ReportTimeout()) return 1;
    Fail("Boundary in Content-Type header does not match boundary in first line of content");
    return 1;
  }
  while (end == DataEnd::Part) {
    PartHeader part;
    HeaderEnd header = ReadHeader(body, part);
    if (header == HeaderEnd::Failed) return 1;
    end = header == HeaderEnd::BodyEnd ? DataEnd::BodyEnd : ReadPart(body, part);
  }
  return end != DataEnd::Failed && ReadEnd(body, end) ? 0 : 1;
}

bool MultipartFormDataParser::ReadEnd(BodyReader& body, BodyReader::DataEnd end) {
  using DataEnd = BodyReader::DataEnd;
  const bool had_last = end == DataEnd::LastPart;
  if (had_last && strict()) end = body.ReadRest();
  const bool cut = end == DataEnd::BodyEnd || (strict() && body.cut_off());
  if (cut && ReportTimeout()) return false;
  const bool whole = had_last && end == DataEnd::BodyEnd && !body.cut_off();
  return !strict() || whole || ReportDamage();
}

// Reads header lines up to the empty one. A line that begins with white space goes on with the one
// before it.
MultipartFormDataParser::HeaderEnd MultipartFormDataParser::ReadHeader(BodyReader& body,
                                                                       PartHeader& part) {
  String line, next;
  size_t room = kLongestHeader;
  for (;;) {
    switch (body.ReadLine(next, room)) {
      case BodyReader::LineEnd::BodyEnd:
        return HeaderEnd::BodyEnd;
      case BodyReader::LineEnd::TooLong:
        Fail("The header of a part of the multipart/form-data content is too long");
        return HeaderEnd::Failed;
      case BodyReader::LineEnd::Line:
        break;
    }
    if (strict() && body.BeginsLikeDelimiter(next)) {
      ReportDamage();
      return HeaderEnd::Failed;
    }
    room -= next.size();
    bool goes_on = next[0] == ' ' || next[0] == '\t';
    if (!goes_on) {
      part.Take(line);
      line.clear();
      if (next.empty()) return HeaderEnd::Done;
    }
    line.cat(next.view());
  }
}

BodyReader::DataEnd MultipartFormDataParser::ReadPart(BodyReader& body, const PartHeader& part) {
  // An empty file name is a file field in which nothing was chosen.
  bool nothing_chosen = part.is_file && part.filename.empty();
  if (part.has_name && !receiver().AdmitField()) return BodyReader::DataEnd::Failed;
  if (!part.has_name || nothing_chosen) {
    NoSink sink;
    const BodyReader::DataEnd end = body.ReadData(sink);
    const bool lost = !part.has_name || !sink.empty();
    return strict() && lost && end != BodyReader::DataEnd::BodyEnd ? BodyReader::DataEnd::Damaged
                                                                   : end;
  }
  return part.is_file ? ReadFile(body, part) : ReadField(body, part);
}

BodyReader::DataEnd MultipartFormDataParser::ReadField(BodyReader& body, const PartHeader& part) {
  FieldSink sink(body);
  BodyReader::DataEnd end = body.ReadData(sink);
  if (end != BodyReader::DataEnd::Part && end != BodyReader::DataEnd::LastPart) return end;
  AddLargeField(receiver(), part.name, sink.value());
  return end;
}

BodyReader::DataEnd MultipartFormDataParser::ReadFile(BodyReader& body, const PartHeader& part) {
  using DataEnd = BodyReader::DataEnd;
  FileUpload upload(receiver(), functions_, part);
  if (!upload.Begin()) return DataEnd::Failed;
  DataEnd end = body.ReadData(upload);
  if (end == DataEnd::Failed || end == DataEnd::Damaged) return end;
  bool cut = end == DataEnd::BodyEnd;
  if (cut && strict()) return end;
  if (cut && ReportTimeout()) return DataEnd::Failed;
  bool done = upload.Finish(cut ? FileUpload::Arrived::Cut : FileUpload::Arrived::Whole);
  return done ? end : DataEnd::Failed;
}

}  // namespace vexa
