// VxSMTP and MAIL: a block whose output is a mail.
//
//   attributes good -> output goes to the mail -> closing tag: output back, mail sent
//                                              -> left in any other way: output back, nothing sent
//   else, or refused by the server: an error of the opening tag
//
// Errors are shown on the page, not in the mail: they go to the host's output, which does not
// change.

#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "core/file.h"
#include "core/number.h"
#include "core/text.h"
#include "engine/block_state.h"
#include "engine/script_parser.h"
#include "net/network_errors.h"
#include "net/network_manager.h"
#include "net/outgoing_mail.h"
#include "tags/handlers.h"
#include "tags/network_tag.h"

namespace vexa {

namespace {

constexpr int kPlainPort = 25;
constexpr int kTlsPort = 465;
constexpr int kStartTlsPort = 587;

bool BeginsWith(std::string_view name, std::string_view beginning) {
  return EqualsIgnoreCase(name.substr(0, beginning.size()), beginning);
}

// Headers that a mail has of itself.
bool IsOwnHeader(std::string_view name) {
  for (std::string_view own : {"From", "Sender", "To", "Cc", "Bcc", "Reply-To", "Subject", "Date",
                               "Message-ID", "MIME-Version"}) {
    if (EqualsIgnoreCase(name, own)) return true;
  }
  return BeginsWith(name, "Content-");
}

// Fills a mail in from the attributes of its tag.
class MailTagReader {
 public:
  MailTagReader(const TagCall& call, OutgoingMail& mail) : call_(call), mail_(mail) {}

  // False with reason() when one of them is wrong.
  [[nodiscard]] bool Read() {
    return CheckLineBreaks(call_.tag(), {"TEXT"}, reason_) && ReadAddresses() && ReadServer() &&
           ReadText() && ReadHeaderList() && ReadFiles();
  }
  [[nodiscard]] const String& reason() const { return reason_; }

 private:
  bool Fail(String reason) {
    reason_ = std::move(reason);
    return false;
  }
  bool WrongAddress(std::string_view text) { return Fail(Quoted(text) + " is not a mail address"); }

  bool ReadList(std::string_view attribute, std::vector<MailAddress>& addresses) {
    String wrong;
    return ReadMailAddresses(call_.Text(attribute), addresses, wrong) || WrongAddress(wrong);
  }
  // Exactly one address.
  bool ReadOne(std::string_view attribute, MailAddress& address) {
    std::vector<MailAddress> addresses;
    if (!ReadList(attribute, addresses)) return false;
    if (addresses.size() != 1) return WrongAddress(Trimmed(call_.Text(attribute)));
    address = std::move(addresses.front());
    return true;
  }

  bool ReadAddresses() {
    Mail& mail = mail_.mail;
    if (!ReadOne("FROM", mail.from) || !ReadList("TO", mail.to) || !ReadList("CC", mail.cc) ||
        !ReadList("BCC", mail_.blind_copies) || !ReadList("REPLYTO", mail.reply_to)) {
      return false;
    }
    if (mail.to.empty()) return WrongAddress(Trimmed(call_.Text("TO")));
    MailAddress sender = mail.from;
    if (!Trimmed(call_.Text("SENDER")).empty() && !ReadOne("SENDER", sender)) return false;
    mail_.sender = sender.address;
    return true;
  }

  bool ReadServer() {
    const std::string_view text = Trimmed(call_.Text("MAILHOST"));
    const std::optional<ServerName> server = ReadServerName(text);
    if (!server) return Fail(Quoted(text) + " is not a mail host");
    mail_.server = *server;
    mail_.user = call_.Text("USER");
    mail_.password = call_.Text("PASSWORD");
    enum { kAuto, kTls, kStartTls, kNone };
    int word = ReadKeyword(call_, "TLS", {"auto", "tls", "starttls", "none"}, reason_);
    if (word < 0) return false;
    int& port = mail_.server.port;
    if (word == kAuto && port == kTlsPort) word = kTls;
    if (word == kAuto && (port == kStartTlsPort || !mail_.user.empty())) word = kStartTls;
    switch (word) {
      case kTls:
        return UseServer(Encryption::Tls, kTlsPort);
      case kStartTls:
        return UseServer(Encryption::StartTls, kStartTlsPort);
      case kNone:
        return UseServer(Encryption::None, kPlainPort);
      default:
        return UseServer(Encryption::WhenOffered, kPlainPort);
    }
  }
  // `port` where the page names none. Always true.
  bool UseServer(Encryption encryption, int port) {
    mail_.encryption = encryption;
    if (mail_.server.port == 0) mail_.server.port = port;
    return true;
  }

