// ResponseOutput: where a response leaves the process. In front of its first byte goes the head of
// the answer, which is written into the room before the buffer, so that both leave in one write.

#ifndef VEXA_REQUEST_RESPONSE_OUTPUT_H_
#define VEXA_REQUEST_RESPONSE_OUTPUT_H_

#include <cstdint>
#include <span>
#include <string_view>

#include "core/output.h"

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

// A derived class sends the bytes, counts what was taken, and notes when nobody takes more: what is
// written from then on is dropped.
class ResponseOutput : public Output {
 public:
  // `size` is the buffer's size in bytes, the head of an answer not counted.
  explicit ResponseOutput(int size) : Output(size, kRoom) {}
  // What was taken, the head included.
  [[nodiscard]] int64_t written_bytes() const { return written_bytes_; }
  // Whether a write failed, so that nobody reads on.
  [[nodiscard]] bool broken() const { return broken_; }

  // Flushes what is the last of the response.
  virtual void Finish() { Flush(); }

  // From now on what leaves the buffer goes to `gate`, which is borrowed; null: is sent.
  void SetGate(ResponseGate* gate) { gate_ = gate; }
  // Sends bytes that do not come from the buffer.
  void SendNow(std::string_view bytes) { (void)Send(bytes.data(), static_cast<int>(bytes.size())); }
  // Sends `text`, which is what is in the buffer, and directly before it the last `head` bytes of
  // the room.
  [[nodiscard]] int SendWithRoom(size_t head, std::string_view text) {
    const char* begin = Output::room().data() + kRoom - head;
    return Send(begin, static_cast<int>(head + text.size()));
  }
  [[nodiscard]] std::span<char> room() { return Output::room(); }
  // Waits at most `wait_ms` milliseconds (-1: without a limit) until kPiece bytes can be sent
  // without waiting. False when the time is over or a signal came.
  [[nodiscard]] virtual bool AwaitReader(int wait_ms) {
    (void)wait_ms;
    return true;
  }

 protected:
  // Sends `length` bytes. Returns their number, or a negative value on failure.
  virtual int Send(const char* text, int length) = 0;
  int DoWrite(const char* text, int length) final {
    if (gate_ == nullptr) return Send(text, length);
    return gate_->PassOn({text, static_cast<size_t>(length)});
  }

  int64_t written_bytes_ = 0;
  bool broken_ = false;

 private:
  static constexpr int kRoom = 512;  // more than the head of a page that asks for nothing

  ResponseGate* gate_ = nullptr;
};

}  // namespace vexa

#endif  // VEXA_REQUEST_RESPONSE_OUTPUT_H_
