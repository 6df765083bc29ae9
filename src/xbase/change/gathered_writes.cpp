// Pieces in memory; see gathered_writes.h.

#include "xbase/change/gathered_writes.h"

#include <cassert>
#include <cstring>

#include "core/file_access.h"

namespace vexa {

bool GatheredWrites::Read(File& file, int64_t offset, char* buffer, int count, String& reason) {
  const auto size = static_cast<size_t>(count);
  const auto place = places_.find({&file, offset});
  if (place != places_.end()) {
    const Piece& piece = pieces_[place->second];
    assert(piece.bytes.size() == size);
    std::memcpy(buffer, piece.bytes.data(), size);
    return true;
  }
  if (!ReadExactly(file, offset, buffer, count, reason)) return false;
  if (pieces_.size() >= kMostPieces) return true;
  places_[{&file, offset}] = pieces_.size();
  const std::string bytes(buffer, size);
  pieces_.push_back({&file, offset, bytes, bytes, false});
  return true;
}

void GatheredWrites::Write(File& file, int64_t offset, std::string_view bytes,
                           std::string_view former) {
  const auto [place, is_new] = places_.insert({{&file, offset}, pieces_.size()});
  if (is_new) pieces_.push_back({&file, offset, std::string(former), {}, false});
  Piece& piece = pieces_[place->second];
  assert(piece.bytes.empty() || piece.bytes.size() == bytes.size());
  piece.bytes = bytes;
  piece.changed = piece.bytes != piece.former;
}

}  // namespace vexa
