// StandardOutput: the response, written to file descriptor 1.

#ifndef VEXA_CGI_STANDARD_OUTPUT_H_
#define VEXA_CGI_STANDARD_OUTPUT_H_

#include "core/output.h"

class StandardOutput final : public Output {
 public:
  // `size` is the buffer's size in bytes.
  explicit StandardOutput(int size) : Output(size) {}
  ~StandardOutput() override;

 protected:
  int DoWrite(const char* text, int length) override;

 private:
  bool broken_ = false;  // the reader is gone; what is written from then on is dropped
};

#endif  // VEXA_CGI_STANDARD_OUTPUT_H_
