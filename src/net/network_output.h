// NetworkOutput: writes the commands of a dialogue to its connection.

#ifndef VEXA_NET_NETWORK_OUTPUT_H_
#define VEXA_NET_NETWORK_OUTPUT_H_

#include <cstddef>

#include "core/output.h"
#include "net/transfer.h"

namespace vexa {

class NetworkOutput final : public Output {
 public:
  // `transfer` is borrowed; it is connected before the first Flush.
  explicit NetworkOutput(Transfer& transfer) : Output(kBufferSize), transfer_(transfer) {}

 protected:
  int DoWrite(const char* text, int length) override {
    return transfer_.Send({text, static_cast<size_t>(length)}) ? length : -1;
  }

 private:
  static constexpr int kBufferSize = 8192;

  Transfer& transfer_;
};

}  // namespace vexa

#endif  // VEXA_NET_NETWORK_OUTPUT_H_
