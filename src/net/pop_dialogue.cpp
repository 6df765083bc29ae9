// Speaking POP3.

#include "net/pop_dialogue.h"

#include <algorithm>
#include <charconv>
#include <system_error>
#include <unordered_map>
#include <utility>

#include "core/number.h"
#include "core/text.h"
#include "net/network_errors.h"

namespace vexa {

namespace {

constexpr size_t kBufferSize = 65536;
constexpr size_t kLongestLine = 65536;  // bytes, of anything but a message
constexpr size_t kMostMessages = 100'000;
constexpr size_t kLongestId = 200;  // bytes

// The whole number that `text` begins with, taken off it with the spaces behind. False when it
// begins with none, or that is 2^63 or more.
bool TakeNumber(std::string_view& text, int64_t& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || text.front() == '-') return false;
  text.remove_prefix(static_cast<size_t>(end - text.data()));
  const size_t blanks = std::min(text.find_first_not_of(' '), text.size());
  if (blanks == 0 && !text.empty()) return false;
  text.remove_prefix(blanks);
  return true;
}

}  // namespace

bool PopDialogue::Greeting::TakeLine(std::string_view line) {
  line = Stripped(line);
  refusal_ = line.starts_with("-ERR") ? line.substr(0, kLongestLine) : std::string_view();
  return true;
}

bool PopDialogue::Fail(std::string_view reason) {
  reason_ = reason;
  return false;
}

void PopDialogue::BeginStep() { transfer_->SetLimit(host_.config().mailtimeout); }

// --- Opening ---------------------------------------------------------------------------------

bool PopDialogue::Open(const ServerName& server, Encryption encryption, std::string_view login,
                       std::string_view password) {
  return Connect(server, encryption) && LogIn(login, password) && ReadListing() && ReadIds();
}

bool PopDialogue::Connect(const ServerName& server, Encryption encryption) {
  transfer_ = Transfer::Make(host_, reason_);
  if (transfer_ == nullptr) return false;
  const std::string_view scheme = encryption == Encryption::Tls ? "pop3s" : "pop3";
  if (!transfer_->SetServer(scheme, server, {})) return Fail(transfer_->reason());
  transfer_->SetEncryption(encryption);
  transfer_->SetContent(greeting_);
  BeginStep();
  if (!transfer_->Connect()) {
    const bool refused =
        transfer_->code() == CURLE_WEIRD_SERVER_REPLY && !greeting_.refusal().empty();
    return Fail(refused ? ServerAnswered(greeting_.refusal()) : transfer_->reason());
  }
  output_ = std::make_unique<NetworkOutput>(*transfer_);
  buffer_ = std::make_unique_for_overwrite<char[]>(kBufferSize);
  return true;
}

bool PopDialogue::LogIn(std::string_view login, std::string_view password) {
  for (const auto& [verb, argument] : {std::pair("USER", login), std::pair("PASS", password)}) {
    const Answer answer = Command(verb, argument);
    if (answer == Answer::Yes) continue;
    if (answer == Answer::Failed) return false;
    // A mailbox that cannot be opened now is not a wrong password.
    const bool later = answer_.contains("[IN-USE]") || answer_.contains("[SYS/");
    return Fail(later ? ServerAnswered(answer_) : String(kLoginRefused));
  }
  return true;
}

bool PopDialogue::ReadListing() {
  BeginStep();
  const Answer answer = Command("LIST");
  if (answer == Answer::No) return Fail(ServerAnswered(answer_));
  if (answer == Answer::Failed) return false;
  std::unordered_map<int64_t, size_t> known;
  for (String line; ReadLine(line);) {
    if (line == ".") return true;
    std::string_view rest = Stripped(line);
    ListedMessage message{};
    if (!TakeNumber(rest, message.number) || rest.empty() || !TakeNumber(rest, message.size) ||
        !rest.empty() || message.number == 0 ||
        !known.emplace(message.number, messages_.size()).second) {
      return Fail(kNotUnderstood);
    }
    if (messages_.size() == kMostMessages) return Fail("The mailbox lists too many messages");
    messages_.push_back(std::move(message));
  }
  return false;
}

// Not every server has ids, and what it has them for beyond its listing is nobody's business.
bool PopDialogue::ReadIds() {
  if (messages_.empty()) return true;
  const Answer answer = Command("UIDL");
  if (answer != Answer::Yes) return answer == Answer::No;
  std::unordered_map<int64_t, ListedMessage*> listed;
  for (ListedMessage& message : messages_) listed.emplace(message.number, &message);
  size_t lines = 0;
  for (String line; ReadLine(line);) {
    if (line == ".") return true;
    if (++lines > kMostMessages) return Fail(kNotUnderstood);
    std::string_view rest = Stripped(line);
    int64_t number = 0;
    if (!TakeNumber(rest, number) || !listed.contains(number)) continue;
    const bool printable =
        std::all_of(rest.begin(), rest.end(), [](char c) { return c > ' ' && c <= '~'; });
    if (printable && rest.size() <= kLongestId) listed[number]->uid = rest;
  }
  return false;
}

