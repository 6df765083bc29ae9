// VxPOP: a block that runs once for each message of a mailbox.
//
//   opened -> message fetched, variables set -> body runs -> closing tag -> the next message
//   after the last, or at VxPOPSTOP: what is marked is deleted, the mailbox closed
//   left in any other way: the connection is dropped, and nothing is deleted

#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "core/file.h"
#include "core/number.h"
#include "core/text.h"
#include "engine/block_state.h"
#include "engine/script_parser.h"
#include "net/attachment_saver.h"
#include "net/mail_check.h"
#include "net/mail_reader.h"
#include "net/network_errors.h"
#include "net/network_manager.h"
#include "net/pop_dialogue.h"
#include "tags/handlers.h"
#include "tags/network_tag.h"
#include "tags/tag_numbers.h"

namespace vexa {

namespace {

constexpr int kPlainPort = 110;
constexpr int kTlsPort = 995;
constexpr size_t kHeaderLimit = 512 * 1024;  // bytes read of a message whose header is asked for

// Where the mailbox is and how it is reached.
struct MailboxServer {
  ServerName server;
  Encryption encryption = Encryption::Tls;
};

bool ReadServer(const TagCall& call, MailboxServer& mailbox, String& reason) {
  const std::string_view text = Trimmed(call.Text("MAILHOST"));
  const std::optional<ServerName> server = ReadServerName(text);
  if (!server) {
    reason = Quoted(text) + " is not a mail host";
    return false;
  }
  mailbox.server = *server;
  int& port = mailbox.server.port;
  const int word = ReadKeyword(call, "TLS", {"auto", "tls", "starttls", "none"}, reason);
  if (word < 0) return false;
  const bool auto_tls = port == kTlsPort || port == 0;
  constexpr Encryption kWords[] = {Encryption::StartTls, Encryption::Tls, Encryption::StartTls,
                                   Encryption::None};
  mailbox.encryption = word == 0 && auto_tls ? Encryption::Tls : kWords[word];
  if (port == 0) port = mailbox.encryption == Encryption::Tls ? kTlsPort : kPlainPort;
  return true;
}

// What strangers send must not be run: while every file may be a page, none is put among them.
bool CheckDirectory(Vexa& host, const String& directory, String& reason) {
  if (directory.empty()) return true;
  String path;
  if (host.ResolvePath(directory, path, PathType::DataPath, reason) == 0) return false;
  if (!host.filemanager().IsDirectory(path)) {
    reason = Quoted(directory) + " is not a directory";
    return false;
  }
  if (host.config().validextensions.empty() && host.IsPagePath(path + "/x")) {
    reason = Quoted(directory) + " lies in the script directory";
    return false;
  }
  return true;
}

class MailboxState final : public LoopState {
 public:
  explicit MailboxState(const TagCall& call)
      : LoopState(call),
        variables_(call.script(), call.row()),
        host_(call.Text("MAILHOST")),
        directory_(call.Text("DIRECTORY")),
        mailbox_(parser().host().networkmanager().Begin<PopDialogue>(parser().host())) {}
  ~MailboxState() override { parser().host().networkmanager().End(mailbox_); }

  // Handled: the mailbox is open. Reported or Failed: it is not.
  [[nodiscard]] StateResult Open(const TagCall& call);
  // Goes to the next message. Handled: there is one. Finished: there is none, or an error was
  // reported and the page goes on. Failed.
  [[nodiscard]] StateResult Continue() override;

 protected:
  [[nodiscard]] StateResult OnOwnTag(Tag& tag) override {
    if (tag.id() == kTagVxPOPSTOP) return Close();
    mailbox_.messages()[next_ - 1].marked = true;
    return StateResult::Handled;
  }

 private:
  void Log(std::string_view event, std::string_view detail) {
    parser().host().logfile().Write(LogLevel::Network, event,
                                    String::Concat({"host=", host_, " ", detail}));
  }
  [[nodiscard]] StateResult Fail(std::string_view reason);
  [[nodiscard]] StateResult Close();
  [[nodiscard]] bool Fetch(const ListedMessage& listed, FetchedMessage& fetched, String& problem);
  [[nodiscard]] StateResult SetVariables(const ListedMessage& listed, const ReceivedMail& mail,
                                         const AttachmentSaver& saver, const String& problem);

