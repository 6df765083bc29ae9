// URLEncodedParser: bodies of type "application/x-www-form-urlencoded".

#ifndef VEXA_REQUEST_URL_ENCODED_H_
#define VEXA_REQUEST_URL_ENCODED_H_

#include <string_view>

#include "core/string.h"
#include "request/content_parser.h"

namespace vexa {

class URLEncodedParser final : public ContentParser {
 public:
  using ContentParser::ContentParser;
  [[nodiscard]] int Parse(int64_t length) override;

 private:
  void Take(std::string_view bytes);
  void AddPending();

  String pending_;  // the pair that has begun but not ended yet
};

}  // namespace vexa

#endif  // VEXA_REQUEST_URL_ENCODED_H_
