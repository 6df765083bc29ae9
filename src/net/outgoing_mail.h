// OutgoingMail: a mail from the tag that begins it to the server that takes it.
//
//   made, filled in -> Prepare -> the page writes its text -> Send
//
// The server gets all of it or nothing: the dialogue ends before the mail's last line unless every
// receiver was taken, and a mail without its last line is none.

#ifndef VEXA_NET_OUTGOING_MAIL_H_
#define VEXA_NET_OUTGOING_MAIL_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "core/file.h"
#include "core/string.h"
#include "net/address_policy.h"
#include "net/mail_address.h"
#include "net/mail_builder.h"
#include "net/network_manager.h"
#include "net/smtp_output.h"
#include "net/transfer.h"
#include "vexa.h"

namespace vexa {

// What the text of a mail is.
enum class MailType { Auto, Text, Html };

// A file that goes with a mail.
struct MailFile {
  String path;   // finished
  String shown;  // as messages name it
  String name;   // as the reader of the mail sees it
  String type;   // its content type
};

class OutgoingMail final : public NetworkTask {
 public:
  explicit OutgoingMail(Vexa& host);

  // --- To be filled in by who makes it ---
  Mail mail;  // all but date, id, text, html and attachments
  std::vector<MailAddress> blind_copies;
  String sender;  // the address that bounces go to
  MailType type = MailType::Auto;
  String plain_text;  // beside an HTML text; empty: made from that
  std::vector<MailFile> files;
  ServerName server;  // with its port
  Encryption encryption = Encryption::WhenOffered;
  String user;  // empty: nobody logs in
  String password;

  // Makes ready what does not depend on the text: receivers and server. False with reason().
  [[nodiscard]] bool Prepare();
  // Where the page writes the text.
  [[nodiscard]] SMTPOutput& output() { return output_; }
  // Puts the mail together and sends it. False with reason(), or interrupted().
  [[nodiscard]] bool Send();

  [[nodiscard]] const String& reason() const { return reason_; }
  // The request's time is up.
  [[nodiscard]] bool interrupted() const { return interrupted_; }
  // Of what was sent.
  [[nodiscard]] size_t receivers() const { return receivers_.size(); }
  [[nodiscard]] size_t bytes() const { return bytes_; }

 private:
  [[nodiscard]] bool Fail(String reason);
  [[nodiscard]] bool TooLarge();
  [[nodiscard]] bool IsTooLarge(int64_t bytes) const;
  [[nodiscard]] bool AddReceivers(const std::vector<MailAddress>& addresses);
  void SetText();
  [[nodiscard]] bool ReadFiles();
  [[nodiscard]] bool Deliver(std::string_view message);

  Vexa& host_;
  SMTPOutput output_;
  std::unique_ptr<Transfer> transfer_;
  std::vector<MailAddress> receivers_;  // each once
  size_t bytes_ = 0;
  bool interrupted_ = false;
  String reason_;
};

// Opens a file to be sent. Null with `reason` set when it cannot be read.
[[nodiscard]] std::unique_ptr<File> OpenMailFile(Vexa& host, const MailFile& file, String& reason);

}  // namespace vexa

#endif  // VEXA_NET_OUTGOING_MAIL_H_
