// Driving the library: in small steps, so that every wait is ours and ends in time.

#include "net/transfer.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <new>
#include <string_view>
#include <utility>

#include "core/late_function.h"
#include "core/number.h"
#include "core/outside.h"
#include "core/waiting.h"
#include "net/network_errors.h"

namespace vexa {

namespace {

// As pthread_sigmask.
void SetSignalMask(int how, const sigset_t* mask, sigset_t* former) {
  LateFunction<"pthread_sigmask", decltype(::pthread_sigmask)>()(how, mask, former);
}

// While one exists, no signal is delivered and a broken connection raises none.
class QuietSignals {
 public:
  QuietSignals() {
    sigset_t all;
    LateFunction<"sigfillset", decltype(::sigfillset)>()(&all);
    SetSignalMask(SIG_SETMASK, &all, &mask_);
    outside_ = mask_;
    struct sigaction ignore = {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &ignore, &broken_pipe_);
  }
  ~QuietSignals() {
    sigaction(SIGPIPE, &broken_pipe_, nullptr);
    SetSignalMask(SIG_SETMASK, &mask_, nullptr);
  }
  // Takes the signals that came meanwhile. REQUIRES: one exists.
  static void LetIn() {
    sigset_t all;
    SetSignalMask(SIG_SETMASK, &outside_, &all);
    SetSignalMask(SIG_SETMASK, &all, nullptr);
  }
  QuietSignals(const QuietSignals&) = delete;
  QuietSignals& operator=(const QuietSignals&) = delete;

