// Putting a mail together and handing it to its server.

#include "net/outgoing_mail.h"

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <string_view>
#include <utility>

#include "core/file.h"
#include "core/number.h"
#include "core/text.h"
#include "core/utf8.h"
#include "net/html_text.h"
#include "net/mail_text.h"
#include "net/network_errors.h"

namespace vexa {

namespace {

constexpr size_t kMostReceivers = 100;
constexpr size_t kLargestReply = 8192;  // bytes of the server; the library takes little more
constexpr int kReadBlock = 65536;

// The name by which this machine greets: a literal address when it has none in the net.
String GreetingName() {
  char name[256] = "";
  const bool known = ::gethostname(name, sizeof name - 1) == 0;
  const std::string_view text(name);
  const bool usable = known && text.find('.') != std::string_view::npos &&
                      std::all_of(text.begin(), text.end(), [](char c) {
                        return IsAlpha(c) || IsDigit(c) || c == '.' || c == '-';
                      });
  return usable ? text : std::string_view("%5B127.0.0.1%5D");
}

// What the library sends and is told. It logs in with what the server offers, and goes on without a
// login where that offers none: then the dialogue is ended here.
class Dialogue final : public TransferContent {
 public:
  Dialogue(std::string_view message, const OutgoingMail& mail)
      : rest_(message),
        needs_login_(!mail.user.empty()),
        encrypts_later_(mail.encryption == Encryption::StartTls) {}

  [[nodiscard]] bool TakeLine(std::string_view line) override;
  [[nodiscard]] int64_t GiveBody(char* buffer, size_t size) override {
    const size_t given = std::min(size, rest_.size());
    std::memcpy(buffer, rest_.data(), given);
    rest_.remove_prefix(given);
    return static_cast<int64_t>(given);
  }
  // The last line of the last reply, when that was a refusal.
  [[nodiscard]] const String& refusal() const { return refusal_; }

 private:
  [[nodiscard]] bool Stop(std::string_view problem) {
    problem_ = problem;
    return false;
  }

  std::string_view rest_;  // of the message
  bool needs_login_;
  bool encrypts_later_;
  bool offers_login_ = false;
  bool greeted_ = false;
  bool asked_ = false;  // the offers that count are known
  size_t reply_bytes_ = 0;
  String refusal_;
};

bool Dialogue::TakeLine(std::string_view line) {
  reply_bytes_ += line.size();
  if (reply_bytes_ > kLargestReply) return Stop(kNotUnderstood);
  line = Stripped(line);
  const std::string_view code = line.substr(0, 3);
  if (code.size() < 3 || !std::all_of(code.begin(), code.end(), IsDigit)) {
    return Stop(kNotUnderstood);
  }
  const std::string_view text = line.size() > 4 ? line.substr(4) : std::string_view();
  if (code == "250" && text.starts_with("AUTH ")) {
    const auto offers = [text](std::string_view word) {
      const size_t found = text.find(word);
      const size_t end = found + word.size();
      return found != std::string_view::npos && (end == text.size() || text[end] == ' ');
    };
    offers_login_ = offers_login_ || offers(" PLAIN") || offers(" LOGIN");
  }
  if (line.size() > 3 && line[3] == '-') return true;
  reply_bytes_ = 0;
  // Behind a refusal the library says good-bye.
  if (code != "221") refusal_ = code[0] == '4' || code[0] == '5' ? line : std::string_view();
  if (code == "220") {
    // The greeting, or the start of encryption, behind which only the offers made then count.
    if (std::exchange(greeted_, true)) encrypts_later_ = false;
    offers_login_ = false;
    return true;
  }
  if (code == "250" && !encrypts_later_ && !std::exchange(asked_, true) && needs_login_ &&
      !offers_login_) {
    return Stop("The server offers no login");
  }
  return true;
}

// Why a dialogue failed. Where the server refused something, it says so best.
String ReasonOf(const Transfer& transfer, const String& refusal) {
  switch (transfer.code()) {
    case CURLE_SEND_ERROR:
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_REMOTE_ACCESS_DENIED:
    case CURLE_RECV_ERROR:
    case CURLE_QUOTE_ERROR:
      return refusal.empty() ? transfer.reason() : ServerAnswered(refusal);
    default:
      return transfer.reason();
  }
}

// A list in the form that the library takes; freed with the object.
class ReceiverList {
 public:
  ReceiverList(const CurlLibrary& library, const std::vector<MailAddress>& receivers)
      : library_(library) {
    for (const MailAddress& receiver : receivers) {
      curl_slist* longer = library_.slist_append(list_, receiver.address.c_str());
      if (longer == nullptr) throw std::bad_alloc();
      list_ = longer;
    }
  }
  ~ReceiverList() { library_.slist_free_all(list_); }
  ReceiverList(const ReceiverList&) = delete;
  ReceiverList& operator=(const ReceiverList&) = delete;
  [[nodiscard]] curl_slist* get() const { return list_; }

