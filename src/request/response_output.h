// ResponseOutput: where a response leaves the process. In front of its first byte goes the head of
// the answer, which is written into the room before the buffer, so that both leave in one write.

#ifndef VEXA_REQUEST_RESPONSE_OUTPUT_H_
#define VEXA_REQUEST_RESPONSE_OUTPUT_H_

#include <cstdint>
#include <span>
#include <string_view>

#include "core/output.h"
#include "vexa.h"

namespace vexa {

// Who decides over what is about to leave.
class ResponseGate {
 public:
  // `text` is the page's; nothing of it has left yet that this did not see. Returns as
  // ResponseOutput::Send does.
  [[nodiscard]] virtual int PassOn(std::string_view text) = 0;

 protected:
  ~ResponseGate() = default;
};

// Text is sent as fast as the reader takes it. While that means waiting, the time limit and the
// signals that end a page are looked at: the reader of one that is to end is given up, like one who
// has gone, and what is written from then on is dropped. What a page says after its time was over
// (that it was, mostly) has a moment more.
class ResponseOutput : public Output {
 public:
  // `size` is the buffer's size in bytes, the head of an answer not counted.
  explicit ResponseOutput(int size) : Output(size, kRoom) {}
  // What was taken, the head included.
  [[nodiscard]] int64_t written_bytes() const { return written_bytes_; }
  // Whether the reader has gone or was given up.
  [[nodiscard]] bool broken() const { return broken_; }

  // Flushes what is the last of the response.
  virtual void Finish() { Flush(); }
  // Nothing follows, and all that the request had to do is done; the exit status of the program
  // `vexa` would be `status`.
  virtual void End(int status) { (void)status; }

  // The request whose time limit counts; borrowed. Null: from now on nothing is waited for.
  void SetHost(Vexa* host) { host_ = host; }
  // From now on what leaves the buffer goes to `gate`, which is borrowed; null: is sent.
  void SetGate(ResponseGate* gate) { gate_ = gate; }
  // Sends bytes that do not come from the buffer.
  void SendNow(std::string_view bytes) { (void)Send(bytes); }
  // Sends `text`, which is what is in the buffer, and directly before it the last `head` bytes of
  // the room.
  [[nodiscard]] int SendWithRoom(size_t head, std::string_view text) {
    const char* begin = Output::room().data() + kRoom - head;
    return Send({begin, head + text.size()});
  }
  [[nodiscard]] std::span<char> room() { return Output::room(); }

 protected:
  // Sends `bytes`, waiting for the reader. Returns their number, or -1 when nobody reads on.
  virtual int Send(std::string_view bytes);
  // Sends as much of `bytes` as can be sent at once, waiting at most `wait_ms` milliseconds until
  // that is something. Returns how many were taken; 0 when the wait was over or a signal came; -1
  // when nobody reads on.
  [[nodiscard]] virtual int SendSome(std::string_view bytes, int wait_ms) = 0;
  // Whether a page whose reader takes nothing is to end, whatever its own time.
  [[nodiscard]] virtual bool hurried() const { return false; }

  int DoWrite(const char* text, int length) final {
    const std::string_view bytes(text, static_cast<size_t>(length));
    return gate_ == nullptr ? Send(bytes) : gate_->PassOn(bytes);
  }

  int64_t written_bytes_ = 0;
  bool broken_ = false;

 private:
  static constexpr int kRoom = 512;  // more than the head of a page that asks for nothing

  [[nodiscard]] int SendWhenRead(std::string_view bytes);

  Vexa* host_ = nullptr;
  ResponseGate* gate_ = nullptr;
  int64_t last_moment_ = 0;  // when waiting after the end of the time is over; 0: it was not begun
};

}  // namespace vexa

#endif  // VEXA_REQUEST_RESPONSE_OUTPUT_H_