  bool ReadText() {
    const int type = ReadKeyword(call_, "TYPE", {"auto", "text", "html"}, reason_);
    if (type < 0) return false;
    mail_.type = static_cast<MailType>(type);
    mail_.plain_text = call_.Text("TEXT");
    mail_.mail.subject = call_.Text("SUBJECT");
    return true;
  }

  bool ReadHeaderList() {
    std::vector<NamedValue> headers;
    if (!ReadHeaders(call_, IsOwnHeader, headers, reason_)) return false;
    for (NamedValue& header : headers) {
      mail_.mail.headers.push_back({std::move(header.name), std::move(header.value)});
    }
    return true;
  }

  bool ReadFiles() {
    for (const ListedVariable& listed : ReadVariableList(call_.Text("FILES"))) {
      MailFile file;
      file.shown = call_.variables().Value(listed.variable);
      file.name = listed.shown.empty() ? call_.host().filemanager().StripDirectory(file.shown)
                                       : listed.shown;
      if (HasLineBreak(file.name)) return Fail(NoLineBreaks("FILES"));
      if (call_.host().ResolvePath(file.shown, file.path, PathType::DataPath, reason_) == 0) {
        return false;
      }
      const size_t point = file.path.view().rfind('.');
      const String* type = point == std::string_view::npos
                               ? nullptr
                               : call_.host().FindContentType(file.path.view().substr(point + 1));
      file.type = type == nullptr ? "application/octet-stream" : *type;
      mail_.files.push_back(std::move(file));
    }
    return true;
  }

  const TagCall& call_;
  OutgoingMail& mail_;
  String reason_;
};

class MailState final : public BlockState {
 public:
  explicit MailState(const TagCall& call)
      : BlockState(call),
        variables_(call.script(), call.row()),
        host_(call.Text("MAILHOST")),
        mail_(parser().host().networkmanager().Begin<OutgoingMail>(parser().host())) {}
  ~MailState() override {
    Leave();
    parser().host().networkmanager().End(mail_);
  }

  // Handled: the body is to be run. Reported or Failed: it is not.
  [[nodiscard]] StateResult Begin(const TagCall& call) {
    String reason;
    if (!variables_.ReadName(call, "smtp", reason)) return Fail(reason);
    if (variables_.Clear({"sent", "id"}) == StateResult::Failed) return StateResult::Failed;
    MailTagReader reader(call, mail_);
    if (!reader.Read()) return Fail(reader.reason());
    if (!mail_.Prepare()) return Fail(mail_.reason());
    former_output_ = &parser().SwitchOutput(mail_.output());
    return StateResult::Handled;
  }

  [[nodiscard]] StateResult ExitState() override {
    Leave();
    return BlockState::ExitState();
  }

 protected:
  [[nodiscard]] StateResult OnClose() override {
    SetFinished();
    Leave();
    const StateResult result = Send();
    return result == StateResult::Failed ? result : StateResult::Finished;
  }

 private:
  void Leave() {
    if (former_output_ != nullptr) parser().SwitchOutput(*former_output_);
    former_output_ = nullptr;
  }

  StateResult Fail(std::string_view reason) {
    parser().host().logfile().Write(
        LogLevel::Network, "MAILFAILED",
        String::Concat({"host=", host_, " from=", mail_.mail.from.address, " reason=", reason}));
    return parser().RuntimeError(
        opener(), String::Concat({"Error sending mail through ", Quoted(host_), ": ", reason}));
  }

  StateResult Send() {
    if (!mail_.Send()) {
      if (mail_.interrupted() && !parser().CheckTimeout()) return StateResult::Failed;
      return Fail(mail_.reason());
    }
    parser().host().logfile().Write(
        LogLevel::Network, "MAILSENT",
        String::Concat({"host=", host_, " from=", mail_.mail.from.address,
                        " receivers=", PrintInteger(static_cast<int64_t>(mail_.receivers())),
                        " bytes=", PrintInteger(static_cast<int64_t>(mail_.bytes())),
                        " id=", mail_.mail.id}));
    const StateResult result = variables_.Assign("id", mail_.mail.id);
    return result == StateResult::Failed ? result : variables_.Assign("sent", String("1"));
  }

  NetworkVariables variables_;
  String host_;  // as the page wrote it
  OutgoingMail& mail_;
  Output* former_output_ = nullptr;  // null while the page is written
};

}  // namespace

StateResult ProcessVxSMTP(TagCall& call) {
  auto state = std::make_unique<MailState>(call);
  const StateResult result = state->Begin(call);
  if (result == StateResult::Failed) return result;
  if (result != StateResult::Handled) return state->ExitState();
  return call.Enter(std::move(state));
}

}  // namespace vexa