 private:
  static sigset_t outside_;  // what is blocked while none exists
  sigset_t mask_;
  struct sigaction broken_pipe_;
};

sigset_t QuietSignals::outside_;

constexpr long kNever = 1000000;  // seconds; for limits of the library that ours replace

String PortText(int port) { return PrintInteger(port); }

}  // namespace

std::unique_ptr<Transfer> Transfer::Make(Vexa& host, String& reason) {
  const CurlLibrary* library = CurlLibrary::Load(reason);
  if (library == nullptr) return nullptr;
  std::unique_ptr<Transfer> transfer(new Transfer(host, *library));
  if (transfer->easy_ == nullptr || transfer->multi_ == nullptr) throw std::bad_alloc();
  transfer->SetCommonOptions();
  return transfer;
}

Transfer::Transfer(Vexa& host, const CurlLibrary& library)
    : host_(host), library_(library), easy_(library.easy_init()), multi_(library.multi_init()) {}

Transfer::~Transfer() {
  // The library waits for answers to its last commands. One that reads the end of the connection
  // does not; and behind a dialogue that failed not even a command is sent.
  HangUp(ended_well_ ? SHUT_RD : SHUT_RDWR);
  const QuietSignals quiet;
  LeaveMulti();
  if (easy_ != nullptr) library_.easy_cleanup(easy_);
  if (multi_ != nullptr) library_.multi_cleanup(multi_);
}

void Transfer::HangUp(int how) {
  for (const curl_socket_t socket : sockets_)
    LateFunction<"shutdown", decltype(::shutdown)>()(socket, how);
}

void Transfer::LeaveMulti() {
  if (in_multi_) (void)library_.multi_remove_handle(multi_, easy_);
  in_multi_ = false;
}

// --- What is to be done ----------------------------------------------------------------------

void Transfer::SetCommonOptions() {
  Set(CURLOPT_ERRORBUFFER, error_text_);
  Set(CURLOPT_NOSIGNAL, 1L);
  Set(CURLOPT_QUICK_EXIT, 1L);
  Set(CURLOPT_PROXY, "");
  Set(CURLOPT_FOLLOWLOCATION, 0L);
  Set(CURLOPT_CONNECTTIMEOUT, kNever);
  Set(CURLOPT_SERVER_RESPONSE_TIMEOUT, kNever);
  Set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
  if (const String& file = host_.config().cafile; !file.empty()) {
    Set(CURLOPT_CAINFO, file);
    Set(CURLOPT_CAPATH, static_cast<const char*>(nullptr));
  }
  Set(CURLOPT_OPENSOCKETFUNCTION, &Transfer::OpenSocket);
  Set(CURLOPT_OPENSOCKETDATA, this);
  Set(CURLOPT_CLOSESOCKETFUNCTION, &Transfer::CloseSocket);
  Set(CURLOPT_CLOSESOCKETDATA, this);
  Set(CURLOPT_HEADERFUNCTION, &Transfer::TakeLine);
  Set(CURLOPT_HEADERDATA, this);
  Set(CURLOPT_WRITEFUNCTION, &Transfer::TakeBody);
  Set(CURLOPT_WRITEDATA, this);
  Set(CURLOPT_READFUNCTION, &Transfer::GiveBody);
  Set(CURLOPT_READDATA, this);
  Set(CURLOPT_SEEKFUNCTION, &Transfer::GiveAgain);
  Set(CURLOPT_SEEKDATA, this);
  Set(CURLOPT_XFERINFOFUNCTION, &Transfer::TakeCount);
  Set(CURLOPT_XFERINFODATA, this);
  Set(CURLOPT_NOPROGRESS, 0L);
}

bool Transfer::SetServer(std::string_view scheme, const ServerName& server, std::string_view rest) {
  server_ = server;
  if (!server.numeric && host_.config().dnslookup == 0) {
    return Fail("Host names are not looked up on this site");
  }
  const std::string_view open = server.ipv6() ? "[" : "";
  const std::string_view close = server.ipv6() ? "]" : "";
  const String address = String::Concat(
      {scheme, "://", open, server.host, close, ":", PortText(server.port), "/", rest});
  Set(CURLOPT_URL, address);
  Set(CURLOPT_PROTOCOLS_STR, String(scheme));
  if (scheme.starts_with("smtp")) {
    Set(CURLOPT_DEBUGFUNCTION, &Transfer::Watch);
    Set(CURLOPT_DEBUGDATA, this);
    Set(CURLOPT_VERBOSE, 1L);
  }
  return true;
}

void Transfer::SetEncryption(Encryption encryption) {
  encryption_ = encryption;
  const bool trusting = encryption == Encryption::WhenOffered;
  Set(CURLOPT_SSL_VERIFYPEER, trusting ? 0L : 1L);
  Set(CURLOPT_SSL_VERIFYHOST, trusting ? 0L : 2L);
  const long use = encryption == Encryption::StartTls ? CURLUSESSL_ALL
                   : trusting                         ? CURLUSESSL_TRY
                                                      : CURLUSESSL_NONE;
  Set(CURLOPT_USE_SSL, use);
}

void Transfer::SetContent(TransferContent& content) { content_ = &content; }

void Transfer::SetLimit(int seconds) {
  limit_seconds_ = std::max(seconds, 0);
  deadline_.reset();
  if (seconds > 0) deadline_ = Clock::now() + std::chrono::seconds(seconds);
}

// --- Doing it --------------------------------------------------------------------------------

bool Transfer::Run() {
  const bool done = Drive();
  {
    const QuietSignals quiet;
    // The library would end a mail that is sent by halves as if it were whole.
    if (!done) HangUp(SHUT_RDWR);
    LeaveMulti();
  }
  ended_well_ = done;
  return done;
}

bool Transfer::Connect() {
  Set(CURLOPT_CONNECT_ONLY, 1L);
  // What was connected belongs to the list of handles: it is left only at the end.
  return Drive();
}

bool Transfer::Drive() {
  reason_.clear();
  error_text_[0] = '\0';
  reached_ = false;
  refused_address_.clear();
  ended_well_ = false;
  if (library_.multi_add_handle(multi_, easy_) != CURLM_OK) throw std::bad_alloc();
  in_multi_ = true;
  for (;;) {
    int running = 0;
    int queued = 0;
    {
      const QuietSignals quiet;
      if (library_.multi_perform(multi_, &running) != CURLM_OK) throw std::bad_alloc();
    }
    if (out_of_memory_) throw std::bad_alloc();
    if (const CURLMsg* message = library_.multi_info_read(multi_, &queued)) {
      code_ = message->data.result;
      return code_ == CURLE_OK || FailWithCode(code_);
    }
    if (!CheckTime()) return false;
    (void)library_.multi_poll(multi_, nullptr, 0, MillisecondsToWait(), nullptr);
  }
}

bool Transfer::Send(std::string_view bytes) {
  while (!bytes.empty()) {
    size_t sent = 0;
    CURLcode result;
    {
      const QuietSignals quiet;
      result = library_.easy_send(easy_, bytes.data(), bytes.size(), &sent);
    }
    if (result != CURLE_OK && result != CURLE_AGAIN) return Fail(kConnectionLost);
    bytes.remove_prefix(sent);
    if (result == CURLE_AGAIN && !WaitForSocket(POLLOUT)) return false;
  }
  return true;
}

size_t Transfer::Receive(char* buffer, size_t size) {
  for (;;) {
    // Also where the other side sends without end, and nothing is ever waited for.
    if (!CheckTime()) return 0;
    size_t received = 0;
    CURLcode result;
    {
      const QuietSignals quiet;
      result = library_.easy_recv(easy_, buffer, size, &received);
    }
    if (result == CURLE_OK && received > 0) return received;
    if (result != CURLE_AGAIN) {
      (void)Fail(kConnectionLost);
      return 0;
    }
    if (!WaitForSocket(POLLIN)) return 0;
  }
}

// False with reason() when the time is up.
bool Transfer::WaitForSocket(short events) {
  if (!CheckTime()) return false;
  curl_socket_t socket = CURL_SOCKET_BAD;
  (void)library_.easy_getinfo(easy_, CURLINFO_ACTIVESOCKET, &socket);
  if (socket == CURL_SOCKET_BAD) return Fail(kConnectionLost);
  pollfd waiting = {socket, events, 0};
  (void)::poll(&waiting, 1, MillisecondsToWait());
  return true;
}

bool Transfer::CheckTime() {
  LookOutside();
  if (host_.timedout()) {
    interrupted_ = true;
    return Fail("The request has timed out");
  }
  if (!deadline_ || Clock::now() < *deadline_) return true;
  code_ = CURLE_OPERATION_TIMEDOUT;
  return Fail(ReasonFor(code_));
}

int Transfer::MillisecondsToWait() const {
  if (!deadline_) return kLongestWait;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline_ - Clock::now());
  return static_cast<int>(std::clamp<int64_t>(left.count(), 0, kLongestWait));
}

