// Byte order: the one place where integers of table, memo and index files are put together and
// taken apart. All of them are unsigned and little-endian, whatever the machine.
//
// Nothing here checks bounds: callers have read the bytes they decode.

#ifndef VEXA_CORE_BYTE_ORDER_H_
#define VEXA_CORE_BYTE_ORDER_H_

#include <cstdint>

namespace vexa {

[[nodiscard]] inline uint8_t Get8(const char* from) { return static_cast<uint8_t>(*from); }
[[nodiscard]] inline uint16_t Get16(const char* from) {
  return static_cast<uint16_t>(Get8(from) | Get8(from + 1) << 8);
}
[[nodiscard]] inline uint32_t Get32(const char* from) {
  return static_cast<uint32_t>(Get16(from)) | static_cast<uint32_t>(Get16(from + 2)) << 16;
}
[[nodiscard]] inline uint64_t Get64(const char* from) {
  return static_cast<uint64_t>(Get32(from)) | static_cast<uint64_t>(Get32(from + 4)) << 32;
}

inline void Put8(char* to, uint8_t value) { *to = static_cast<char>(value); }
inline void Put16(char* to, uint16_t value) {
  Put8(to, static_cast<uint8_t>(value & 0xFF));
  Put8(to + 1, static_cast<uint8_t>(value >> 8));
}
inline void Put32(char* to, uint32_t value) {
  Put16(to, static_cast<uint16_t>(value & 0xFFFF));
  Put16(to + 2, static_cast<uint16_t>(value >> 16));
}
inline void Put64(char* to, uint64_t value) {
  Put32(to, static_cast<uint32_t>(value & 0xFFFFFFFF));
  Put32(to + 4, static_cast<uint32_t>(value >> 32));
}

}  // namespace vexa

#endif  // VEXA_CORE_BYTE_ORDER_H_
