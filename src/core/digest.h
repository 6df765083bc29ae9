// Digests of texts and what goes with them: keyed digests, comparing secrets, and chance.

#ifndef VEXA_CORE_DIGEST_H_
#define VEXA_CORE_DIGEST_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace vexa {

// Crc32 is the check sum of zip and gzip, most significant byte first: no digest for secrets.
enum class DigestMethod { Md5, Sha1, Sha256, Sha512, Crc32 };

// The bytes of a digest.
struct Digest {
  std::array<uint8_t, 64> storage{};
  size_t size = 0;
  [[nodiscard]] std::string_view bytes() const {
    return {reinterpret_cast<const char*>(storage.data()), size};
  }
};

// Sets `method` to the one of that name ("sha256"), letter case ignored; false when there is none.
[[nodiscard]] bool FindDigestMethod(std::string_view name, DigestMethod& method);
[[nodiscard]] Digest DigestOf(DigestMethod method, std::string_view text);
// The keyed digest of RFC 2104. REQUIRES: not Crc32.
[[nodiscard]] Digest KeyedDigestOf(DigestMethod method, std::string_view key,
                                   std::string_view text);

// Whether the bytes are equal, in a time that depends on the lengths alone.
[[nodiscard]] bool SameBytes(std::string_view a, std::string_view b);

// Fills `bytes` from the system's source. False when the system has none to give.
[[nodiscard]] bool FillWithChance(std::span<uint8_t> bytes);

}  // namespace vexa

#endif  // VEXA_CORE_DIGEST_H_
