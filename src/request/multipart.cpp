// MultipartFormDataParser: from part to part.

#include "request/multipart.h"

#include "core/error.h"
#include "request/sent_fields.h"

namespace vexa {

namespace {

// Bytes of header lines that one part may have; browsers send a few hundred.
constexpr size_t kLongestHeader = 65536;

// The value of a plain field.
class FieldSink final : public PartSink {
 public:
  [[nodiscard]] bool Take(std::string_view data) override {
    value_.Append(data);
    return true;
  }
  [[nodiscard]] const String& value() const { return value_; }

 private:
  String value_;
};

class NoSink final : public PartSink {
 public:
  [[nodiscard]] bool Take(std::string_view) override { return true; }
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
  BodyReader body(receiver(), length, usable ? boundary_.view() : "-", input().piece_bytes);
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
  if (end == DataEnd::Failed) return 1;
  return end == DataEnd::BodyEnd && ReportTimeout() ? 1 : 0;
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
  if (!part.has_name || nothing_chosen) {
    NoSink sink;
    return body.ReadData(sink);
  }
  return part.is_file ? ReadFile(body, part) : ReadField(body, part);
}

BodyReader::DataEnd MultipartFormDataParser::ReadField(BodyReader& body, const PartHeader& part) {
  FieldSink sink;
  BodyReader::DataEnd end = body.ReadData(sink);
  if (end == BodyReader::DataEnd::BodyEnd) return end;
  receiver().vars().AddFormVariable(part.name, sink.value());
  receiver().sentfields().Keep(part.name, sink.value());
  return end;
}

BodyReader::DataEnd MultipartFormDataParser::ReadFile(BodyReader& body, const PartHeader& part) {
  using DataEnd = BodyReader::DataEnd;
  FileUpload upload(receiver(), functions_, part);
  if (!upload.Begin()) return DataEnd::Failed;
  DataEnd end = body.ReadData(upload);
  if (end == DataEnd::Failed) return end;
  bool cut = end == DataEnd::BodyEnd;
  if (cut && ReportTimeout()) return DataEnd::Failed;
  bool done = upload.Finish(cut ? FileUpload::Arrived::Cut : FileUpload::Arrived::Whole);
  return done ? end : DataEnd::Failed;
}

}  // namespace vexa
