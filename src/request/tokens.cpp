// The site's key, and what is made with it.

#include "request/tokens.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <ctime>

#include "core/base64.h"
#include "core/digest.h"
#include "core/encoding.h"
#include "core/number.h"
#include "core/outside.h"
#include "core/text.h"
#include "files/descriptor.h"
#include "files/trusted_file.h"

namespace vexa {

namespace {

constexpr size_t kShortestKey = 32;  // bytes
// What a longer file holds behind it is not read.
constexpr size_t kLongestKey = 4096;
constexpr int64_t kLifetime = 12 * 3600;  // of a token, in seconds

}  // namespace

String Tokens::Make(const Use& use, String& token) {
  if (!ReadKey().empty()) return key_error_;
  token = TokenOf(use, PrintInteger(std::time(nullptr)));
  return {};
}

String Tokens::Check(const Use& use, std::string_view token, bool& good) {
  good = false;
  if (!ReadKey().empty()) return key_error_;
  const std::string_view time = token.substr(0, token.find('.'));
  // Nothing else is ever hashed and compared. Clocks of several machines differ: a token of the
  // near future is good, too.
  if (!std::all_of(time.begin(), time.end(), IsDigit)) return {};
  const int64_t age = int64_t{std::time(nullptr)} - ReadInteger64(time);
  good = SameBytes(token, TokenOf(use, time)) && age <= kLifetime && age >= -kLifetime;
  return {};
}

String Tokens::TokenOf(const Use& use, std::string_view time) const {
  const String text = String::Concat({use.session, time, ".", use.purpose});
  return String::Concat(
      {time, ".", HexOf(KeyedDigestOf(DigestMethod::Sha256, key_, text).bytes())});
}

const String& Tokens::ReadKey() {
  if (key_is_read_) return key_error_;
  key_is_read_ = true;
  const String& path = host_.config().sitekey;
  if (path.empty()) {
    key_error_ = "No sitekey is configured";
    return key_error_;
  }
  const String reason = ReadKeyFile(path);
  if (!reason.empty()) {
    key_error_ = String::Concat({"The sitekey cannot be used: ", EntityEncoded(reason)});
  }
  return key_error_;
}

// Returns what is wrong with it, in words that name no path.
String Tokens::ReadKeyFile(const String& path) {
  LookOutside();
  const SitePlaces places = host_.places();
  TrustedFile file(places.trusted_owner);
  file.AlsoTrust(::geteuid());
  file.Refuse(places.scripts, "script");
  file.Refuse(places.data, "data");
  file.Refuse(places.temporary, "temporary");
  if (!file.Open(path)) return file.reason();
  struct stat status;
  if (::fstat(file.descriptor(), &status) != 0) return std::strerror(errno);
  if ((status.st_mode & S_IROTH) != 0) return "it may be read by other users";
  char key[kLongestKey];
  const ssize_t length = ReadFully(file.descriptor(), key, sizeof key);
  if (length < 0) return std::strerror(errno);
  if (static_cast<size_t>(length) < kShortestKey) return "it is shorter than 32 bytes";
  key_ = std::string_view(key, static_cast<size_t>(length));
  return {};
}

}  // namespace vexa
