// Digests come from libmd, which is linked into the program: no page loads it.

#include "core/digest.h"

#include <md5.h>
#include <sha1.h>
#include <sha2.h>
#include <sys/random.h>

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cstring>

#include "core/text.h"

namespace vexa {

namespace {

template <typename Context, auto kInit, auto kUpdate, auto kFinal, size_t kSize>
void Compute(std::initializer_list<std::string_view> pieces, Digest& digest) {
  Context context;
  kInit(&context);
  for (const std::string_view piece : pieces) {
    kUpdate(&context, reinterpret_cast<const uint8_t*>(piece.data()), piece.size());
  }
  kFinal(digest.storage.data(), &context);
  digest.size = kSize;
}

// Four bits at a time: quick enough for what pages sum up, and no table of a kilobyte.
void ComputeCrc32(std::string_view text, Digest& digest) {
  constexpr uint32_t kReversedPolynomial = 0xEDB88320;
  constexpr auto kOfNibble = [] {
    std::array<uint32_t, 16> table{};
    for (uint32_t i = 0; i < table.size(); ++i) {
      uint32_t rest = i;
      for (int bit = 0; bit < 4; ++bit) {
        rest = (rest >> 1) ^ ((rest & 1) != 0 ? kReversedPolynomial : 0);
      }
      table[i] = rest;
    }
    return table;
  }();
  uint32_t sum = UINT32_MAX;
  for (const char c : text) {
    sum ^= static_cast<unsigned char>(c);
    sum = (sum >> 4) ^ kOfNibble[sum & 15];
    sum = (sum >> 4) ^ kOfNibble[sum & 15];
  }
  sum = ~sum;
  digest.size = sizeof sum;
  for (size_t i = 0; i < sizeof sum; ++i) {
    digest.storage[i] = static_cast<uint8_t>(sum >> (24 - 8 * i));
  }
}

Digest DigestOfPieces(DigestMethod method, std::string_view first, std::string_view second) {
  Digest digest;
  switch (method) {
    case DigestMethod::Md5:
      Compute<MD5_CTX, MD5Init, MD5Update, MD5Final, MD5_DIGEST_LENGTH>({first, second}, digest);
      break;
    case DigestMethod::Sha1:
      Compute<SHA1_CTX, SHA1Init, SHA1Update, SHA1Final, SHA1_DIGEST_LENGTH>({first, second},
                                                                             digest);
      break;
    case DigestMethod::Sha256:
      Compute<SHA2_CTX, SHA256Init, SHA256Update, SHA256Final, SHA256_DIGEST_LENGTH>(
          {first, second}, digest);
      break;
    case DigestMethod::Sha512:
      Compute<SHA2_CTX, SHA512Init, SHA512Update, SHA512Final, SHA512_DIGEST_LENGTH>(
          {first, second}, digest);
      break;
    case DigestMethod::Crc32:
      assert(second.empty());
      ComputeCrc32(first, digest);
      break;
  }
  return digest;
}

}  // namespace

bool FindDigestMethod(std::string_view name, DigestMethod& method) {
  struct Named {
    char name[8];
    DigestMethod method;
  };
  static constexpr Named kMethods[] = {{"md5", DigestMethod::Md5},
                                       {"sha1", DigestMethod::Sha1},
                                       {"sha256", DigestMethod::Sha256},
                                       {"sha512", DigestMethod::Sha512},
                                       {"crc32", DigestMethod::Crc32}};
  for (const Named& row : kMethods) {
    if (!EqualsIgnoreCase(name, row.name)) continue;
    method = row.method;
    return true;
  }
  return false;
}

Digest DigestOf(DigestMethod method, std::string_view text) {
  return DigestOfPieces(method, text, {});
}

Digest KeyedDigestOf(DigestMethod method, std::string_view key, std::string_view text) {
  assert(method != DigestMethod::Crc32);
  const size_t block_size = method == DigestMethod::Sha512 ? 128 : 64;
  Digest short_key;
  if (key.size() > block_size) {
    short_key = DigestOf(method, key);
    key = short_key.bytes();
  }
  char inner[128] = {};
  char outer[128] = {};
  std::copy(key.begin(), key.end(), inner);
  std::copy(key.begin(), key.end(), outer);
  for (char& c : inner) c = static_cast<char>(c ^ 0x36);
  for (char& c : outer) c = static_cast<char>(c ^ 0x5C);
  const Digest digest = DigestOfPieces(method, {inner, block_size}, text);
  return DigestOfPieces(method, {outer, block_size}, digest.bytes());
}

bool SameBytes(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  // Volatile, so that no compiler leaves the loop at the first difference.
  volatile unsigned char difference = 0;
  for (size_t i = 0; i < a.size(); ++i) {
    difference = static_cast<unsigned char>(difference | (a[i] ^ b[i]));
  }
  return difference == 0;
}

bool FillWithChance(std::span<uint8_t> bytes) {
  while (!bytes.empty()) {
    const ssize_t count = getrandom(bytes.data(), bytes.size(), 0);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    bytes = bytes.subspan(static_cast<size_t>(count));
  }
  return true;
}

}  // namespace vexa
