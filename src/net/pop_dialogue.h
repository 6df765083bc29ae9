// PopDialogue: an open mailbox, and the commands that are spoken to its server.
//
//   Open:   USER PASS LIST UIDL      Fetch: RETR, or TOP for the header alone
//   Close:  DELE for what is marked, QUIT; when one is refused RSET first
//
// A server deletes at QUIT, and only there. So no DELE is sent before the end, and a dialogue that
// is destroyed without Close says nothing more: nothing is deleted then.
//
// Every operation has the time of `mailtimeout`. One that fails leaves reason(); the connection is
// not used any more then, unless the operation says otherwise.

#ifndef VEXA_NET_POP_DIALOGUE_H_
#define VEXA_NET_POP_DIALOGUE_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "core/string.h"
#include "net/address_policy.h"
#include "net/network_manager.h"
#include "net/network_output.h"
#include "net/transfer.h"
#include "vexa.h"

namespace vexa {

// A message as the server lists it.
struct ListedMessage {
  int64_t number;  // its name in the dialogue, 1 or more
  int64_t size;    // bytes, as the server says
  String uid;      // empty when the server has none
  bool marked = false;
};

// A message as it came.
struct FetchedMessage {
  String raw;            // lines end with CR LF; as much as was asked for
  bool complete = true;  // false: it is larger
  String refusal;        // not empty: the server does not give it, and says why
};

class PopDialogue final : public NetworkTask {
 public:
  // `host` is borrowed.
  explicit PopDialogue(Vexa& host) : host_(host) {}

  // Connects, logs in and reads the listing. REQUIRES: the port is set; no line breaks.
  [[nodiscard]] bool Open(const ServerName& server, Encryption encryption, std::string_view login,
                          std::string_view password);
  [[nodiscard]] std::vector<ListedMessage>& messages() { return messages_; }

  enum class What { All, Header };
  // Fetches up to `limit` bytes of a message; what is more is read and dropped.
  [[nodiscard]] bool Fetch(const ListedMessage& message, What what, size_t limit,
                           FetchedMessage& fetched);
  // Deletes the marked messages, all or none, and ends the dialogue. False when they were not
  // deleted, with reason(); without marked messages always true.
  [[nodiscard]] bool Close();

  [[nodiscard]] const String& reason() const { return reason_; }
  // The request's time is up.
  [[nodiscard]] bool interrupted() const {
    return transfer_ != nullptr && transfer_->interrupted();
  }

 private:
  // What the server says before the commands begin.
  class Greeting final : public TransferContent {
   public:
    [[nodiscard]] bool TakeLine(std::string_view line) override;
    [[nodiscard]] const String& refusal() const { return refusal_; }

   private:
    String refusal_;
  };
  enum class Answer { Yes, No, Failed };

  bool Fail(std::string_view reason);
  void BeginStep();
  [[nodiscard]] bool Connect(const ServerName& server, Encryption encryption);
  [[nodiscard]] bool LogIn(std::string_view login, std::string_view password);
  [[nodiscard]] bool ReadListing();
  [[nodiscard]] bool ReadIds();
  [[nodiscard]] Answer Command(std::string_view verb, std::string_view argument = {});
  [[nodiscard]] Answer Command(std::string_view verb, int64_t number);
  [[nodiscard]] bool FillBuffer();
  [[nodiscard]] bool ReadLine(String& line);
  [[nodiscard]] bool ReadText(size_t limit, FetchedMessage& text);

  Vexa& host_;
  Greeting greeting_;  // the transfer speaks to it to its end
  std::unique_ptr<Transfer> transfer_;
  std::unique_ptr<NetworkOutput> output_;
  std::vector<ListedMessage> messages_;
  std::unique_ptr<char[]> buffer_;
  size_t begin_ = 0;  // of what is not used yet in the buffer
  size_t end_ = 0;
  String answer_;  // the last line that said yes or no
  String reason_;
};

}  // namespace vexa

#endif  // VEXA_NET_POP_DIALOGUE_H_
