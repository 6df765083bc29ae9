// Error: a finished message for the person who requested the page, with the HTTP status meant for
// the response. The subclasses differ only in how they compose the message. Messages are HTML.

#ifndef VEXA_CORE_ERROR_H_
#define VEXA_CORE_ERROR_H_

#include <string_view>
#include <utility>

#include "core/settings.h"
#include "core/string.h"

namespace vexa {

// Error codes: the top byte is the category, the low bits number a tag's runtime error.
inline constexpr unsigned kRuntimeErrors = 0x01000000;
inline constexpr unsigned kExpressionErrors = 0x02000000;
inline constexpr unsigned kSyntaxErrors = 0x04000000;
inline constexpr unsigned kAlwaysShown = 0x00800000;
inline constexpr unsigned kTimeoutError = 0x08800000;
inline constexpr unsigned kDepthError = 0x80800000;

// Whom a message is for: those who make the site, or its visitors too.
enum class Audience { Makers, Everybody };

class Error {
 public:
  Error(int resultcode, unsigned level, String message, Audience audience = Audience::Makers)
      : resultcode_(resultcode), level_(level), audience_(audience), message_(std::move(message)) {}
  virtual ~Error() = default;
  [[nodiscard]] int resultcode() const { return resultcode_; }
  [[nodiscard]] unsigned Level() const { return level_; }
  [[nodiscard]] Audience audience() const { return audience_; }
  [[nodiscard]] const String& message() const { return message_; }
  operator const String&() const { return message_; }

 private:
  int resultcode_;
  unsigned level_;
  Audience audience_;
  String message_;
};

// Result code of what was asked for and may not be had: a page that must not run.
inline constexpr int kRefused = 403;

class ConfigurationError : public Error {
 public:
  ConfigurationError(const Settings& config, std::string_view text, int resultcode = 500);
};

class ConfigurationSyntaxError : public Error {
 public:
  ConfigurationSyntaxError(const Settings& config, int line, std::string_view text);
};

class AuthorizationSyntaxError : public Error {
 public:
  AuthorizationSyntaxError(const Settings& config, int line, std::string_view text);
};

class ScriptNotFoundError : public Error {
 public:
  explicit ScriptNotFoundError(std::string_view text);
};

class FatalError : public Error {
 public:
  explicit FatalError(std::string_view text, int resultcode = 500);
};

// A request that is not carried out for what it is itself.
class RequestError : public Error {
 public:
  static constexpr std::string_view kDamaged = "The request is damaged";

  enum class Fault { TooLarge, Damaged };
  explicit RequestError(Fault fault);
};

class TimeoutError : public Error {
 public:
  explicit TimeoutError(std::string_view text);
};

// The place an error of a script is reported at. `context` is empty when there is none.
struct ErrorPlace {
  std::string_view file;
  int line;
  std::string_view context;
};

class RuntimeError : public Error {
 public:
  RuntimeError(const ErrorPlace& place, std::string_view text);
};

class SyntaxError : public Error {
 public:
  SyntaxError(const ErrorPlace& place, std::string_view text);
};

class ExpressionError : public Error {
 public:
  ExpressionError(const ErrorPlace& place, std::string_view text);
};

}  // namespace vexa

#endif  // VEXA_CORE_ERROR_H_
