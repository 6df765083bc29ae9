// String and split: storage first, then parts, searches and in-place changes.
//
// The invariants of storage: capacity_ is a multiple of kCapacityStep above length_; it is
// kCapacityStep exactly when the text lives inside the object, and 0 while its storage is shared,
// which then nobody changes; the byte at length_ is NUL. Only Grow, Release, SetInside, SetLength
// and the operations of sharing touch them. Every operation that takes a text allows it to
// be a part of this one, which a page makes easily: s = s $ s.

#include "core/string.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

#include "core/memory_limit.h"
#include "core/text.h"

namespace vexa {

namespace {

size_t CapacityFor(size_t length) {
  if (length > String::kLongestText) throw std::bad_alloc();
  return (length / String::kCapacityStep + 1) * String::kCapacityStep;
}

size_t Find(std::string_view text, std::string_view s, size_t from) {
  if (s.empty() || from > text.size()) return std::string_view::npos;
  if (s.size() == 1) return text.find(s[0], from);
  const void* hit = memmem(text.data() + from, text.size() - from, s.data(), s.size());
  if (hit == nullptr) return std::string_view::npos;
  return static_cast<size_t>(static_cast<const char*>(hit) - text.data());
}

std::string_view Viewed(const char* text, int length) {
  if (text == nullptr) return {};
  return length < 0 ? std::string_view(text) : std::string_view(text, static_cast<size_t>(length));
}

}  // namespace

// --- Storage ---------------------------------------------------------------------------------

String::String(const char* text, int length) : String(Viewed(text, length)) {}

String::String(std::string_view text) {
  SetInside(0);
  if (text.size() >= kCapacityStep) Grow(CapacityFor(text.size()));
  if (!text.empty()) std::memcpy(own_data(), text.data(), text.size());
  SetLength(text.size());
}

// Gives a copy storage of its own, of the same capacity, or a share of the other's.
void String::CopyStorage(const String& other) {
  if (other.shared()) {
    ++storage_.outside.share->owners;
    return;
  }
  SetInside(0);
  Grow(other.capacity_);
  std::memcpy(storage_.outside.heap, other.storage_.outside.heap, other.length_ + 1);
  length_ = other.length_;
}

String& String::operator=(std::string_view text) {
  assign(text);
  return *this;
}

String& String::operator=(const char* text) {
  assign(Viewed(text, -1));
  return *this;
}

String String::Concat(std::initializer_list<std::string_view> pieces) {
  size_t length = 0;
  for (std::string_view piece : pieces) length += piece.size();
  String result;
  char* to = result.Overwrite(length);
  for (std::string_view piece : pieces) {
    if (!piece.empty()) std::memcpy(to, piece.data(), piece.size());
    to += piece.size();
  }
  return result;
}

// Makes the capacity `capacity`, more than kCapacityStep, and keeps the text.
void String::Grow(size_t capacity) {
  if (shared()) Own();
  char* heap;
  if (inside()) {
    heap = static_cast<char*>(std::malloc(capacity));
    if (heap == nullptr) ThrowNoMemory();
    std::memcpy(heap, storage_.local, length_ + 1);
  } else {
    heap = static_cast<char*>(std::realloc(storage_.outside.heap, capacity));
    if (heap == nullptr) ThrowNoMemory();
  }
  storage_.outside.heap = heap;
  capacity_ = static_cast<uint32_t>(capacity);
}

void String::SetLength(size_t length) {
  length_ = static_cast<uint32_t>(length);
  own_data()[length] = '\0';
}

void String::assign(const char* text, int length) { assign(Viewed(text, length)); }

void String::assign(std::string_view text) {
  if (text.data() >= data() && text.data() <= data() + length_) {  // A part of this very text.
    size_t length = text.size();
    std::memmove(mutable_data(), text.data(), length);
    SetLength(length);
    return;
  }
  char* to = Overwrite(text.size());
  if (!text.empty()) std::memcpy(to, text.data(), text.size());
}

void String::assign(char c) { assign(std::string_view(&c, 1)); }

void String::cat(const char* text, int length) { cat(Viewed(text, length)); }

void String::cat(std::string_view text) {
  if (text.empty()) return;
  size_t length = length_ + text.size();
  if (length >= capacity_) {
    const char* old = data();
    bool own = text.data() >= old && text.data() <= old + length_;
    size_t offset = own ? static_cast<size_t>(text.data() - old) : 0;
    Grow(CapacityFor(length));
    if (own) text = {data() + offset, text.size()};
  }
  std::memmove(own_data() + length_, text.data(), text.size());
  SetLength(length);
}

void String::prepend(std::string_view text) {
  if (text.empty()) return;
  *this = Concat({text, view()});
}

void String::clear() {
  if (shared()) Reset();
  SetLength(0);
}

void String::Reserve(size_t length, size_t most) {
  if (length < capacity_) return;
  size_t room = std::max(length, std::min({size_t{capacity_} * 2, most, kLongestText}));
  Grow(CapacityFor(room));
}

void String::Fit() {
  const size_t capacity = CapacityFor(length_);
  if (capacity_ > capacity && capacity > kCapacityStep) Grow(capacity);
}

// --- Sharing ---------------------------------------------------------------------------------

void String::Share() {
  constexpr uint32_t kLeast = 1024;
  if (capacity_ < kLeast) return;
  auto* share = static_cast<SharedStorage*>(std::malloc(sizeof(SharedStorage)));
  if (share == nullptr) ThrowNoMemory();
  *share = {1, capacity_};
  storage_.outside.share = share;
  capacity_ = kShared;
}

void String::LeaveShared() {
  if (--storage_.outside.share->owners > 0) return;
  std::free(storage_.outside.share);
  std::free(storage_.outside.heap);
}

void String::Own() {
  SharedStorage* const share = storage_.outside.share;
  if (share->owners == 1) {
    capacity_ = share->capacity;
    std::free(share);
    return;
  }
  *this = String(view());
}

void String::Truncate(size_t length) {
  if (length >= length_) return;
  if (shared()) {
    *this = String(view().substr(0, length));
  } else {
    SetLength(length);
  }
}

char* String::Overwrite(size_t length) {
  if (length >= capacity_ || (!inside() && length < kCapacityStep)) {
    size_t capacity = CapacityFor(length);
    ReleaseStorage();
    length_ = 0;
    if (capacity > kCapacityStep) Grow(capacity);
  }
  SetLength(length);
  return own_data();
}

// --- Parts -----------------------------------------------------------------------------------

String String::before(int i) const {
  if (i < 0) return {};
  return view().substr(0, static_cast<size_t>(i));
}

String String::before(std::string_view s) const { return view().substr(0, Find(view(), s, 0)); }

String String::after(int i) const { return i == INT32_MAX ? String() : from(i + 1); }

String String::after(std::string_view s, int from) const {
  int at = search(s, from);
  if (at < 0) return {};
  return view().substr(static_cast<size_t>(at) + s.size());
}

String String::from(int i) const {
  if (i < 0) i = 0;
  if (static_cast<size_t>(i) >= length_) return {};
  return view().substr(static_cast<size_t>(i));
}

String String::from(std::string_view s, int from) const {
  int at = search(s, from);
  if (at < 0) return {};
  return view().substr(static_cast<size_t>(at));
}

String String::at(int start, int end) const {
  if (start < 0) start = 0;
  if (static_cast<size_t>(start) >= length_ || end <= start) return {};
  return view().substr(static_cast<size_t>(start), static_cast<size_t>(end - start));
}

String String::upper() const {
  String result(*this);
  result.upcase();
  return result;
}

String String::lower() const {
  String result(*this);
  result.lowcase();
  return result;
}

String String::padl(int width, char c) const {
  if (width <= length()) return *this;
  String result;
  size_t padding = static_cast<size_t>(width) - length_;
  char* to = result.Overwrite(static_cast<size_t>(width));
  std::memset(to, c, padding);
  std::memcpy(to + padding, data(), length_);
  return result;
}

String String::padr(int width, char c) const {
  if (width <= length()) return *this;
  String result;
  char* to = result.Overwrite(static_cast<size_t>(width));
  std::memcpy(to, data(), length_);
  std::memset(to + length_, c, static_cast<size_t>(width) - length_);
  return result;
}

// --- Searching -------------------------------------------------------------------------------

int String::search(std::string_view s, int from) const {
  size_t at = Find(view(), s, from < 0 ? 0 : static_cast<size_t>(from));
  return at == std::string_view::npos ? -1 : static_cast<int>(at);
}

bool String::contains(char c, int from) const {
  return view().find(c, from < 0 ? 0 : static_cast<size_t>(from)) != std::string_view::npos;
}

int String::freq(std::string_view s) const {
  int count = 0;
  for (int at = search(s, 0); at >= 0; at = search(s, at + 1)) ++count;
  return count;
}

bool String::matches(char c, int i) const { return i >= 0 && i <= length() && data()[i] == c; }

bool String::matches(std::string_view s, int i) const {
  size_t start = std::min(i < 0 ? 0 : static_cast<size_t>(i), size_t{length_});
  return EqualsIgnoreCase(view().substr(start), s);
}

// --- In-place changes ------------------------------------------------------------------------

void String::upcase() {
  char* bytes = mutable_data();
  for (size_t i = 0; i < length_; ++i) bytes[i] = ToUpper(bytes[i]);
}

void String::lowcase() {
  char* bytes = mutable_data();
  for (size_t i = 0; i < length_; ++i) bytes[i] = ToLower(bytes[i]);
}

void String::StripWhitespace() {
  std::string_view kept = Stripped(view());
  std::memmove(mutable_data(), kept.data(), kept.size());
  SetLength(kept.size());
}

void String::ltrim() {
  size_t start = 0;
  while (start < length_ && IsWhitespace(data()[start])) ++start;
  std::memmove(mutable_data(), data() + start, length_ - start);
  SetLength(length_ - start);
}

void String::CompressWhitespace() {
  char* bytes = mutable_data();
  size_t kept = 0;
  bool in_run = false;
  for (size_t i = 0; i < length_; ++i) {
    bool white = IsWhitespace(bytes[i]);
    if (!white || !in_run) bytes[kept++] = bytes[i];
    in_run = white;
  }
  SetLength(kept);
}

void String::gsub(std::string_view pattern, std::string_view replacement) {
  size_t at = Find(view(), pattern, 0);
  if (at == std::string_view::npos) return;
  String result;
  size_t copied = 0;
  while (at != std::string_view::npos) {
    result.Reserve(result.size() + (at - copied) + replacement.size());
    result.cat(view().substr(copied, at - copied));
    result.cat(replacement);
    copied = at + pattern.size();
    at = Find(view(), pattern, copied);
  }
  result.cat(view().substr(copied));
  *this = std::move(result);
}

// --- Splitting -------------------------------------------------------------------------------

int split(const String& text, String* pieces, int max, const String& separator) {
  int count = 0;
  PieceReader reader(text, separator);
  while (count < max && reader.Next()) pieces[count++] = reader.piece();
  return count;
}

bool PieceReader::Next() {
  if (done_) return false;
  if (separator_.empty()) {
    piece_ = rest_;
    done_ = true;
    return true;
  }
  size_t at = Find(rest_, separator_, 0);
  if (at == std::string_view::npos) {
    piece_ = rest_;
    done_ = true;
    return !rest_.empty();
  }
  piece_ = rest_.substr(0, at);
  rest_.remove_prefix(at + separator_.size());
  return true;
}

}  // namespace vexa
