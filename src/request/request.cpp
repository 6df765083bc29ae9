// Request: its environment and headers.

#include "request/request.h"

#include <algorithm>

#include "core/number.h"
#include "core/text.h"

namespace vexa {

Request::Request(char** environment, std::span<char* const> arguments)
    : environment_(environment),
      arguments_(arguments),
      path_info_(environment_.Value("PATH_INFO")) {}

std::string_view Request::Header(std::string_view name) const {
  if (name == "Content-Type") return environment_.Value("CONTENT_TYPE");
  if (name == "Content-Length") return environment_.Value("CONTENT_LENGTH");
  String variable = String::Concat({"HTTP_", name});
  variable.gsub("-", "_");
  return environment_.Value(variable);
}

bool Request::LengthIsPlain() const {
  const std::string_view length = Header("Content-Length");
  return std::all_of(length.begin(), length.end(), IsDigit);
}

int64_t Request::AnnouncedLength() const {
  if (!announced_length_) announced_length_ = ReadInteger64(Header("Content-Length"));
  return *announced_length_;
}

}  // namespace vexa
