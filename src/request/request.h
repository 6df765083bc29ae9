// Request: what one request brought with it: environment, headers, body, arguments. How it came in
// is known to the derived class alone; see cgi/cgi_vexa.h for the one through CGI.

#ifndef VEXA_REQUEST_REQUEST_H_
#define VEXA_REQUEST_REQUEST_H_

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "core/environment.h"
#include "core/string.h"

namespace vexa {

class Request {
 public:
  // Results of ReadBody besides a count of bytes.
  static constexpr int kBodyEnd = 0;
  static constexpr int kNothingYet = -1;
  static constexpr int kBodyFailed = -2;

  // `environment` is a null-terminated list of "name=value" texts; `arguments` are those of the
  // request, without a program's name. The texts are borrowed and must not change.
  Request(char** environment, std::span<char* const> arguments);
  virtual ~Request() = default;
  Request(const Request&) = delete;
  Request& operator=(const Request&) = delete;

  [[nodiscard]] const Environment& environment() const { return environment_; }
  [[nodiscard]] std::span<char* const> arguments() const { return arguments_; }
  // The variable PATH_INFO; not empty when a server redirected the request here.
  [[nodiscard]] const String& path_info() const { return path_info_; }
  // The value of a header as servers put it into the environment, empty when it was not sent. The
  // letter case of `name` counts.
  [[nodiscard]] std::string_view Header(std::string_view name) const;
  // Whether the length of the body is digits and nothing else, or missing.
  [[nodiscard]] bool LengthIsPlain() const;
  // How many bytes the body is said to have; 0 or less when there is none.
  [[nodiscard]] int64_t AnnouncedLength() const;

  // Reads up to `count` bytes of the body, waiting for the first at most `wait_ms` milliseconds
  // (-1: as long as it takes). The number of bytes, kBodyEnd, kNothingYet (the time is over, or a
  // signal came), or kBodyFailed.
  [[nodiscard]] virtual int ReadBody(char* buffer, int count, int wait_ms) = 0;

 private:
  Environment environment_;
  std::span<char* const> arguments_;
  String path_info_;
  mutable std::optional<int64_t> announced_length_;  // once it was asked for
};

}  // namespace vexa

#endif  // VEXA_REQUEST_REQUEST_H_
