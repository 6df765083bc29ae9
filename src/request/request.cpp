// Request: its environment and headers.

#include "request/request.h"

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

}  // namespace vexa