long Transfer::Number(CURLINFO info) const {
  long value = 0;
  (void)library_.easy_getinfo(easy_, info, &value);
  return value;
}

String Transfer::Text(CURLINFO info) const {
  const char* value = nullptr;
  (void)library_.easy_getinfo(easy_, info, &value);
  return value;
}

// --- Failures --------------------------------------------------------------------------------

bool Transfer::Fail(String reason) {
  reason_ = std::move(reason);
  return false;
}

bool Transfer::FailWithCode(CURLcode code) {
  // CheckTime, called from within the library, has given the reason.
  if (code == CURLE_ABORTED_BY_CALLBACK && !reason_.empty()) return false;
  // What we ended ourselves has a reason of its own.
  const bool has_problem = content_ != nullptr && !content_->problem().empty();
  return Fail(has_problem ? content_->problem() : ReasonFor(code));
}

String Transfer::ReasonFor(CURLcode code) const {
  const String host = Quoted(server_.host);
  switch (code) {
    case CURLE_COULDNT_RESOLVE_HOST:
      return String::Concat({"The host ", host, " was not found"});
    case CURLE_COULDNT_CONNECT:
      if (!reached_ && !refused_address_.empty()) {
        return String::Concat(
            {"The address ", refused_address_, " must not be called (setting callallow)"});
      }
      return String::Concat({"Unable to connect to ", host, " port ", PortText(server_.port)});
    case CURLE_OPERATION_TIMEDOUT:
      return String::Concat({"Timed out after ", PrintInteger(limit_seconds_), " seconds"});
    case CURLE_GOT_NOTHING:
    case CURLE_SEND_ERROR:
    case CURLE_PARTIAL_FILE:
      return kConnectionLost;
    case CURLE_RECV_ERROR:
      // The library's word for a broken encoding and an endless reply is the same as for a broken
      // connection.
      for (const std::string_view said : {"hunk", "Too large"}) {
        if (std::string_view(error_text_).find(said) != std::string_view::npos) {
          return kNotUnderstood;
        }
      }
      return kConnectionLost;
    case CURLE_PEER_FAILED_VERIFICATION:
      return String::Concat({"The certificate of ", host, " cannot be trusted"});
    case CURLE_USE_SSL_FAILED:
      return kNoEncryption;
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_ENGINE_NOTFOUND:
    case CURLE_SSL_ENGINE_SETFAILED:
    case CURLE_SSL_ENGINE_INITFAILED:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_CRL_BADFILE:
    case CURLE_SSL_ISSUER_ERROR:
    case CURLE_SSL_INVALIDCERTSTATUS:
      return kEncryptionFailed;
    case CURLE_LOGIN_DENIED:
      return kLoginRefused;
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_UNSUPPORTED_PROTOCOL:
    case CURLE_BAD_CONTENT_ENCODING:
    case CURLE_WRITE_ERROR:    // Bytes behind the end of a packed body: ours have a problem().
    case CURLE_OUT_OF_MEMORY:  // A line longer than the library takes.
      return kNotUnderstood;
    default:
      return Shown(error_text_[0] != '\0' ? error_text_ : library_.easy_strerror(code));
  }
}