 private:
  const CurlLibrary& library_;
  curl_slist* list_ = nullptr;
};

}  // namespace

OutgoingMail::OutgoingMail(Vexa& host)
    : host_(host), output_(host.config().smtpbuffersize, host.config().mailmaxsize) {}

bool OutgoingMail::Fail(String reason) {
  reason_ = std::move(reason);
  return false;
}

bool OutgoingMail::TooLarge() {
  return Fail(String::Concat(
      {"The mail is larger than ", PrintInteger(host_.config().mailmaxsize), " bytes"}));
}

bool OutgoingMail::IsTooLarge(int64_t bytes) const {
  const int limit = host_.config().mailmaxsize;
  return limit > 0 && bytes > limit;
}

bool OutgoingMail::AddReceivers(const std::vector<MailAddress>& addresses) {
  for (const MailAddress& address : addresses) {
    const bool known =
        std::any_of(receivers_.begin(), receivers_.end(),
                    [&address](const MailAddress& other) { return SameReceiver(address, other); });
    if (known) continue;
    if (receivers_.size() == kMostReceivers) {
      return Fail(String::Concat({"More than ", PrintInteger(kMostReceivers), " receivers"}));
    }
    receivers_.push_back(address);
  }
  return true;
}

bool OutgoingMail::Prepare() {
  if (!AddReceivers(mail.to) || !AddReceivers(mail.cc) || !AddReceivers(blind_copies)) return false;
  for (const MailFile& file : files) {
    if (OpenMailFile(host_, file, reason_) == nullptr) return false;
  }
  transfer_ = Transfer::Make(host_, reason_);
  if (transfer_ == nullptr) return false;
  const std::string_view scheme = encryption == Encryption::Tls ? "smtps" : "smtp";
  if (!transfer_->SetServer(scheme, server, GreetingName())) return Fail(transfer_->reason());
  transfer_->SetEncryption(encryption);
  return true;
}

// --- The message -----------------------------------------------------------------------------

void OutgoingMail::SetText() {
  const String text = MailLines(ToUtf8(output_.text()));
  const bool is_html =
      type == MailType::Html || (type == MailType::Auto && LooksLikeHtml(output_.text()));
  if (!is_html) {
    mail.text = text;
    return;
  }
  mail.html = text;
  mail.text = MailLines(plain_text.empty() ? TextOfHtml(text) : ToUtf8(plain_text));
}

std::unique_ptr<File> OpenMailFile(Vexa& host, const MailFile& file, String& reason) {
  std::unique_ptr<File> opened = host.filemanager().Open(file.path, OpenRead);
  char first;
  const bool readable = opened != nullptr && opened->ReadAt(0, &first, 1) >= 0;
  if (readable) return opened;
  reason = String::Concat({"Error reading ", Quoted(file.shown), ": ",
                           opened == nullptr ? host.filemanager().error() : opened->error()});
  return nullptr;
}

bool OutgoingMail::ReadFiles() {
  int64_t total = static_cast<int64_t>(mail.text.size() + mail.html.size());
  for (const MailFile& file : files) {
    const std::unique_ptr<File> opened = OpenMailFile(host_, file, reason_);
    if (opened == nullptr) return false;
    const int64_t length = opened->Length();
    total += AttachmentSize(std::max<int64_t>(length, 0));
    if (IsTooLarge(total)) return TooLarge();
    String content;
    content.Reserve(static_cast<size_t>(std::max<int64_t>(length, 0)));
    const auto block = std::make_unique_for_overwrite<char[]>(kReadBlock);
    for (;;) {
      const int got = opened->Read(block.get(), kReadBlock);
      if (got < 0) {
        return Fail(String::Concat({"Error reading ", Quoted(file.shown), ": ", opened->error()}));
      }
      if (got == 0) break;
      content.Append({block.get(), static_cast<size_t>(got)});
      if (IsTooLarge(static_cast<int64_t>(content.size()))) return TooLarge();
    }
    mail.attachments.push_back({file.name, file.type, std::move(content)});
  }
  return true;
}

bool OutgoingMail::Send() {
  output_.Flush();
  if (output_.too_large()) return TooLarge();
  SetText();
  if (!ReadFiles()) return false;
  mail.date = std::time(nullptr);
  mail.id = MakeMessageID(mail.from.domain());
  const String message = BuildMail(mail);
  bytes_ = message.size();
  if (IsTooLarge(static_cast<int64_t>(bytes_))) return TooLarge();
  mail.attachments.clear();
  return Deliver(message);
}

// --- The dialogue ----------------------------------------------------------------------------

bool OutgoingMail::Deliver(std::string_view message) {
  constexpr int kSmallestBuffer = 16 * 1024;  // bytes; what the library allows
  constexpr int kLargestBuffer = 2 * 1024 * 1024;
  const Settings& settings = host_.config();
  const ReceiverList receivers(transfer_->library(), receivers_);
  Dialogue dialogue(message, *this);
  transfer_->SetContent(dialogue);
  transfer_->Set(CURLOPT_UPLOAD, 1L);
  transfer_->Set(CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(message.size()));
  transfer_->Set(
      CURLOPT_UPLOAD_BUFFERSIZE,
      static_cast<long>(std::clamp(settings.smtpbuffersize, kSmallestBuffer, kLargestBuffer)));
  transfer_->Set(CURLOPT_MAIL_FROM, sender);
  transfer_->Set(CURLOPT_MAIL_RCPT, receivers.get());
  if (!user.empty()) {
    transfer_->Set(CURLOPT_USERNAME, user);
    transfer_->Set(CURLOPT_PASSWORD, password);
    transfer_->Set(CURLOPT_LOGIN_OPTIONS, "AUTH=PLAIN;AUTH=LOGIN");
  }
  transfer_->SetLimit(settings.mailtimeout);
  const bool sent = transfer_->Run();
  interrupted_ = transfer_->interrupted();
  if (!sent) reason_ = ReasonOf(*transfer_, dialogue.refusal());
  // The library may still speak of it while it is put away.
  transfer_.reset();
  return sent;
}

}  // namespace vexa
