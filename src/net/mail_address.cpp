// Reading lists of mail addresses.

#include "net/mail_address.h"

#include <algorithm>
#include <cstddef>

#include "core/text.h"

namespace vexa {

namespace {

constexpr size_t kLongestAddress = 254;  // bytes, as mail servers take them

std::string_view WithoutBlanks(std::string_view text) {
  const size_t first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// The length of what stands before the next of `ends` that is in no quotes; all of it, when there
// is none.
size_t LengthUntil(std::string_view text, std::string_view ends) {
  bool quoted = false;
  for (size_t i = 0; i < text.size(); ++i) {
    if (quoted && text[i] == '\\') {
      ++i;
    } else if (text[i] == '"') {
      quoted = !quoted;
    } else if (!quoted && ends.find(text[i]) != std::string_view::npos) {
      return i;
    }
  }
  return text.size();
}

bool IsAtomByte(char c) {
  return IsAlpha(c) || IsDigit(c) ||
         std::string_view("!#$%&'*+-/=?^_`{|}~").find(c) != std::string_view::npos;
}

// Atoms between points: what needs no quotes before the `@`.
bool IsDotAtom(std::string_view text) {
  char former = '.';
  for (char c : text) {
    if (c == '.' ? former == '.' : !IsAtomByte(c)) return false;
    former = c;
  }
  return former != '.';
}

// `text` between quotes that begin and end it; they are closed nowhere between.
bool IsQuotedString(std::string_view text) {
  if (text.size() < 2 || text.front() != '"' || text.back() != '"') return false;
  for (size_t i = 1; i + 1 < text.size(); ++i) {
    if (text[i] == '"' || (text[i] == '\\' && ++i + 1 == text.size())) return false;
  }
  return true;
}

bool IsDomain(std::string_view text) {
  if (text.size() > 2 && text.front() == '[' && text.back() == ']') {
    return std::all_of(text.begin() + 1, text.end() - 1,
                       [](char c) { return IsAlpha(c) || IsDigit(c) || c == '.' || c == ':'; });
  }
  return IsDotAtom(text);
}

// The address in the form that it has in mails. False when it is none.
bool ReadAddress(std::string_view text, String& address) {
  const auto wrong = [](char c) { return c <= ' ' || c > '~' || c == '<' || c == '>'; };
  if (text.size() > kLongestAddress || std::any_of(text.begin(), text.end(), wrong)) return false;
  const size_t at = text.rfind('@');
  if (at == std::string_view::npos || at == 0) return false;
  const std::string_view local = text.substr(0, at);
  const std::string_view domain = text.substr(at + 1);
  if (!IsDomain(domain)) return false;
  // What would mean something else to those who read the header stands in quotes.
  const bool plain = IsDotAtom(local) || IsQuotedString(local);
  address = plain ? String(text) : String::Concat({QuotedString(local), "@", domain});
  return address.size() <= kLongestAddress;
}

// A name, with the quotes around it and the backslashes in those taken away.
String ReadName(std::string_view text) {
  if (!IsQuotedString(text)) return text;
  String name;
  for (size_t i = 1; i + 1 < text.size(); ++i) {
    if (text[i] == '\\') ++i;
    name.Accumulate(text[i]);
  }
  return name;
}

bool ReadOne(std::string_view text, MailAddress& address) {
  const size_t open = LengthUntil(text, "<");
  if (open == text.size()) return ReadAddress(text, address.address);
  if (text.back() != '>') return false;
  address.name = ReadName(WithoutBlanks(text.substr(0, open)));
  const std::string_view inner = text.substr(open + 1, text.size() - open - 2);
  return ReadAddress(WithoutBlanks(inner), address.address);
}

}  // namespace

String QuotedString(std::string_view text) {
  String quoted("\"");
  for (char c : text) {
    if (c == '"' || c == '\\') quoted.Accumulate('\\');
    quoted.Accumulate(c);
  }
  quoted.cat('"');
  return quoted;
}

std::string_view MailAddress::domain() const {
  return address.view().substr(address.view().rfind('@') + 1);
}

bool ReadMailAddresses(std::string_view list, std::vector<MailAddress>& addresses, String& wrong) {
  while (!list.empty()) {
    const size_t length = LengthUntil(list, ",");
    const std::string_view piece = WithoutBlanks(list.substr(0, length));
    list.remove_prefix(std::min(length + 1, list.size()));
    if (piece.empty()) continue;
    if (!ReadOne(piece, addresses.emplace_back())) {
      wrong = piece;
      return false;
    }
  }
  return true;
}

bool SameReceiver(const MailAddress& a, const MailAddress& b) {
  const size_t local = a.address.size() - a.domain().size();
  return a.address.view().substr(0, local) ==
             b.address.view().substr(0, b.address.size() - b.domain().size()) &&
         EqualsIgnoreCase(a.domain(), b.domain());
}

}  // namespace vexa
