// Hashing passwords with crypt.

#include "expr/password.h"

#include <crypt.h>

#include <cstring>

#include "core/digest.h"

namespace vexa {

namespace {

// The library takes 511 bytes at most.
constexpr size_t kLongestPassword = 500;

bool ContainsNul(const String& text) {
  return std::memchr(text.data(), '\0', text.size()) != nullptr;
}

bool CanBeHashed(const String& password) {
  return !password.empty() && password.size() <= kLongestPassword && !ContainsNul(password);
}

// The hash of `password` with the salt that `salt` begins with; null when that is none.
const char* Hashed(const String& password, const char* salt) {
  const char* hash = crypt(password.c_str(), salt);
  // Some libraries answer a salt that they refuse by a text that no hash begins with.
  return hash == nullptr || hash[0] == '*' ? nullptr : hash;
}

const char* HashedAnew(const String& password) {
  char salt[CRYPT_GENSALT_OUTPUT_SIZE];
  const bool made = crypt_gensalt_rn(nullptr, 0, nullptr, 0, salt, sizeof salt) != nullptr;
  return made ? Hashed(password, salt) : nullptr;
}

}  // namespace

bool HashPassword(const String& password, String& hash) {
  if (!CanBeHashed(password)) return false;
  const char* made = HashedAnew(password);
  if (made == nullptr) return false;
  hash = made;
  return true;
}

bool IsPassword(const String& password, const String& hash) {
  const bool usable = CanBeHashed(password);
  // Hashed in place of what cannot be, only for the time that it takes.
  const String tried = usable ? password : String("-");
  const char* made = Hashed(tried, hash.c_str());
  // What is no more than a salt is a hash of nothing, and may be one of a quick method.
  if (made == nullptr || std::strlen(made) != hash.size()) {
    (void)HashedAnew(tried);
    return false;
  }
  return SameBytes(made, hash) && usable;
}

}  // namespace vexa
