// Reading mails that strangers sent: headers decoded, texts as UTF-8, attachments handed on one by
// one. The library behind it is loaded when the first mail is read.

#ifndef VEXA_NET_MAIL_READER_H_
#define VEXA_NET_MAIL_READER_H_

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "core/string.h"
#include "net/mail_builder.h"

namespace vexa {

// Everything is UTF-8 without control characters; lines of texts end with LF.
struct ReceivedMail {
  std::vector<MailHeader> headers;  // in their order; names as sent
  String sender;                    // the bare address of who sent it
  std::optional<int64_t> time;      // seconds since 1970, when its date can be read
  String text;                      // the plain text; made from the HTML when there is none
  String html;

  // The value of the first header of that name, letter case ignored.
  [[nodiscard]] std::string_view Header(std::string_view name) const;
};

// Takes the attachments of a mail in their order.
class AttachmentSink {
 public:
  virtual ~AttachmentSink() = default;
  // `name` is that of the file as sent: any text without control characters; it may be empty. False
  // stops the reading.
  [[nodiscard]] virtual bool Take(const String& name, std::string_view content) = 0;
};

// Loads the library. False with `error` set when it is missing.
[[nodiscard]] bool PrepareMailReader(String& error);

enum class MailParts { HeaderOnly, All };

// Reads `raw` into `mail`. With HeaderOnly `raw` may be cut off anywhere behind the header.
// REQUIRES: CheckMail finds nothing wrong with it, when all parts are read.
// False when the sink wanted no more, or with `error` set when the library is missing.
[[nodiscard]] bool ReadMail(std::string_view raw, MailParts parts, AttachmentSink& sink,
                            ReceivedMail& mail, String& error);

}  // namespace vexa

#endif  // VEXA_NET_MAIL_READER_H_
