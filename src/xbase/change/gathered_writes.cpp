// Pieces in memory; see gathered_writes.h.

#include "xbase/change/gathered_writes.h"

#include <algorithm>
#include <cassert>
#include <cstring>

#include "core/file_access.h"

namespace vexa {

void GatheredWrites::Piece::Compare() {
  begin = 0;
  end = bytes.size();
  if (former.size() == bytes.size()) {
    constexpr size_t kWord = 8;
    const auto same = [&](size_t at, size_t size) {
      return std::memcmp(bytes.data() + at, former.data() + at, size) == 0;
    };
    while (begin + kWord <= end && same(begin, kWord)) begin += kWord;
    while (begin < end && same(begin, 1)) ++begin;
    while (begin + kWord <= end && same(end - kWord, kWord)) end -= kWord;
    while (begin < end && same(end - 1, 1)) --end;
  }
  changed = begin < end;
}

size_t GatheredWrites::Find(const File& file, int64_t offset) const {
  for (size_t i = places_.size(); i-- > 0;) {
    if (places_[i].offset == offset && places_[i].file == &file) return i;
  }
  return kNone;
}

GatheredWrites::Piece& GatheredWrites::Add(File& file, int64_t offset, std::string_view former,
                                           std::string_view bytes) {
  constexpr size_t kUsually = 16;
  if (pieces_.empty()) {
    pieces_.reserve(kUsually);
    places_.reserve(kUsually);
  }
  places_.push_back({&file, offset});
  return pieces_.emplace_back(Piece{&file, offset, former, bytes});
}

std::string_view GatheredWrites::Keep(std::string_view bytes) {
  constexpr size_t kChunk = 16384;
  if (bytes.empty()) return {};
  if (bytes.size() > left_) {
    size_ = left_ = std::max(kChunk, bytes.size());
    chunks_.push_back(std::make_unique_for_overwrite<char[]>(size_));
  }
  char* const copy = chunks_.back().get() + (size_ - left_);
  std::memcpy(copy, bytes.data(), bytes.size());
  left_ -= bytes.size();
  return {copy, bytes.size()};
}

bool GatheredWrites::Read(File& file, int64_t offset, char* buffer, int count, String& reason) {
  const auto size = static_cast<size_t>(count);
  const size_t place = Find(file, offset);
  if (place != kNone) {
    const Piece& piece = pieces_[place];
    assert(piece.bytes.size() == size);
    std::memcpy(buffer, piece.bytes.data(), size);
    return true;
  }
  if (!ReadExactly(file, offset, buffer, count, reason)) return false;
  if (pieces_.size() >= kMostPieces) return true;
  const std::string_view bytes = Keep({buffer, size});
  Add(file, offset, bytes, bytes);
  return true;
}

void GatheredWrites::Write(File& file, int64_t offset, std::string_view bytes,
                           std::string_view former) {
  const size_t place = Find(file, offset);
  Piece& piece = place == kNone ? Add(file, offset, Keep(former), {}) : pieces_[place];
  assert(piece.bytes.empty() || piece.bytes.size() == bytes.size());
  piece.bytes = Keep(bytes);
  piece.Compare();
}

}  // namespace vexa
