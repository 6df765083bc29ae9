// StandardOutput: the response, written to file descriptor 1.

#ifndef VEXA_CGI_STANDARD_OUTPUT_H_
#define VEXA_CGI_STANDARD_OUTPUT_H_

#include <cstdint>

#include "core/output.h"

namespace vexa {

class StandardOutput final : public Output {
 public:
  // `size` is the buffer's size in bytes.
  explicit StandardOutput(int size) : Output(size) {}
  ~StandardOutput() override;
  // What has left the buffer and was taken by the server.
  [[nodiscard]] int64_t written_bytes() const { return written_bytes_; }
  // Whether a write failed, so that nobody reads on.
  [[nodiscard]] bool broken() const { return broken_; }

 protected:
  int DoWrite(const char* text, int length) override;

 private:
  int64_t written_bytes_ = 0;
  bool broken_ = false;  // the reader is gone; what is written from then on is dropped
};

}  // namespace vexa

#endif  // VEXA_CGI_STANDARD_OUTPUT_H_