// --- Callbacks of the library ----------------------------------------------------------------

curl_socket_t Transfer::OpenSocket(void* self, curlsocktype, curl_sockaddr* address) {
  auto& transfer = *static_cast<Transfer*>(self);
  if (transfer.keeps_out_) {
    const auto numeric = NumericAddressOf(address->addr);
    const String& allowed = transfer.host_.config().callallow;
    const bool may = numeric && (!IsLocalAddress(*numeric) ||
                                 IsListed(allowed, transfer.server_.host, *numeric));
    if (!may) {
      if (numeric && transfer.refused_address_.empty()) {
        transfer.refused_address_ = numeric->Text();
      }
      return CURL_SOCKET_BAD;
    }
  }
  transfer.reached_ = true;
  const curl_socket_t opened = LateFunction<"socket", decltype(::socket)>()(
      address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
  if (opened != CURL_SOCKET_BAD) transfer.sockets_.push_back(opened);
  return opened;
}

int Transfer::CloseSocket(void* self, curl_socket_t socket) {
  std::erase(static_cast<Transfer*>(self)->sockets_, socket);
  return ::close(socket);
}

template <typename Result, typename Work>
Result Transfer::Ask(void* self, Result failed, Work work) noexcept {
  auto& transfer = *static_cast<Transfer*>(self);
  try {
    static TransferContent none;
    return work(transfer.content_ == nullptr ? none : *transfer.content_);
  } catch (const std::bad_alloc&) {
    transfer.out_of_memory_ = true;
    return failed;
  }
}

size_t Transfer::TakeLine(char* bytes, size_t size, size_t count, void* self) {
  const std::string_view line(bytes, size * count);
  return Ask(self, size_t{0},
             [line](TransferContent& content) { return content.TakeLine(line) ? line.size() : 0; });
}

size_t Transfer::TakeBody(char* bytes, size_t size, size_t count, void* self) {
  const std::string_view piece(bytes, size * count);
  return Ask(self, size_t{0}, [piece](TransferContent& content) {
    return content.TakeBody(piece) ? piece.size() : 0;
  });
}

size_t Transfer::GiveBody(char* bytes, size_t size, size_t count, void* self) {
  const int64_t given = Ask(self, int64_t{-1}, [=](TransferContent& content) {
    return content.GiveBody(bytes, size * count);
  });
  return given < 0 ? CURL_READFUNC_ABORT : static_cast<size_t>(given);
}

int Transfer::GiveAgain(void* self, curl_off_t offset, int origin) {
  const bool from_start = offset == 0 && origin == SEEK_SET;
  const bool again =
      from_start && Ask(self, false, [](TransferContent& content) { return content.GiveAgain(); });
  return again ? CURL_SEEKFUNC_OK : CURL_SEEKFUNC_FAIL;
}

// Behind a refusal the library says QUIT and waits for what the server says to that.
int Transfer::Watch(CURL*, curl_infotype type, char* bytes, size_t size, void* self) {
  const bool quits = type == CURLINFO_HEADER_OUT && std::string_view(bytes, size) == "QUIT\r\n";
  if (quits) static_cast<Transfer*>(self)->HangUp(SHUT_RD);
  return 0;
}

// Called at least once a second, also where the library waits inside of a step, as it does for the
// word on a mail that was sent.
int Transfer::TakeCount(void* self, curl_off_t, curl_off_t received, curl_off_t, curl_off_t) {
  auto& transfer = *static_cast<Transfer*>(self);
  QuietSignals::LetIn();
  const bool go_on = Ask(self, false, [&transfer, received](TransferContent& content) {
    return transfer.CheckTime() && content.TakeCount(received);
  });
  return go_on ? 0 : 1;
}

}  // namespace vexa
