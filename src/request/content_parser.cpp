// ContentParser: choosing the parser for a body.

#include "request/content_parser.h"

#include "core/error.h"
#include "core/text.h"
#include "host/host.h"
#include "request/multipart.h"
#include "request/url_encoded.h"

namespace vexa {

int ContentParser::CheckTimeout() const {
  if (!host_.timedout()) return 0;
  host_.Error(TimeoutError("Application"));
  return 1;
}

std::unique_ptr<ContentParser> NewContentParser(HostBase& host, const String& content_type) {
  std::string_view type = content_type.view();
  type = Stripped(type.substr(0, type.find(';')));
  if (EqualsIgnoreCase(type, "application/x-www-form-urlencoded")) {
    return std::make_unique<URLEncodedParser>(host);
  }
  if (EqualsIgnoreCase(type, "multipart/form-data")) {
    return std::make_unique<MultipartFormDataParser>(host, content_type);
  }
  return nullptr;
}

}  // namespace vexa
