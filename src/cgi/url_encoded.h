// URLEncodedParser: bodies of type "application/x-www-form-urlencoded".

#ifndef VEXA_CGI_URL_ENCODED_H_
#define VEXA_CGI_URL_ENCODED_H_

#include <string_view>

#include "cgi/content_parser.h"
#include "core/string.h"

class URLEncodedParser final : public ContentParser {
 public:
  using ContentParser::ContentParser;
  [[nodiscard]] int Parse(int64_t length) override;

 private:
  void Take(std::string_view bytes);
  void AddPending();

  String pending_;  // the pair that has begun but not ended yet
};

#endif  // VEXA_CGI_URL_ENCODED_H_
