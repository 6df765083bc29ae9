// Texts of the head of an answer.

#include "request/header_text.h"

#include <algorithm>

#include "core/encoding.h"
#include "core/text.h"

namespace vexa {

namespace {

// One text each: a table of texts would have to be adjusted at every start.
// What the answer itself says, or the server does about the connection.
constexpr std::string_view kReservedNames =
    "Status,Location,Content-Length,Transfer-Encoding,Connection,Keep-Alive,Trailer,Upgrade";
// What makes servers send any file they can read.
constexpr std::string_view kReservedBeginnings =
    "Proxy-,X-Accel-,X-Sendfile,X-LIGHTTPD-,X-LiteSpeed-";

bool IsHeaderName(std::string_view name) {
  return !name.empty() && std::all_of(name.begin(), name.end(),
                                      [](char c) { return IsAlpha(c) || IsDigit(c) || c == '-'; });
}

bool IsReserved(std::string_view name) {
  for (PieceReader names(kReservedNames, ","); names.Next();) {
    if (EqualsIgnoreCase(name, names.piece())) return true;
  }
  for (PieceReader beginnings(kReservedBeginnings, ","); beginnings.Next();) {
    if (IsLeadingPart(beginnings.piece(), name)) return true;
  }
  return false;
}

bool HasControl(std::string_view text) { return std::any_of(text.begin(), text.end(), IsControl); }

}  // namespace

String QuotedProblem(std::string_view text, std::string_view problem) {
  return String::Concat({"'", ShownInMessage(text), "'", problem});
}

bool EndsLine(std::string_view value) {
  return value.find_first_of(std::string_view("\r\n\0", 3)) != value.npos;
}

String HeaderProblem(std::string_view name, std::string_view value) {
  if (!IsHeaderName(name)) return QuotedProblem(name, " is not a header name");
  if (IsReserved(name)) return QuotedProblem(name, " cannot be set with vexa_header");
  return EndsLine(value) ? kNoLineBreaks : "";
}

// Browsers read "//" as the beginning of a host, a backslash as a slash, and drop control bytes.
bool IsLocalAddress(std::string_view address) {
  if (address.empty() || HasControl(address) || address.find('\\') != address.npos) return false;
  const std::string_view path = address.substr(0, address.find_first_of("?#"));
  return path.substr(0, path.find('/')).find(':') == path.npos && path.find("//") == path.npos;
}

bool IsWebAddress(std::string_view address) {
  const auto follows = [address](std::string_view scheme) {
    return address.size() > scheme.size() && IsLeadingPart(scheme, address);
  };
  return (follows("http://") || follows("https://")) && !HasControl(address);
}

String AddressAsSent(std::string_view address) {
  String sent;
  for (char c : address) {
    if (c == ' ' || static_cast<unsigned char>(c) > 127) {
      AppendPercentCode(sent, c);
    } else {
      sent.Accumulate(c);
    }
  }
  return sent;
}

String AttachmentDisposition(std::string_view name) {
  String plain;
  for (char c : name) {
    const bool special =
        IsControl(c) || static_cast<unsigned char>(c) > 127 || c == '"' || c == '\\' || c == '%';
    plain.Accumulate(special ? '_' : c);
  }
  const bool whole = plain == name;
  return String::Concat({"attachment; filename=\"", plain, "\"", whole ? "" : "; filename*=UTF-8''",
                         whole ? String() : URLPart(name)});
}

}  // namespace vexa