// --- Messages --------------------------------------------------------------------------------

bool PopDialogue::Fetch(const ListedMessage& message, What what, size_t limit,
                        FetchedMessage& fetched) {
  BeginStep();
  const String number = PrintInteger(message.number);
  const Answer answer = what == What::All ? Command("RETR", number) : Command("TOP", number + " 0");
  if (answer == Answer::Failed) return false;
  if (answer == Answer::Yes) return ReadText(limit, fetched);
  fetched.refusal = ServerAnswered(answer_);
  return true;
}

bool PopDialogue::Close() {
  BeginStep();
  const auto marked = [](const ListedMessage& message) { return message.marked; };
  const bool deletes = std::any_of(messages_.begin(), messages_.end(), marked);
  for (const ListedMessage& message : messages_) {
    if (!message.marked) continue;
    const Answer answer = Command("DELE", message.number);
    if (answer == Answer::Failed) return false;
    if (answer == Answer::Yes) continue;
    const String refusal = ServerAnswered(answer_);
    // Unless all were taken back, nothing may be said that would delete some.
    if (Command("RSET") == Answer::Yes) (void)Command("QUIT");
    return Fail(refusal);
  }
  const Answer answer = Command("QUIT");
  if (answer == Answer::No) (void)Fail(ServerAnswered(answer_));
  return answer == Answer::Yes || !deletes;
}

// --- Commands and answers --------------------------------------------------------------------

PopDialogue::Answer PopDialogue::Command(std::string_view verb, int64_t number) {
  return Command(verb, PrintInteger(number).view());
}

PopDialogue::Answer PopDialogue::Command(std::string_view verb, std::string_view argument) {
  const std::string_view space = argument.empty() ? "" : " ";
  output_->Write(String::Concat({verb, space, argument, "\r\n"}).view());
  if (output_->Flush() < 0) {
    (void)Fail(transfer_->reason());
    return Answer::Failed;
  }
  if (!ReadLine(answer_)) return Answer::Failed;
  if (answer_.view().starts_with("+OK")) return Answer::Yes;
  if (answer_.view().starts_with("-ERR")) return Answer::No;
  (void)Fail(kNotUnderstood);
  return Answer::Failed;
}

bool PopDialogue::FillBuffer() {
  if (begin_ < end_) return true;
  begin_ = 0;
  end_ = transfer_->Receive(buffer_.get(), kBufferSize);
  return end_ > 0 || Fail(transfer_->reason());
}

// Reads a line without its end.
bool PopDialogue::ReadLine(String& line) {
  line.clear();
  while (FillBuffer()) {
    const std::string_view held(buffer_.get() + begin_, end_ - begin_);
    const size_t end = held.find('\n');
    const std::string_view piece = held.substr(0, end);
    if (line.size() + piece.size() > kLongestLine) return Fail(kNotUnderstood);
    line.Append(piece);
    begin_ += std::min(end, piece.size()) + (end == std::string_view::npos ? 0 : 1);
    if (end == std::string_view::npos) continue;
    if (line.view().ends_with('\r')) line.Truncate(line.size() - 1);
    return true;
  }
  return false;
}

// Reads lines up to the one that is a point. Of a line that begins with a point, that is dropped.
bool PopDialogue::ReadText(size_t limit, FetchedMessage& text) {
  enum class At { LineStart, Point, PointReturn, Inside } at = At::LineStart;
  const auto add = [&](std::string_view piece) {
    const size_t room = limit - std::min(limit, text.raw.size());
    if (piece.size() > room) text.complete = false;
    text.raw.Append(piece.substr(0, room));
  };
  while (FillBuffer()) {
    const std::string_view held(buffer_.get() + begin_, end_ - begin_);
    const char c = held.front();
    if (at == At::LineStart && c == '.') {
      at = At::Point;
      ++begin_;
    } else if (at == At::Point && c == '\r') {
      at = At::PointReturn;
      ++begin_;
    } else if ((at == At::Point || at == At::PointReturn) && c == '\n') {
      ++begin_;
      return true;
    } else {
      if (at == At::PointReturn) add("\r");
      const size_t end = held.find('\n');
      const std::string_view piece = held.substr(0, end == std::string_view::npos ? end : end + 1);
      add(piece);
      begin_ += piece.size();
      at = end == std::string_view::npos ? At::Inside : At::LineStart;
    }
  }
  return false;
}

}  // namespace vexa
