// Tokens: what a form carries to show that this site made it, for this session and purpose. They
// are kept nowhere; the site's key tells which are its own:
//
//   TIME "." HMAC-SHA-256(key, SESSION TIME "." PURPOSE)
//
// TIME is when it was made, in seconds since 1970; the digest is written in hexadecimal digits.

#ifndef VEXA_REQUEST_TOKENS_H_
#define VEXA_REQUEST_TOKENS_H_

#include <string_view>

#include "core/string.h"
#include "vexa.h"

namespace vexa {

class Tokens {
 public:
  // `host` is borrowed.
  explicit Tokens(Vexa& host) : host_(host) {}
  Tokens(const Tokens&) = delete;
  Tokens& operator=(const Tokens&) = delete;

  // What a token is good for. `session` is the id of a session, of which all have one length.
  struct Use {
    std::string_view session;
    std::string_view purpose;
  };

  // Both return what is wrong with the site's key as an expression error says it (HTML); the empty
  // text when all is well.
  [[nodiscard]] String Make(const Use& use, String& token);
  // Whether Make gave that token for that use in the last twelve hours.
  [[nodiscard]] String Check(const Use& use, std::string_view token, bool& good);

 private:
  // Reads the key when that has not been tried yet.
  [[nodiscard]] const String& ReadKey();
  [[nodiscard]] String ReadKeyFile(const String& path);
  // The token of that time, which is written as it is in a token.
  [[nodiscard]] String TokenOf(const Use& use, std::string_view time) const;

  Vexa& host_;
  String key_;
  bool key_is_read_ = false;
  String key_error_;
};

}  // namespace vexa

#endif  // VEXA_REQUEST_TOKENS_H_
