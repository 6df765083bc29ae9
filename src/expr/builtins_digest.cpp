// Digests, bytes written as letters and digits, and chance.

#include <cstring>
#include <utility>

#include "core/base64.h"
#include "core/digest.h"
#include "core/encoding.h"
#include "expr/builtins.h"

namespace vexa {

namespace {

bool ReportMethod(const BuiltinCall& call) {
  return call.context().ReportExpressionError(
      String::Concat({"'", ShownInMessage(call.Text(0)), "' is not a digest"}));
}

bool DigestText(const BuiltinCall& call) {
  DigestMethod method;
  if (!FindDigestMethod(call.Text(0), method)) return ReportMethod(call);
  return call.Return(HexOf(DigestOf(method, call.Text(1)).bytes()));
}

bool Hmac(const BuiltinCall& call) {
  DigestMethod method;
  if (!FindDigestMethod(call.Text(0), method) || method == DigestMethod::Crc32) {
    return ReportMethod(call);
  }
  return call.Return(HexOf(KeyedDigestOf(method, call.Text(1), call.Text(2)).bytes()));
}

bool Hex(const BuiltinCall& call) { return call.Return(HexOf(call.LookAtFirst())); }

bool FromHex(const BuiltinCall& call) {
  String bytes;
  return !BytesOfHex(call.LookAtFirst(), bytes) || call.Return(std::move(bytes));
}

bool Base64(const BuiltinCall& call) {
  String text;
  AppendBase64(text, call.LookAtFirst(), 0);
  return call.Return(std::move(text));
}

bool FromBase64(const BuiltinCall& call) {
  String bytes;
  return !BytesOfBase64(call.LookAtFirst(), bytes) || call.Return(std::move(bytes));
}

bool Same(const BuiltinCall& call) {
  return call.ReturnFlag(SameBytes(call.LookAtFirst(), call.Text(1)));
}

// Numbers beyond the last whole multiple of the range's size are drawn again, since the first ones
// would come out more often.
bool Random(const BuiltinCall& call) {
  const int64_t low = call.Integer64(0);
  const int64_t high = call.Integer64(1);
  if (low > high) return call.context().ReportExpressionError("The range is empty");
  const uint64_t size = static_cast<uint64_t>(high) - static_cast<uint64_t>(low) + 1;  // 0: 2^64
  const uint64_t beyond = size == 0 ? 0 : (UINT64_MAX % size + 1) % size;
  uint64_t number;
  do {
    uint8_t bytes[sizeof number];
    if (!FillWithChance(bytes)) {
      return call.context().ReportExpressionError("The system gives no random numbers");
    }
    std::memcpy(&number, bytes, sizeof number);
  } while (number > UINT64_MAX - beyond);
  if (size != 0) number %= size;
  return call.ReturnInteger(static_cast<int64_t>(static_cast<uint64_t>(low) + number));
}

bool UrlPart(const BuiltinCall& call) { return call.Return(URLPart(call.LookAtFirst())); }

}  // namespace

std::span<const LateBuiltin> DigestBuiltins() {
  static const LateBuiltin rows[] = {
      {"vexa_digest", "method, text", DigestText},
      {"vexa_hmac", "method, key, text", Hmac},
      {"vexa_hex", "text", Hex, kLooksAtFirst},
      {"vexa_fromhex", "text", FromHex, kLooksAtFirst},
      {"vexa_base64", "text", Base64, kLooksAtFirst},
      {"vexa_frombase64", "text", FromBase64, kLooksAtFirst},
      {"vexa_same", "a, b", Same, kLooksAtFirst},
      {"vexa_random", "low, high", Random},
      {"vexa_urlpart", "text", UrlPart, kLooksAtFirst},
  };
  return rows;
}

}  // namespace vexa
