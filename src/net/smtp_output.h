// SMTPOutput: collects the text of a mail, up to the size that a mail may have.

#ifndef VEXA_NET_SMTP_OUTPUT_H_
#define VEXA_NET_SMTP_OUTPUT_H_

#include <cstddef>
#include <string_view>

#include "core/output.h"
#include "core/string.h"

namespace vexa {

class SMTPOutput final : public Output {
 public:
  // `buffer_size` and `limit` are bytes; a limit of 0 or less is none.
  SMTPOutput(int buffer_size, int limit) : Output(buffer_size), limit_(limit) {}
  ~SMTPOutput() override { Flush(); }

  // What was written and flushed; call Flush first. Not all of it, when too_large().
  [[nodiscard]] const String& text() const { return text_; }
  [[nodiscard]] bool too_large() const { return too_large_; }

 protected:
  int DoWrite(const char* text, int length) override {
    const auto size = static_cast<size_t>(length);
    too_large_ = too_large_ || (limit_ > 0 && text_.size() + size > static_cast<size_t>(limit_));
    if (!too_large_) text_.Append({text, size});
    return length;
  }

 private:
  int limit_;
  bool too_large_ = false;
  String text_;
};

}  // namespace vexa

#endif  // VEXA_NET_SMTP_OUTPUT_H_
