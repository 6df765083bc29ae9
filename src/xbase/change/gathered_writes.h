// GatheredWrites: what a change is going to write, before a byte of it is written. Its own reads go
// through here and find what was gathered; pages that were read once are not read again.
//
// Bytes are kept in pieces, each known by its file and offset. Pieces do not overlap: whoever
// gathers uses one offset and length for a place (a page of an index, the bytes of a record).

#ifndef VEXA_XBASE_CHANGE_GATHERED_WRITES_H_
#define VEXA_XBASE_CHANGE_GATHERED_WRITES_H_

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "core/file.h"

namespace vexa {

class GatheredWrites {
 public:
  struct Piece {
    File* file;  // borrowed
    int64_t offset;
    std::string_view former;  // what stands there; empty when nothing of it counts
    std::string_view bytes;   // what will stand there
    bool changed = false;
    // From the first byte that becomes different to behind the last one.
    size_t begin = 0;
    size_t end = 0;

    [[nodiscard]] int64_t changed_offset() const { return offset + static_cast<int64_t>(begin); }
    [[nodiscard]] std::string_view changed_bytes() const {
      return bytes.substr(begin, end - begin);
    }
    void Compare();
  };

  // Reads `count` bytes at `offset` as they will be. False with the cause in `reason`.
  [[nodiscard]] bool Read(File& file, int64_t offset, char* buffer, int count, String& reason);
  // Whether what stands at that place is known here.
  [[nodiscard]] bool Knows(const File& file, int64_t offset) const {
    return Find(file, offset) != kNone;
  }
  // Gathers a write. What stands there is what was read here before, or else what `former` says.
  void Write(File& file, int64_t offset, std::string_view bytes, std::string_view former = {});

  // In the order in which they were first read or written. Their bytes live as long as this.
  [[nodiscard]] const std::vector<Piece>& pieces() const { return pieces_; }

 private:
  static constexpr size_t kNone = SIZE_MAX;

  // A damaged tree may make a change read a whole file: no more pages than these are kept.
  static constexpr size_t kMostPieces = 4096;

  // The number of the piece at that place. They are few, and those found last are asked for first.
  [[nodiscard]] size_t Find(const File& file, int64_t offset) const;
  // Makes a piece of bytes that Keep gave.
  Piece& Add(File& file, int64_t offset, std::string_view former, std::string_view bytes);
  // A copy that lives as long as this.
  [[nodiscard]] std::string_view Keep(std::string_view bytes);

  struct Place {
    const File* file;
    int64_t offset;
  };
  std::vector<Piece> pieces_;
  std::vector<Place> places_;  // of the pieces
  std::vector<std::unique_ptr<char[]>> chunks_;
  size_t size_ = 0;  // of the last chunk
  size_t left_ = 0;  // at its end
};

}  // namespace vexa

#endif  // VEXA_XBASE_CHANGE_GATHERED_WRITES_H_
