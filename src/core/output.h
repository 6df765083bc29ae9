// Output: a buffered sink for bytes. Concrete outputs say in DoWrite where the bytes go and flush
// in their own destructors (the base destructor cannot call DoWrite any more).

#ifndef VEXA_CORE_OUTPUT_H_
#define VEXA_CORE_OUTPUT_H_

#include <cstring>
#include <memory>
#include <span>
#include <string_view>

#include "core/string.h"

namespace vexa {

class Output {
 public:
  // `size` is the buffer's size in bytes; less than 1 counts as 1. In front of the buffer there are
  // `room` bytes more, for derived classes.
  explicit Output(int size, int room = 0);
  virtual ~Output() = default;
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  // Appends `length` bytes (up to the terminator when -1), handing full buffers to DoWrite.
  // Returns the length. What DoWrite returns is not looked at.
  int Write(const char* text, int length = -1);
  void Write(std::string_view text) {
    if (text.size() <= static_cast<size_t>(size_ - used_)) {
      std::memcpy(buffer_ + used_, text.data(), text.size());
      used_ += static_cast<int>(text.size());
    } else {
      WriteThrough(text);
    }
  }
  // Hands what is held to DoWrite, also when that is nothing. Returns what DoWrite returned.
  int Flush();
  // Flushes, then uses a buffer of `size` bytes.
  void Resize(int size);
  // What is held, for who must send it when nothing else works any more. Valid until the next
  // operation.
  [[nodiscard]] std::string_view held() const { return {buffer_, static_cast<size_t>(used_)}; }
  // For who must send bytes past the buffer, when nothing else works any more: the descriptor that
  // they go to, and what stands there in front of `length` bytes, at most kPiece; of 0: behind all.
  // Frame writes that to `frame`, of kLongestFrame bytes, and returns its length. It uses no heap.
  [[nodiscard]] virtual int descriptor() const { return kStandardOutput; }
  [[nodiscard]] virtual size_t Frame(size_t length, char* frame);
  static constexpr size_t kPiece =
      4096;  // what a pipe takes without waiting once it can be written to
  static constexpr size_t kLongestFrame = 32;
  // Whether the last thing written was white space. Kept by the script executor; 0 at first.
  int& inwhitespace() { return inwhitespace_; }

 protected:
  // Takes `length` bytes. Returns their number, or a negative value on failure.
  virtual int DoWrite(const char* text, int length) = 0;
  // The bytes in front of the buffer: what is put at their end stands directly before the text that
  // DoWrite is given.
  [[nodiscard]] std::span<char> room() { return {storage_.get(), static_cast<size_t>(room_)}; }

 private:
  static constexpr int kStandardOutput = 1;

  void WriteThrough(std::string_view text);
  void Allocate(int size);

  int size_ = 0;
  int used_ = 0;
  int inwhitespace_ = 0;
  int room_;
  char* buffer_ = nullptr;  // in storage_
  std::unique_ptr<char[]> storage_;
};

// Collects everything in a String.
class StringOutput final : public Output {
 public:
  explicit StringOutput(int size = 512);
  ~StringOutput() override;
  // All that was written so far and flushed; call Flush first.
  [[nodiscard]] const String& data() const { return data_; }

 protected:
  int DoWrite(const char* text, int length) override;

 private:
  String data_;
};

}  // namespace vexa

#endif  // VEXA_CORE_OUTPUT_H_
