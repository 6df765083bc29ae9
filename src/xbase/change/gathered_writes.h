// GatheredWrites: what a change is going to write, before a byte of it is written. Its own reads go
// through here and find what was gathered; pages that were read once are not read again.
//
// Bytes are kept in pieces, each known by its file and offset. Pieces do not overlap: whoever
// gathers uses one offset and length for a place (a page of an index, the bytes of a record).

#ifndef VEXA_XBASE_CHANGE_GATHERED_WRITES_H_
#define VEXA_XBASE_CHANGE_GATHERED_WRITES_H_

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/file.h"

namespace vexa {

class GatheredWrites {
 public:
  struct Piece {
    File* file;  // borrowed
    int64_t offset;
    std::string former;  // what stands there; empty when nothing of it counts
    std::string bytes;   // what will stand there
    bool changed;
  };

  // Reads `count` bytes at `offset` as they will be. False with the cause in `reason`.
  [[nodiscard]] bool Read(File& file, int64_t offset, char* buffer, int count, String& reason);
  // Whether what stands at that place is known here.
  [[nodiscard]] bool Knows(const File& file, int64_t offset) const {
    return places_.count({&file, offset}) != 0;
  }
  // Gathers a write. What stands there is what was read here before, or else what `former` says.
  void Write(File& file, int64_t offset, std::string_view bytes, std::string_view former = {});

  // In the order in which they were first read or written.
  [[nodiscard]] const std::vector<Piece>& pieces() const { return pieces_; }

 private:
  // A damaged tree may make a change read a whole file: no more pages than these are kept.
  static constexpr size_t kMostPieces = 4096;

  std::vector<Piece> pieces_;
  std::map<std::pair<const File*, int64_t>, size_t> places_;
};

}  // namespace vexa

#endif  // VEXA_XBASE_CHANGE_GATHERED_WRITES_H_
