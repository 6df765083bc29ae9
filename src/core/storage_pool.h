// StoragePool: storage of small objects that come and go with every block and call of a script.
// What is given back waits for the next object of its size.
//
// At most kMostKept pieces of a size wait, so that a deep recursion does not keep what it took.
// Tools that watch for uses of what was given back see every piece go where it came from.

#ifndef VEXA_CORE_STORAGE_POOL_H_
#define VEXA_CORE_STORAGE_POOL_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <new>

namespace vexa {

class StoragePool {
 public:
  // Storage for an object of `size` bytes.
  [[nodiscard]] void* Take(size_t size) {
    const size_t number = ClassOf(size);
    if (number >= kClasses) return ::operator new(size);
    Class& pieces = classes_[number];
    if (pieces.first == nullptr) return ::operator new(SizeOf(number));
    Piece* piece = pieces.first;
    pieces.first = piece->next;
    --pieces.count;
    return piece;
  }
  // Takes it back. REQUIRES: the size is the one it was taken for.
  void GiveBack(void* storage, size_t size) {
    const size_t number = ClassOf(size);
    if (number >= kClasses || classes_[number].count == kMostKept) {
      ::operator delete(storage);
      return;
    }
    Class& pieces = classes_[number];
    pieces.first = new (storage) Piece{pieces.first};
    ++pieces.count;
  }

 private:
  struct Piece {
    Piece* next;
  };
  struct Class {
    Piece* first;
    uint32_t count;
  };
  static constexpr size_t kStep = 32;
  static constexpr size_t kClasses = 16;
#ifdef __SANITIZE_ADDRESS__
  static constexpr uint32_t kMostKept = 0;
#else
  static constexpr uint32_t kMostKept = 64;
#endif

  static constexpr size_t ClassOf(size_t size) { return (size - 1) / kStep; }
  static constexpr size_t SizeOf(size_t number) { return (number + 1) * kStep; }

  std::array<Class, kClasses> classes_{};
};

// The pool of the process, which is single-threaded.
inline constinit StoragePool storage_pool;

}  // namespace vexa

#endif  // VEXA_CORE_STORAGE_POOL_H_
