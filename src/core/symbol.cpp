// The table of all symbols: open addressing over entries that never move.
//
// Entries and their texts are cut from blocks that are never given back. A name is folded and
// hashed eight bytes at a time into a buffer padded with zeros, and compared in that form, so that
// looking a name up takes a handful of steps for each eight bytes of it.

#include "core/symbol.h"

#include <sys/auxv.h>

#include <algorithm>
#include <array>
#include <cassert>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>
#include <vector>

#include "core/text.h"

namespace vexa {

namespace {

constexpr size_t kFirstSlots = 256;
constexpr size_t kBlockBytes = 8192;

uint64_t Mixed(uint64_t a, uint64_t b) {
  __extension__ using Wide = unsigned __int128;
  const Wide product = static_cast<Wide>(a) * b;
  return static_cast<uint64_t>(product) ^ static_cast<uint64_t>(product >> 64);
}

// Sixteen random bytes that the kernel gives to every process.
std::array<uint64_t, 2> DrawSeeds() {
  std::array<uint64_t, 2> seeds = {0x9E3779B97F4A7C15, 0xD6E8FEB86659FD93};
  if (const auto* drawn = reinterpret_cast<const char*>(getauxval(AT_RANDOM))) {
    std::memcpy(seeds.data(), drawn, sizeof seeds);
  }
  for (uint64_t& seed : seeds) seed |= 1;
  return seeds;
}

// A name folded, in words, with its hash.
class FoldedName {
 public:
  FoldedName(std::string_view name, const std::array<uint64_t, 2>& seeds) {
    const size_t count = (name.size() + 7) / 8;
    if (count > few_.size()) many_.resize(count);
    words_ = many_.empty() ? few_.data() : many_.data();
    hash_ = seeds[0] ^ name.size();
    for (size_t i = 0; i < count; ++i) {
      words_[i] = UpperWord(LoadWord(name.data() + i * 8, name.size() - i * 8));
      hash_ = Mixed(hash_ ^ words_[i], seeds[1]);
    }
  }
  FoldedName(const FoldedName&) = delete;
  FoldedName& operator=(const FoldedName&) = delete;
  [[nodiscard]] const uint64_t* words() const { return words_; }
  [[nodiscard]] uint64_t hash() const { return hash_; }

 private:
  std::array<uint64_t, 8> few_;
  std::vector<uint64_t> many_;
  uint64_t* words_;
  uint64_t hash_;
};

}  // namespace

class SymbolTable {
 public:
  using Entry = Symbol::Entry;

  // The entry of `name`; when it is missing a new one, or null.
  Entry* Look(std::string_view name, Symbol::Missing missing) {
    if (slots_ == nullptr) Begin();
    const FoldedName folded(name, seeds_);
    size_t slot = folded.hash() & mask_;
    for (; slots_[slot] != nullptr; slot = (slot + 1) & mask_) {
      Entry* entry = slots_[slot];
      if (entry->hash == folded.hash() && entry->length == name.size() &&
          std::memcmp(entry->text, folded.words(), name.size()) == 0) {
        return entry;
      }
    }
    if (missing == Symbol::Missing::LeaveOut) return nullptr;
    if (count_ + count_ / 2 >= mask_) {
      Grow();
      for (slot = folded.hash() & mask_; slots_[slot] != nullptr;) slot = (slot + 1) & mask_;
    }
    return slots_[slot] = Make(name, folded);
  }

  [[nodiscard]] size_t taken_bytes() const { return taken_ - left_ + mask_ * sizeof(Entry*); }

 private:
  void Begin() {
    seeds_ = DrawSeeds();
    slots_ = NewSlots(kFirstSlots);
    mask_ = kFirstSlots - 1;
  }

  static Entry** NewSlots(size_t count) {
    auto* slots = static_cast<Entry**>(std::calloc(count, sizeof(Entry*)));
    if (slots == nullptr) throw std::bad_alloc();
    return slots;
  }

  void Grow() {
    const size_t mask = mask_ * 2 + 1;
    Entry** slots = NewSlots(mask + 1);
    for (size_t i = 0; i <= mask_; ++i) {
      if (slots_[i] == nullptr) continue;
      size_t slot = slots_[i]->hash & mask;
      while (slots[slot] != nullptr) slot = (slot + 1) & mask;
      slots[slot] = slots_[i];
    }
    std::free(slots_);
    slots_ = slots;
    mask_ = mask;
  }

  Entry* Make(std::string_view name, const FoldedName& folded) {
    const size_t text_bytes = (name.size() + 7) / 8 * 8;
    char* place = Cut(sizeof(Entry) + text_bytes);
    char* text = place + sizeof(Entry);
    if (text_bytes > 0) std::memcpy(text, folded.words(), text_bytes);
    return new (place)
        Entry{folded.hash(), text, static_cast<uint32_t>(name.size()), count_++, ScopeKinds{0}};
  }

  // `bytes` bytes, a multiple of eight, of a block.
  char* Cut(size_t bytes) {
    assert(bytes % alignof(Entry) == 0);
    if (bytes > left_) {
      taken_ += std::max(bytes, kBlockBytes) - left_;
      left_ = std::max(bytes, kBlockBytes);
      next_ = static_cast<char*>(std::malloc(left_));
      if (next_ == nullptr) {
        left_ = 0;
        throw std::bad_alloc();
      }
    }
    left_ -= bytes;
    return std::exchange(next_, next_ + bytes);
  }

  // Everything is zero at first, so that nothing is done before the first name.
  Entry** slots_ = nullptr;
  size_t mask_ = 0;
  uint32_t count_ = 0;
  std::array<uint64_t, 2> seeds_{};
  char* next_ = nullptr;
  size_t left_ = 0;
  size_t taken_ = 0;  // of all blocks, what was left in each aside
};

namespace {
constinit SymbolTable symbols;
}  // namespace

size_t Symbol::TakenBytes() { return symbols.taken_bytes(); }

Symbol::Entry* Symbol::Look(std::string_view name, Missing missing) {
  return symbols.Look(name, missing);
}

}  // namespace vexa
