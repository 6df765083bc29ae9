// SmallArray: a growing array of plain elements, of which the first few live inside the object. For
// what is built for a moment and is nearly always small: no allocation, and no limit either.

#ifndef VEXA_CORE_SMALL_ARRAY_H_
#define VEXA_CORE_SMALL_ARRAY_H_

#include <cassert>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>
#include <type_traits>

namespace vexa {

template <typename T, size_t kInside>
class SmallArray {
 public:
  static_assert(std::is_trivially_copyable_v<T> && std::is_trivially_destructible_v<T>);

  SmallArray() = default;
  ~SmallArray() {
    if (elements_ != Inside()) std::free(elements_);
  }
  SmallArray(const SmallArray&) = delete;
  SmallArray& operator=(const SmallArray&) = delete;

  [[nodiscard]] size_t size() const { return size_; }
  [[nodiscard]] bool empty() const { return size_ == 0; }
  [[nodiscard]] T* begin() { return elements_; }
  [[nodiscard]] T* end() { return elements_ + size_; }
  [[nodiscard]] const T* begin() const { return elements_; }
  [[nodiscard]] const T* end() const { return elements_ + size_; }
  // REQUIRES: `i` is below size().
  [[nodiscard]] T& operator[](size_t i) {
    assert(i < size_);
    return elements_[i];
  }
  [[nodiscard]] const T& operator[](size_t i) const {
    assert(i < size_);
    return elements_[i];
  }
  // REQUIRES: it is not empty.
  [[nodiscard]] T& back() { return (*this)[size_ - 1]; }
  [[nodiscard]] const T& back() const { return (*this)[size_ - 1]; }

  // `element` may be one of the array.
  void push_back(const T& element) {
    const T copy = element;
    if (size_ == room_) Grow(size_ + 1);
    new (elements_ + size_++) T(copy);
  }
  // REQUIRES: it is not empty.
  void pop_back() {
    assert(size_ > 0);
    --size_;
  }
  void clear() { size_ = 0; }
  // Puts `count` elements that are not of this array behind the others.
  void Append(const T* elements, size_t count) {
    if (size_ + count > room_) Grow(size_ + count);
    if (count > 0) std::memcpy(static_cast<void*>(elements_ + size_), elements, count * sizeof(T));
    size_ += count;
  }
  // REQUIRES: `count` is at most size().
  void Truncate(size_t count) {
    assert(count <= size_);
    size_ = count;
  }

 private:
  [[nodiscard]] T* Inside() { return reinterpret_cast<T*>(inside_); }

  void Grow(size_t least) {
    const size_t room = least > room_ * 2 ? least : room_ * 2;
    auto* elements = static_cast<T*>(std::malloc(room * sizeof(T)));
    if (elements == nullptr) throw std::bad_alloc();
    std::memcpy(static_cast<void*>(elements), elements_, size_ * sizeof(T));
    if (elements_ != Inside()) std::free(elements_);
    elements_ = elements;
    room_ = room;
  }

  alignas(T) unsigned char inside_[kInside * sizeof(T)];
  T* elements_ = Inside();
  size_t size_ = 0;
  size_t room_ = kInside;
};

}  // namespace vexa

#endif  // VEXA_CORE_SMALL_ARRAY_H_
