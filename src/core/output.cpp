// Output and StringOutput.

#include "core/output.h"

#include <algorithm>

namespace vexa {

namespace {
int Usable(int size) { return size < 1 ? 1 : size; }
}  // namespace

Output::Output(int size, int room) : room_(room) { Allocate(Usable(size)); }

// When there is no memory for it, the former buffer still serves.
void Output::Allocate(int size) {
  const size_t bytes = static_cast<size_t>(room_) + static_cast<size_t>(size);
  storage_ = std::make_unique_for_overwrite<char[]>(bytes);
  buffer_ = storage_.get() + room_;
  size_ = size;
}

int Output::Write(const char* text, int length) {
  std::string_view bytes =
      length < 0 ? std::string_view(text) : std::string_view(text, static_cast<size_t>(length));
  Write(bytes);
  return static_cast<int>(bytes.size());
}

// A text that fits the buffer waits there whole; a longer one goes through in full buffers.
void Output::WriteThrough(std::string_view text) {
  if (text.size() <= static_cast<size_t>(size_)) {
    Flush();
    std::memcpy(buffer_, text.data(), text.size());
    used_ = static_cast<int>(text.size());
    return;
  }
  while (!text.empty()) {
    size_t part = std::min(text.size(), static_cast<size_t>(size_ - used_));
    std::memcpy(buffer_ + used_, text.data(), part);
    used_ += static_cast<int>(part);
    text.remove_prefix(part);
    if (used_ == size_) Flush();
  }
}

int Output::Flush() {
  int held = used_;
  used_ = 0;  // First, so that an error shown while writing cannot write the same bytes again.
  return DoWrite(buffer_, held);
}

size_t Output::Frame(size_t, char*) { return 0; }

void Output::Resize(int size) {
  if (Usable(size) == size_) return;
  Flush();
  Allocate(Usable(size));
}

StringOutput::StringOutput(int size) : Output(size) {}

StringOutput::~StringOutput() { Flush(); }

int StringOutput::DoWrite(const char* text, int length) {
  data_.Reserve(data_.size() + static_cast<size_t>(length));
  data_.cat(text, length);
  return length;
}

}  // namespace vexa
