// String: the text value that every variable, attribute and expression result is.
//
// A String owns a sequence of bytes of any value, NUL included, followed by a terminating NUL that
// does not count. Texts of up to 23 bytes live inside the object; longer ones on the heap. Whenever
// storage is allocated for a text of length L, the capacity is the smallest multiple of 24 that is
// at least L + 1, so capacity() is 24 exactly for the texts that live inside.
//
// A large text that nobody changes may be shared: Share() makes it so, and copies of it have the
// same storage from then on, until one of them is changed, which gets storage of its own.
//
// Positions are 0-based byte offsets. A position out of range gives an empty result, never an
// error. White space is space, tab, CR and LF. Letter case is that of ASCII whatever the locale.
// A text cannot grow past kLongestText bytes: growing further throws std::bad_alloc, which main
// turns into a clean error page.

#ifndef VEXA_CORE_STRING_H_
#define VEXA_CORE_STRING_H_

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <span>
#include <string_view>

namespace vexa {

class String {
 public:
  static constexpr size_t kCapacityStep = 24;
  static constexpr size_t kLongestText = 0x7FFFFF00;

  String() { SetInside(0); }
  // Copies `length` bytes of `text`, or up to its terminator when `length` is -1. A null `text`
  // gives an empty String.
  String(const char* text, int length = -1);
  String(std::string_view text);  // Implicit on purpose: views are how texts are passed around.
  String(const String& other)
      : storage_(other.storage_), length_(other.length_), capacity_(other.capacity_) {
    if (!inside()) CopyStorage(other);
  }
  String(String&& other) noexcept
      : storage_(other.storage_), length_(other.length_), capacity_(other.capacity_) {
    other.SetInside(0);
  }
  ~String() {
    if (!inside()) Release();
  }
  String& operator=(const String& other) {
    if (inside() && other.inside()) {
      storage_ = other.storage_;
      length_ = other.length_;
    } else if (other.shared()) [[unlikely]] {
      *this = String(other);
    } else if (this != &other) {
      assign(other.view());
    }
    return *this;
  }
  String& operator=(String&& other) noexcept {
    if (this == &other) return *this;
    if (!inside()) Release();
    storage_ = other.storage_;
    length_ = other.length_;
    capacity_ = other.capacity_;
    other.SetInside(0);
    return *this;
  }
  String& operator=(std::string_view text);
  String& operator=(const char* text);

  // The text made of all `pieces` in order, with one allocation.
  [[nodiscard]] static String Concat(std::initializer_list<std::string_view> pieces);

  // The bytes, followed by a NUL. Valid until the String is changed or destroyed.
  [[nodiscard]] const char* data() const {
    return inside() ? storage_.local : storage_.outside.heap;
  }
  // The same bytes, to be changed in place.
  [[nodiscard]] char* MutableBytes() { return mutable_data(); }
  [[nodiscard]] const char* c_str() const { return data(); }
  [[nodiscard]] int length() const { return static_cast<int>(length_); }
  [[nodiscard]] size_t size() const { return length_; }
  [[nodiscard]] bool empty() const { return length_ == 0; }
  [[nodiscard]] int capacity() const {
    return static_cast<int>(shared() ? storage_.outside.share->capacity : capacity_);
  }
  // The bytes of storage outside the object.
  [[nodiscard]] size_t storage_bytes() const { return inside() ? 0 : capacity_; }
  [[nodiscard]] std::string_view view() const { return {data(), length_}; }
  operator std::string_view() const { return view(); }
  // The byte at `i`; 0 when `i` is out of range.
  char operator[](int i) const {
    return i >= 0 && static_cast<size_t>(i) < length_ ? data()[i] : '\0';
  }

  // Assignment and growth. The argument may be a part of this text.
  void assign(const char* text, int length = -1);
  void assign(std::string_view text);
  void assign(char c);
  // Assigns `length` bytes, fewer than kCapacityStep, to a text without storage outside the object.
  // REQUIRES: kCapacityStep bytes can be read at `text`, which is no part of this one.
  void AssignShort(const char* text, size_t length) {
    assert(inside() && length < kCapacityStep);
    std::memcpy(storage_.local, text, kCapacityStep);
    SetInside(static_cast<uint32_t>(length));
  }
  void cat(const char* text, int length = -1);
  void cat(std::string_view text);
  void cat(char c) {
    if (length_ + 1 < capacity_) {
      char* bytes = own_data();
      bytes[length_++] = c;
      bytes[length_] = '\0';
    } else {
      cat(std::string_view(&c, 1));
    }
  }
  // Appends to a text that grows byte by byte to any length: the room doubles when it is used up.
  void Accumulate(char c) {
    if (length_ + 1 >= capacity_) Reserve(length_ + 1);
    cat(c);
  }
  void prepend(std::string_view text);
  void prepend(char c) { prepend(std::string_view(&c, 1)); }
  void clear();
  // Makes it the empty text and gives up storage outside the object.
  void ReleaseStorage() {
    if (inside()) return;
    Release();
    SetInside(0);
  }
  // Makes it the empty text, as a new one is.
  void Reset() {
    if (!inside()) Release();
    SetInside(0);
  }
  // Makes room for a text of `length` bytes, so that appending up to it allocates nothing. For
  // accumulators that grow without bound: at least doubles the room when it has to grow, but not
  // beyond `most` bytes where `length` is less.
  void Reserve(size_t length, size_t most = kLongestText);
  // Gives up room that the text does not need.
  void Fit();
  // Lets copies that are made from here on share the storage. Nothing happens to a short text.
  void Share();
  // Appends to a text that grows piece by piece: the room doubles when it is used up.
  void Append(std::string_view text) {
    Reserve(size() + text.size());
    cat(text);
  }
  // Cuts the text to its first `length` bytes; does nothing when it is shorter.
  void Truncate(size_t length);
  // `length` bytes of writable storage for a reader to fill; they become the text. Their former
  // content is unspecified.
  [[nodiscard]] char* Overwrite(size_t length);

