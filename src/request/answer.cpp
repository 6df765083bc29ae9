// Answer: writing the head, and the table of status texts.

#include "request/answer.h"

#include <cassert>

namespace vexa {

void Answer::StartHeaders() {
  assert(stage_ == Stage::Waiting);
  stage_ = Stage::InHead;
  AddHeader("Content-type", content_type_);
}

// In pieces: this must work when memory has run out.
void Answer::AddHeader(std::string_view name, std::string_view value) {
  assert(stage_ == Stage::InHead);
  for (std::string_view piece : {name, std::string_view(": "), value, std::string_view("\r\n")}) {
    output_.Write(piece);
  }
}

void Answer::EndHeaders() {
  assert(stage_ == Stage::InHead);
  output_.Write("\r\n");
  stage_ = Stage::InPage;
}

namespace {

struct HTTPStatus {
  int code;
  std::string_view text;
};

constexpr HTTPStatus kStatuses[] = {
    {100, "Continue"},
    {101, "Switching Protocols"},
    {200, "OK"},
    {201, "Created"},
    {202, "Accepted"},
    {203, "Non-Authoritative Information"},
    {204, "No Content"},
    {205, "Reset Content"},
    {206, "Partial Content"},
    {300, "Multiple Choices"},
    {301, "Moved Permanently"},
    {302, "Moved Temporarily"},
    {303, "See Other"},
    {304, "Not Modified"},
    {305, "Use Proxy"},
    {400, "Bad Request"},
    {401, "Authorization Required"},
    {402, "Payment Required"},
    {403, "Forbidden"},
    {404, "Not Found"},
    {405, "Method Not Allowed"},
    {406, "Not Acceptable"},
    {407, "Proxy Authentication Required"},
    {408, "Request Time-out"},
    {409, "Conflict"},
    {410, "Gone"},
    {411, "Length Required"},
    {412, "Precondition Failed"},
    {413, "Request Entity Too Large"},
    {414, "Request-URI Too Large"},
    {415, "Unsupported Media Type"},
    {500, "Internal Server Error"},
    {501, "Method Not Implemented"},
    {502, "Bad Gateway"},
    {503, "Service Temporarily Unavailable"},
    {504, "Gateway Time-out"},
    {505, "HTTP Version Not Supported"},
    {506, "Variant Also Varies"},
};

}  // namespace

std::string_view HTTPResultMessage(int code) {
  for (const HTTPStatus& status : kStatuses) {
    if (status.code == code) return status.text;
  }
  return {};
}

}  // namespace vexa
