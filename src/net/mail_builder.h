// A mail as it goes to the server: the parts of a message put together as bytes.
//
//   text only                     text/plain
//   HTML                          multipart/alternative { text/plain, text/html }
//   either, with attachments      multipart/mixed { one of the above, attachments }
//
// Every line ends with CR LF and has at most 998 bytes, every byte is below 128. Bcc is nobody's
// to read, so the builder does not know of it.

#ifndef VEXA_NET_MAIL_BUILDER_H_
#define VEXA_NET_MAIL_BUILDER_H_

#include <cstdint>
#include <ctime>
#include <span>
#include <string_view>
#include <vector>

#include "core/string.h"
#include "net/mail_address.h"

namespace vexa {

struct MailAttachment {
  String name;     // as the reader sees it
  String type;     // its content type
  String content;  // bytes
};

// A header of the page's own. REQUIRES: the name is letters, digits and `-`, no header of a mail
// itself; no line breaks in the value.
struct MailHeader {
  String name;
  String value;
};

// What a mail says. Texts are any bytes; no address list but To must have an entry.
struct Mail {
  MailAddress from;
  std::vector<MailAddress> to;
  std::vector<MailAddress> cc;
  std::vector<MailAddress> reply_to;
  String subject;
  std::vector<MailHeader> headers;
  time_t date = 0;
  String id;    // the Message-ID, with its angle brackets
  String text;  // plain; lines as MailLines gives them
  String html;  // the same; empty: no HTML mail
  std::vector<MailAttachment> attachments;
};

// A Message-ID that nobody else gives, and nobody can guess.
[[nodiscard]] String MakeMessageID(std::string_view domain);

// The size in bytes that the content of an attachment has in a mail.
[[nodiscard]] int64_t AttachmentSize(int64_t bytes);

// Whether a text without a type of its own is HTML.
[[nodiscard]] bool LooksLikeHtml(std::string_view text);

// The bytes of the message.
[[nodiscard]] String BuildMail(const Mail& mail);

}  // namespace vexa

#endif  // VEXA_NET_MAIL_BUILDER_H_
