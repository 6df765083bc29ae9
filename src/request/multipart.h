// MultipartFormDataParser: bodies of type "multipart/form-data". Plain fields become form
// variables; files go to the page's own functions, see file_upload.h. Uploads are streamed: their
// size costs no memory.
//
// A body that ends early gives the fields that arrived whole, and what no part can be made of is
// left out; where input is strict, such a body is refused.

#ifndef VEXA_REQUEST_MULTIPART_H_
#define VEXA_REQUEST_MULTIPART_H_

#include "core/string.h"
#include "request/body_reader.h"
#include "request/file_upload.h"
#include "request/form.h"
#include "request/part_header.h"

namespace vexa {

class MultipartFormDataParser final : public ContentParser {
 public:
  // `content_type` is the request's header, which names the boundary.
  MultipartFormDataParser(const FormInput& input, std::string_view content_type);
  [[nodiscard]] int Parse(int64_t length) override;

 private:
  enum class HeaderEnd { Done, BodyEnd, Failed };
  [[nodiscard]] HeaderEnd ReadHeader(BodyReader& body, PartHeader& part);
  [[nodiscard]] BodyReader::DataEnd ReadPart(BodyReader& body, const PartHeader& part);
  [[nodiscard]] BodyReader::DataEnd ReadField(BodyReader& body, const PartHeader& part);
  [[nodiscard]] BodyReader::DataEnd ReadFile(BodyReader& body, const PartHeader& part);
  // What becomes of the body behind its last part. False after an error was shown.
  [[nodiscard]] bool ReadEnd(BodyReader& body, BodyReader::DataEnd end);
  // Shows an error; the page does not run then.
  void Fail(std::string_view message);

  String boundary_;  // empty when the header names none
  UploadFunctions functions_;
};

}  // namespace vexa

#endif  // VEXA_REQUEST_MULTIPART_H_
