// Fuzzing of what reads strangers' bytes on their way in from other machines, with libFuzzer:
// markup, texts in other character sets (whose name is the first line), addresses of calls, lists
// of mail addresses, and mails.

#include <algorithm>
#include <string_view>
#include <vector>

#include "core/utf8.h"
#include "fuzz_target.h"
#include "net/attachment_saver.h"
#include "net/call_address.h"
#include "net/charset.h"
#include "net/html_text.h"
#include "net/mail_address.h"
#include "net/mail_check.h"
#include "net/network_errors.h"
#include "net/tag_walker.h"

namespace vexa {
namespace {

void Walk(std::string_view text, Markup markup) {
  TagWalker walker(text, markup);
  size_t position = 0;
  while (walker.Next()) {
    Require(walker.position() >= position + walker.raw().size(), "the walker went back");
    position = walker.position();
    for (const TagWalker::Attribute& attribute : walker.attributes()) {
      Require(attribute.name.size() <= kLongestPart, "a name is too long");
      (void)walker.Decoded(attribute.value);
    }
  }
  Require(walker.position() == text.size(), "the walker stopped on the way");
}

void Convert(std::string_view text) {
  const size_t end = std::min(text.find('\n'), text.size());
  String utf8;
  if (ConvertToUtf8(text.substr(end), text.substr(0, end), utf8)) {
    Require(IsUtf8(utf8), "what was converted is no UTF-8");
  }
  (void)NamedCharset(text);
}

void ReadAddress(std::string_view text) {
  CallAddress address, again;
  String reason;
  Require(!ShownAddress(text).contains('<'), "an address is shown as markup");
  if (!address.Read(text, reason)) return Require(!reason.empty(), "a refusal without a reason");
  address.AddToQuery("a=b");
  Require(again.Read(address.Text(), reason), "an address that was read cannot be read again");
  Require(again.HasOriginOf(address) && again.target() == address.target(), "an address changed");
}

void ReadNames(std::string_view text) {
  std::vector<MailAddress> addresses;
  String reason;
  if (!ReadMailAddresses(text, addresses, reason)) {
    Require(!reason.empty(), "a refusal without a reason");
  }
  const String name = SafeFileName(text, Settings());
  Require(!name.empty() && name.size() <= 104 && name[0] != '.', "a name is not safe");
  Require(!name.contains('/') && !HasLineBreak(name), "a name is not safe");
}

void UseMarkup(std::string_view text) {
  Walk(text, Markup::Html);
  Walk(text, Markup::Xml);
  (void)TextOfHtml(text);
}

void UseMail(std::string_view text) {
  Require(MailHead(text).size() <= text.size(), "a header is longer than its mail");
  (void)CheckMail(text);
}

}  // namespace
}  // namespace vexa

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return vexa::UseTarget({{"markup", vexa::UseMarkup},
                          {"charset", vexa::Convert},
                          {"address", vexa::ReadAddress},
                          {"names", vexa::ReadNames},
                          {"mail", vexa::UseMail}},
                         data, size);
}
