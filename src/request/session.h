// Session: who a visitor is from one request to the next. The browser keeps an id in a cookie, the
// site keeps values under it (SessionStore).
//
// Nothing is asked of browser or disk before a page asks. An id is taken from the browser as it is
// when it has the form of one: that nobody can guess it protects it, and a new one after a login
// makes one worthless that somebody else had chosen.

#ifndef VEXA_REQUEST_SESSION_H_
#define VEXA_REQUEST_SESSION_H_

#include <string_view>

#include "core/string.h"
#include "request/session_store.h"
#include "request/tokens.h"
#include "vexa.h"

namespace vexa {

class Session final : public VisitorSession {
 public:
  // `host` is borrowed. REQUIRES: the request has its environment.
  explicit Session(Vexa& host);

  [[nodiscard]] String GetID(String& id) override;
  [[nodiscard]] String Renew(String& id) override;
  [[nodiscard]] String End() override;
  [[nodiscard]] String GetValue(std::string_view name, String& value) override;
  [[nodiscard]] String SetValue(std::string_view name, std::string_view value) override;
  [[nodiscard]] String MakeToken(std::string_view purpose, String& token) override;
  [[nodiscard]] String CheckToken(std::string_view purpose, std::string_view token,
                                  bool& good) override;

 private:
  // What comes before everything that belongs to one visitor: nobody else may be given the page.
  [[nodiscard]] String Begin();

  Vexa& host_;
  String id_;        // empty: there is no session
  bool has_cookie_;  // the browser will have one, be it of no use
  bool begun_ = false;
  SessionStore store_;
  Tokens tokens_;
};

}  // namespace vexa

#endif  // VEXA_REQUEST_SESSION_H_