  // Parts, each a new String.
  [[nodiscard]] String before(int i) const;  // the first i bytes
  [[nodiscard]] String before(std::string_view s) const;
  [[nodiscard]] String after(int i) const;  // what follows the byte at i
  [[nodiscard]] String after(std::string_view s, int from = 0) const;
  [[nodiscard]] String from(int i) const;
  [[nodiscard]] String from(std::string_view s, int from) const;
  [[nodiscard]] String at(int start, int end) const;  // [start, end)
  [[nodiscard]] String upper() const;
  [[nodiscard]] String lower() const;
  [[nodiscard]] String padl(int width, char c) const;
  [[nodiscard]] String padr(int width, char c) const;

  // Searching. An empty `s` occurs nowhere.
  [[nodiscard]] int search(std::string_view s, int from = 0) const;  // -1: not found
  [[nodiscard]] int index(std::string_view s) const { return search(s, 0); }
  [[nodiscard]] bool contains(std::string_view s, int from = 0) const {
    return search(s, from) >= 0;
  }
  [[nodiscard]] bool contains(char c, int from = 0) const;
  [[nodiscard]] int freq(std::string_view s) const;  // overlapping occurrences count
  [[nodiscard]] bool matches(char c, int i) const;
  // Whether the whole rest of the text from position i is `s`, letter case ignored.
  [[nodiscard]] bool matches(std::string_view s, int i) const;

  // In-place changes.
  void upcase();
  void lowcase();
  void StripWhitespace();
  void ltrim();
  void CompressWhitespace();  // every run of white space becomes its first byte
  void gsub(std::string_view pattern, std::string_view replacement);

  friend bool operator==(const String& a, const String& b) { return a.view() == b.view(); }
  friend bool operator==(const String& a, std::string_view b) { return a.view() == b; }
  friend bool operator==(const String& a, const char* b) { return a.view() == b; }

 private:
  // What the texts that share storage know of it.
  struct SharedStorage {
    size_t owners;
    uint32_t capacity;
  };
  // The capacity of a text whose storage is shared: no room for anything.
  static constexpr uint32_t kShared = 0;

  [[nodiscard]] bool shared() const { return capacity_ == kShared; }
  [[nodiscard]] bool inside() const { return capacity_ == kCapacityStep; }
  // REQUIRES: !shared().
  [[nodiscard]] char* own_data() { return inside() ? storage_.local : storage_.outside.heap; }
  [[nodiscard]] char* mutable_data() {
    if (shared()) Own();
    return own_data();
  }
  void SetInside(uint32_t length) {
    capacity_ = kCapacityStep;
    length_ = length;
    storage_.local[length] = '\0';
  }
  // REQUIRES: !inside(); the members are then to be set.
  void Release() {
    if (shared()) [[unlikely]]
      return LeaveShared();
    std::free(storage_.outside.heap);
  }
  void LeaveShared();
  // Gives a text that shares its storage one of its own.
  void Own();
  void CopyStorage(const String& other);
  void Grow(size_t capacity);
  void SetLength(size_t length);

  union {
    char local[kCapacityStep];
    struct {
      char* heap;
      SharedStorage* share;  // while the storage is shared
    } outside;
  } storage_;
  uint32_t length_;
  uint32_t capacity_;
};

[[nodiscard]] inline String operator+(std::string_view a, const String& b) {
  return String::Concat({a, b.view()});
}
[[nodiscard]] inline String operator+(const String& a, std::string_view b) {
  return String::Concat({a.view(), b});
}
[[nodiscard]] inline String operator+(const String& a, const String& b) {
  return String::Concat({a.view(), b.view()});
}
[[nodiscard]] inline String operator+(const char* a, const String& b) {
  return String::Concat({a, b.view()});
}
[[nodiscard]] inline String operator+(const String& a, const char* b) {
  return String::Concat({a.view(), b});
}

// Splits `text` at every `separator` into at most `max` pieces. Empty pieces between separators
// count, an empty one at the end does not; what is left when `max` pieces are stored is dropped.
// An empty separator gives the whole text as one piece. Returns the number of pieces stored.
// REQUIRES: `pieces` has room for `max` Strings.
int split(const String& text, String* pieces, int max, const String& separator);

// Steps through the pieces that `split` would give, without copying:
//   for (PieceReader pieces(list, ","); pieces.Next(); ) use(pieces.piece());
class PieceReader {
 public:
  // Both texts are borrowed and must outlive the reader.
  PieceReader(std::string_view text, std::string_view separator)
      : rest_(text), separator_(separator) {}
  // Moves to the next piece; false when there is none.
  bool Next();
  [[nodiscard]] std::string_view piece() const { return piece_; }

 private:
  std::string_view rest_;
  std::string_view separator_;
  std::string_view piece_;
  bool done_ = false;
};

}  // namespace vexa

#endif  // VEXA_CORE_STRING_H_
