// Mail addresses: the lists that pages write, and how addresses stand in a mail.
//
//   ada@example.org, Bob <bob@example.org>, "Carr, Eve" <eve@example.org>
//
// Names are UTF-8. Addresses are ASCII, in a form that fits an envelope and a header alike.

#ifndef VEXA_NET_MAIL_ADDRESS_H_
#define VEXA_NET_MAIL_ADDRESS_H_

#include <string_view>
#include <vector>

#include "core/string.h"

namespace vexa {

struct MailAddress {
  String name;     // as people read it; may be empty
  String address;  // local@domain

  [[nodiscard]] std::string_view domain() const;
};

// Appends the addresses of a list between commas; empty pieces are passed over. False when a piece
// is no mail address: `wrong` is then that piece, and `addresses` is unspecified.
[[nodiscard]] bool ReadMailAddresses(std::string_view list, std::vector<MailAddress>& addresses,
                                     String& wrong);

// `text` as a quoted string of mails.
[[nodiscard]] String QuotedString(std::string_view text);

// Whether mail to both goes to one receiver: domains have no letter case.
[[nodiscard]] bool SameReceiver(const MailAddress& a, const MailAddress& b);

}  // namespace vexa

#endif  // VEXA_NET_MAIL_ADDRESS_H_
