// The words of messages about dialogues with other machines that more than one tag uses. What a
// message quotes came from a page, a visitor or another machine: it is shown as Shown() gives it.

#ifndef VEXA_NET_NETWORK_ERRORS_H_
#define VEXA_NET_NETWORK_ERRORS_H_

#include <string_view>

#include "core/string.h"

namespace vexa {

// `text` without control characters, cut at 200 bytes, entity-encoded.
[[nodiscard]] String Shown(std::string_view text);
// The same between single quotes.
[[nodiscard]] String Quoted(std::string_view text);
// Whether there is a CR, LF or NUL in it.
[[nodiscard]] bool HasLineBreak(std::string_view text);
// `text` without spaces and tabs at both ends; a view into `text`.
[[nodiscard]] std::string_view Trimmed(std::string_view text);

// Reasons.
[[nodiscard]] String NotValidFor(std::string_view value, std::string_view attribute);
[[nodiscard]] String NoLineBreaks(std::string_view name);
[[nodiscard]] String ServerAnswered(std::string_view line);
inline constexpr char kConnectionLost[] = "The connection was lost";
inline constexpr char kNotUnderstood[] = "The server's answer cannot be understood";
inline constexpr char kNoEncryption[] = "The server does not offer encryption";
inline constexpr char kEncryptionFailed[] = "Encryption could not be set up";
inline constexpr char kLoginRefused[] = "The server refused the user name or password";

}  // namespace vexa

#endif  // VEXA_NET_NETWORK_ERRORS_H_
