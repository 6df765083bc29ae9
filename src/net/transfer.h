// Transfer: one dialogue with another machine. It keeps the limits of time, the rule of addresses
// and the encryption, and words what went wrong. HTTP and SMTP are spoken by the library (Run); of
// POP3 the library only connects and encrypts (Connect), and the commands are sent and read here.
//
//   made -> SetServer, SetEncryption, Set... -> SetLimit -> Run, again for the next step
//                                                        -> Connect -> Send, Receive ...
//
// While it waits, the request's own time is looked at at least once a second. The signals that end
// a page are held back only while the library works, so that no thread it starts takes one; a write
// to a broken connection is no lost reader of the page. Nothing is waited for when it ends: neither
// a look-up nor the other side's good-bye.

#ifndef VEXA_NET_TRANSFER_H_
#define VEXA_NET_TRANSFER_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "core/string.h"
#include "net/address_policy.h"
#include "net/curl_library.h"
#include "vexa.h"

namespace vexa {

enum class Encryption {
  None,
  WhenOffered,  // and then without a look at the certificate
  StartTls,     // asked for in the dialogue; refused when it is not offered
  Tls,          // from the first byte
};

// What a dialogue carries, besides the commands of its protocol. An operation that fails leaves the
// reason in problem_ and ends the dialogue.
class TransferContent {
 public:
  virtual ~TransferContent() = default;
  // A line of an HTTP header or of a server's reply, with its line end.
  [[nodiscard]] virtual bool TakeLine(std::string_view) { return true; }
  // A piece of the body that the other side sends.
  [[nodiscard]] virtual bool TakeBody(std::string_view) { return true; }
  // How many bytes of it have come, before it is unpacked.
  [[nodiscard]] virtual bool TakeCount(int64_t) { return true; }
  // Copies up to `size` bytes of the body to be sent. Their number, 0 at its end, -1 on failure.
  [[nodiscard]] virtual int64_t GiveBody(char*, size_t) { return 0; }
  // The body is to be sent again from its start.
  [[nodiscard]] virtual bool GiveAgain() { return false; }
  [[nodiscard]] const String& problem() const { return problem_; }

 protected:
  String problem_;
};

class Transfer {
 public:
  // A dialogue on behalf of `host`, which outlives it. Null, with `reason` set, without the
  // library.
  [[nodiscard]] static std::unique_ptr<Transfer> Make(Vexa& host, String& reason);
  ~Transfer();
  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;

  // --- What is to be done ---
  // The server, the protocol's name in addresses ("https"), and the address behind the "/". The
  // port must be set. False, with reason(), when the site does not look up names.
  [[nodiscard]] bool SetServer(std::string_view scheme, const ServerName& server,
                               std::string_view rest);
  void SetEncryption(Encryption encryption);
  // From here on only addresses that the site lets pages call are connected to.
  void KeepOutOfLocalNetworks() { keeps_out_ = true; }
  // Borrowed until the transfer is destroyed.
  void SetContent(TransferContent& content);
  // An option of the library. Texts are copied by it, lists are not.
  template <typename Value>
  void Set(CURLoption option, Value value) {
    (void)library_.easy_setopt(easy_, option, value);
  }
  void Set(CURLoption option, const String& value) { Set(option, value.c_str()); }
  // Starts the clock: from here on there are so many seconds for what follows; 0: no limit.
  void SetLimit(int seconds);

  // --- Doing it ---
  // The whole dialogue. False with reason().
  [[nodiscard]] bool Run();
  // Connects, encrypts, and is ready to send and receive. False with reason().
  [[nodiscard]] bool Connect();
  // Sends all of it. False with reason().
  [[nodiscard]] bool Send(std::string_view bytes);
  // Waits for bytes and reads up to `size`. Their number; 0 with reason() when none will come.
  [[nodiscard]] size_t Receive(char* buffer, size_t size);

  // --- What came of it ---
  // Why the last operation failed, as a message shows it.
  [[nodiscard]] const String& reason() const { return reason_; }
  // The library's own word on the last Run or Connect.
  [[nodiscard]] CURLcode code() const { return code_; }
  // The request's time is up or it was interrupted: the page is to end with its own message.
  [[nodiscard]] bool interrupted() const { return interrupted_; }
  [[nodiscard]] long Number(CURLINFO info) const;
  [[nodiscard]] String Text(CURLINFO info) const;
  [[nodiscard]] const CurlLibrary& library() const { return library_; }

 private:
  using Clock = std::chrono::steady_clock;

  Transfer(Vexa& host, const CurlLibrary& library);
  void SetCommonOptions();
  [[nodiscard]] bool Drive();
  [[nodiscard]] bool Fail(String reason);
  [[nodiscard]] bool FailWithCode(CURLcode code);
  [[nodiscard]] String ReasonFor(CURLcode code) const;
  // Whether there is time left. False with reason().
  [[nodiscard]] bool CheckTime();
  [[nodiscard]] int MillisecondsToWait() const;
  [[nodiscard]] bool WaitForSocket(short events);
  void LeaveMulti();
  void HangUp(int how);

  // Lets the content work for the library; `failed` when it runs out of memory.
  template <typename Result, typename Work>
  [[nodiscard]] static Result Ask(void* self, Result failed, Work work) noexcept;

  // The library's callbacks.
  static curl_socket_t OpenSocket(void* self, curlsocktype purpose, curl_sockaddr* address);
  static int CloseSocket(void* self, curl_socket_t socket);
  static size_t TakeLine(char* bytes, size_t size, size_t count, void* self);
  static size_t TakeBody(char* bytes, size_t size, size_t count, void* self);
  static size_t GiveBody(char* bytes, size_t size, size_t count, void* self);
  static int GiveAgain(void* self, curl_off_t offset, int origin);
  static int Watch(CURL* easy, curl_infotype type, char* bytes, size_t size, void* self);
  static int TakeCount(void* self, curl_off_t total, curl_off_t received, curl_off_t, curl_off_t);

  Vexa& host_;
  const CurlLibrary& library_;
  CURL* easy_;
  CURLM* multi_;
  TransferContent* content_ = nullptr;
  ServerName server_;
  Encryption encryption_ = Encryption::None;
  bool keeps_out_ = false;
  int limit_seconds_ = 0;
  std::optional<Clock::time_point> deadline_;
  bool in_multi_ = false;
  bool ended_well_ = false;  // the last dialogue did, and may say good-bye
  bool reached_ = false;     // an address that may be called was tried in this run
  String refused_address_;   // the first that may not, in this run
  std::vector<curl_socket_t> sockets_;
  char error_text_[CURL_ERROR_SIZE] = "";
  String reason_;
  CURLcode code_ = CURLE_OK;
  bool interrupted_ = false;
  bool out_of_memory_ = false;  // in a callback; no exception may pass through the library
};

}  // namespace vexa

#endif  // VEXA_NET_TRANSFER_H_