  NetworkVariables variables_;
  String host_;  // as the page wrote it
  String directory_;
  PopDialogue& mailbox_;
  size_t next_ = 0;  // the message that the next pass is about; the one before it is at hand
};

// Finished when the page goes on.
StateResult MailboxState::Fail(std::string_view reason) {
  if (mailbox_.interrupted() && !parser().CheckTimeout()) return StateResult::Failed;
  Log("POPFAILED", String::Concat({"reason=", reason}));
  const StateResult result = parser().RuntimeError(
      opener(), String::Concat({"Error fetching mail from ", Quoted(host_), ": ", reason}));
  return result == StateResult::Failed ? result : StateResult::Finished;
}

StateResult MailboxState::Open(const TagCall& call) {
  String reason;
  parser().ClearErrorVariable(*parser().tags().WithNumber(kTagVxPOPDELETE));
  if (!variables_.ReadName(call, "pop", reason)) return Fail(reason);
  const StateResult cleared = variables_.Clear(
      {"number", "count", "size", "uid", "from", "address", "to", "cc", "replyto", "subject",
       "date", "time", "id", "headers", "text", "html", "files", "filenames", "error"});
  if (cleared == StateResult::Failed) return cleared;
  MailboxServer server;
  const bool good = CheckLineBreaks(call.tag(), {}, reason) && ReadServer(call, server, reason) &&
                    CheckDirectory(parser().host(), directory_, reason) &&
                    PrepareMailReader(reason);
  if (!good) return Fail(reason);
  if (!mailbox_.Open(server.server, server.encryption, call.Text("LOGIN"), call.Text("PASSWORD"))) {
    return Fail(mailbox_.reason());
  }
  const String count = PrintInteger(static_cast<int64_t>(mailbox_.messages().size()));
  Log("POPOPENED", String::Concat({"messages=", count}));
  const StateResult result = variables_.Assign("count", count);
  return result == StateResult::Failed ? result : StateResult::Handled;
}

StateResult MailboxState::Continue() {
  if (!parser().CheckTimeout()) return StateResult::Failed;
  if (next_ == mailbox_.messages().size()) return Close();
  const ListedMessage& listed = mailbox_.messages()[next_++];
  FetchedMessage fetched;
  String problem;
  if (!Fetch(listed, fetched, problem)) return Fail(mailbox_.reason());
  ReceivedMail mail;
  AttachmentSaver saver(parser().host(), directory_);
  String error;
  const MailParts parts = problem.empty() ? MailParts::All : MailParts::HeaderOnly;
  if (!ReadMail(fetched.raw, parts, saver, mail, error)) {
    return Fail(error.empty() ? saver.error() : error);
  }
  saver.Keep();
  fetched.raw.ReleaseStorage();
  return SetVariables(listed, mail, saver, problem);
}

// Fetches a message, or of one that is not to be taken apart its header; `problem` then says why.
bool MailboxState::Fetch(const ListedMessage& listed, FetchedMessage& fetched, String& problem) {
  const int setting = parser().host().config().mailmaxsize;
  const auto limit =
      setting > 0 ? static_cast<size_t>(setting) : std::numeric_limits<size_t>::max();
  const bool listed_larger = setting > 0 && listed.size > setting;
  const auto what = listed_larger ? PopDialogue::What::Header : PopDialogue::What::All;
  if (!mailbox_.Fetch(listed, what, listed_larger ? kHeaderLimit : limit, fetched)) return false;
  if (listed_larger || !fetched.complete) {
    problem = String::Concat({"The message is larger than ", PrintInteger(setting), " bytes"});
    return true;
  }
  problem = fetched.refusal;
  switch (CheckMail(fetched.raw)) {
    case MailProblem::TooManyHeaderLines:
      problem = "The message has too many header lines";
      break;
    case MailProblem::TooManyParts:
      problem = "The message has too many parts";
      break;
    case MailProblem::None:
      break;
  }
  return true;
}

StateResult MailboxState::SetVariables(const ListedMessage& listed, const ReceivedMail& mail,
                                       const AttachmentSaver& saver, const String& problem) {
  String headers;
  std::vector<NamedValue> named;
  for (const MailHeader& header : mail.headers) {
    if (!headers.empty()) headers.Append("\n");
    headers.Append(String::Concat({header.name, ": ", header.value}));
    named.push_back({header.name, header.value});
  }
  const std::pair<std::string_view, String> values[] = {
      {"number", PrintInteger(listed.number)},
      {"size", PrintInteger(listed.size)},
      {"uid", listed.uid},
      {"from", mail.Header("From")},
      {"address", mail.sender},
      {"to", mail.Header("To")},
      {"cc", mail.Header("Cc")},
      {"replyto", mail.Header("Reply-To")},
      {"subject", mail.Header("Subject")},
      {"date", mail.Header("Date")},
      {"time", mail.time ? PrintInteger(*mail.time) : String()},
      {"id", mail.Header("Message-ID")},
      {"headers", headers},
      {"text", mail.text},
      {"html", mail.html},
      {"files", saver.paths()},
      {"filenames", saver.names()},
      {"error", problem},
  };
  for (const auto& [ending, value] : values) {
    const StateResult result = variables_.Assign(ending, value);
    if (result == StateResult::Failed) return result;
  }
  const StateResult result = variables_.AssignHeaders(named);
  return result == StateResult::Failed ? result : StateResult::Handled;
}

// Finished, or Failed.
StateResult MailboxState::Close() {
  int64_t deleted = 0;
  for (const ListedMessage& message : mailbox_.messages()) deleted += message.marked ? 1 : 0;
  if (mailbox_.Close()) {
    Log("POPCLOSED", String::Concat({"fetched=", PrintInteger(static_cast<int64_t>(next_)),
                                     " deleted=", PrintInteger(deleted)}));
    return StateResult::Finished;
  }
  if (mailbox_.interrupted() && !parser().CheckTimeout()) return StateResult::Failed;
  Log("POPFAILED", String::Concat({"reason=", mailbox_.reason()}));
  const StateResult result = parser().RuntimeError(
      *parser().tags().WithNumber(kTagVxPOPDELETE),
      String::Concat({"Error deleting mail on ", Quoted(host_), ": ", mailbox_.reason()}));
  return result == StateResult::Failed ? result : StateResult::Finished;
}

}  // namespace

StateResult ProcessVxPOP(TagCall& call) {
  auto state = std::make_unique<MailboxState>(call);
  StateResult result = state->Open(call);
  if (result == StateResult::Handled) result = state->Continue();
  if (result == StateResult::Failed) return result;
  if (result != StateResult::Handled) return state->ExitState();
  return call.Enter(std::move(state));
}

}  // namespace vexa
