// The life of a session: cookie and values together.

#include "request/session.h"

#include <cstdint>
#include <utility>

#include "core/base64.h"
#include "core/digest.h"

namespace vexa {

namespace {

constexpr char kCookie[] = "vexasession";
constexpr char kRemoved[] = "seconds=0";
constexpr size_t kBytesOfID = 16;

bool IsSessionID(std::string_view text) {
  return text.size() == 2 * kBytesOfID &&
         text.find_first_not_of("0123456789abcdefABCDEF") == text.npos;
}

// Sets `id` to a new one, or returns what is wrong.
String MakeID(String& id) {
  uint8_t chance[kBytesOfID];
  if (!FillWithChance(chance)) return "The system has no random numbers";
  id = HexOf({reinterpret_cast<const char*>(chance), sizeof chance});
  return {};
}

}  // namespace

Session::Session(Vexa& host)
    : host_(host), id_(host.answer().Cookie(kCookie)), store_(host), tokens_(host) {
  has_cookie_ = !id_.empty();
  if (!IsSessionID(id_)) id_.clear();
}

String Session::Begin() {
  if (begun_) return {};
  AnswerHead& head = host_.answer();
  String error;
  if (!head.HasHeader("Cache-Control")) {
    error = head.SetHeader("Cache-Control", "private, no-cache");
  }
  if (!error.empty()) return error;
  begun_ = true;
  if (!id_.empty()) store_.KeepAlive(id_);
  return {};
}

String Session::GetID(String& id) {
  String error = Begin();
  if (error.empty() && id_.empty()) {
    String made;
    error = MakeID(made);
    if (error.empty()) error = host_.answer().SetCookie(kCookie, made, "");
    if (error.empty()) {
      id_ = std::move(made);
      has_cookie_ = true;
    }
  }
  if (error.empty()) id = id_;
  return error;
}

// The cookie first: when it cannot be sent any more, the values must stay where they are.
String Session::Renew(String& id) {
  if (id_.empty()) return GetID(id);
  String error = Begin();
  String made;
  if (error.empty()) error = MakeID(made);
  if (error.empty()) error = host_.answer().SetCookie(kCookie, made, "");
  if (!error.empty()) return error;
  error = store_.Move(id_, made);
  if (!error.empty()) {
    (void)host_.answer().SetCookie(kCookie, id_, "");
    return error;
  }
  id_ = made;
  id = std::move(made);
  return {};
}

String Session::End() {
  String error = Begin();
  if (!error.empty() || !has_cookie_) return error;
  error = host_.answer().SetCookie(kCookie, "", kRemoved);
  if (error.empty() && !id_.empty()) {
    error = store_.Remove(id_);
    if (!error.empty()) (void)host_.answer().SetCookie(kCookie, id_, "");
  }
  if (!error.empty()) return error;
  id_.clear();
  has_cookie_ = false;
  return {};
}

String Session::GetValue(std::string_view name, String& value) {
  value.clear();
  String error = Begin();
  return !error.empty() || id_.empty() ? error : store_.Read(id_, name, value);
}

String Session::SetValue(std::string_view name, std::string_view value) {
  String error = Begin();
  // There is nothing to remove, and no reason to make a session for that.
  if (!error.empty() || (id_.empty() && value.empty())) return error;
  if (name.size() + value.size() > SessionValues::kMostBytes) return SessionStore::kTooLarge;
  String id;
  error = GetID(id);
  return error.empty() ? store_.Change(id, name, value) : error;
}

String Session::MakeToken(std::string_view purpose, String& token) {
  token.clear();
  return id_.empty() ? String() : tokens_.Make({id_, purpose}, token);
}

String Session::CheckToken(std::string_view purpose, std::string_view token, bool& good) {
  good = false;
  return id_.empty() ? String() : tokens_.Check({id_, purpose}, token, good);
}

}  // namespace vexa
