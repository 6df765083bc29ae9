// ContentParser: turns the body of a request into form variables. Bodies are read in pieces and
// never kept whole, so only the fields themselves need memory.

#ifndef VEXA_REQUEST_CONTENT_PARSER_H_
#define VEXA_REQUEST_CONTENT_PARSER_H_

#include <cstdint>
#include <memory>

#include "core/string.h"

namespace vexa {

class HostBase;

class ContentParser {
 public:
  explicit ContentParser(HostBase& host) : host_(host) {}
  virtual ~ContentParser() = default;
  ContentParser(const ContentParser&) = delete;
  ContentParser& operator=(const ContentParser&) = delete;

  // Reads a body of `length` bytes; one that ends earlier gives the fields that arrived. Returns 0,
  // or non-zero after the error was shown, so the reverse of the request phases.
  [[nodiscard]] virtual int Parse(int64_t length) = 0;

 protected:
  [[nodiscard]] HostBase& host() const { return host_; }
  // When the body stopped arriving because the time was up, shows that and returns non-zero.
  [[nodiscard]] int CheckTimeout() const;

 private:
  HostBase& host_;
};

// The parser for bodies of the type that a Content-Type header names; null when bodies of that
// type are not read.
[[nodiscard]] std::unique_ptr<ContentParser> NewContentParser(HostBase& host,
                                                              const String& content_type);

}  // namespace vexa

#endif  // VEXA_REQUEST_CONTENT_PARSER_H_
