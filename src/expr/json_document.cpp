// Reading JSON with RapidJSON, step by step and without recursion: the library calls the Builder
// for each value it has read.
//
// The library computes every number and refuses what no real holds. Here a number is a text, so
// where it refuses one, the text is read again with all numbers written as 0.

#include "expr/json_document.h"

#include <rapidjson/reader.h>

#include <algorithm>
#include <cassert>
#include <cstdlib>
#include <new>

#include "core/text.h"

namespace vexa {

namespace {

// Storage for the library, which does not look whether it got any.
class Storage {
 public:
  static constexpr bool kNeedFree = true;
  void* Malloc(size_t size) { return Realloc(nullptr, 0, size); }
  void* Realloc(void* old, size_t, size_t size) {
    if (size == 0) {
      std::free(old);
      return nullptr;
    }
    void* storage = std::realloc(old, size);
    if (storage == nullptr) throw std::bad_alloc();
    return storage;
  }
  static void Free(void* storage) { std::free(storage); }
};

// The text as the library reads it: a NUL is the end. It stays there, since the library takes all
// the bytes of a character before it looks at them.
class Source {
 public:
  using Ch = char;
  explicit Source(const char* text) : begin_(text), at_(text) {}
  [[nodiscard]] char Peek() const { return *at_; }
  char Take() { return *at_ == '\0' ? '\0' : *at_++; }
  [[nodiscard]] size_t Tell() const { return static_cast<size_t>(at_ - begin_); }
  // Never called: for reading in place.
  char* PutBegin() { return nullptr; }
  void Put(char) {}
  void Flush() {}
  size_t PutEnd(char*) { return 0; }

 private:
  const char* begin_;
  const char* at_;
};

bool IsOfNumber(char c) {
  return IsDigit(c) || c == '-' || c == '+' || c == '.' || c == 'e' || c == 'E';
}

// Whether the text is a number of the grammar.
bool IsNumber(std::string_view text) {
  const auto skip_digits = [&text] {
    size_t count = 0;
    while (count < text.size() && IsDigit(text[count])) ++count;
    text.remove_prefix(count);
    return count;
  };
  if (text.starts_with('-')) text.remove_prefix(1);
  const bool zero = text.starts_with('0');
  const size_t digits = skip_digits();
  if (digits == 0 || (zero && digits > 1)) return false;
  if (text.starts_with('.')) {
    text.remove_prefix(1);
    if (skip_digits() == 0) return false;
  }
  if (text.starts_with('e') || text.starts_with('E')) {
    text.remove_prefix(1);
    if (text.starts_with('-') || text.starts_with('+')) text.remove_prefix(1);
    if (skip_digits() == 0) return false;
  }
  return text.empty();
}

// The text with each number written as 0 and blanks, in the same places.
String WithoutNumbers(const String& text) {
  const std::string_view from = text;
  String result;
  char* to = result.Overwrite(from.size());
  std::copy(from.begin(), from.end(), to);
  for (size_t i = 0; i < from.size(); ++i) {
    if (from[i] == '"') {
      for (++i; i < from.size() && from[i] != '"'; ++i) {
        if (from[i] == '\\') ++i;
      }
    } else if (IsDigit(from[i]) || from[i] == '-') {
      const size_t begin = i;
      while (i + 1 < from.size() && IsOfNumber(from[i + 1])) ++i;
      if (!IsNumber(from.substr(begin, i + 1 - begin))) continue;
      std::fill(to + begin, to + i + 1, ' ');
      to[begin] = '0';
    }
  }
  return result;
}

// Whether an escape stood for half of a surrogate pair, which the library writes like a character.
bool HoldsSurrogate(std::string_view text) {
  for (size_t i = text.find('\xED'); i < text.size(); i = text.find('\xED', i + 1)) {
    if (i + 1 < text.size() && static_cast<unsigned char>(text[i + 1]) >= 0xA0) return true;
  }
  return false;
}

// The number of an element as a path writes it: digits without a superfluous 0.
bool ReadNumber(std::string_view text, size_t count, size_t* number) {
  constexpr size_t kMostDigits = 10;
  if (text.empty() || text.size() > kMostDigits || (text[0] == '0' && text.size() > 1)) {
    return false;
  }
  *number = 0;
  for (const char c : text) {
    if (!IsDigit(c)) return false;
    *number = *number * 10 + static_cast<size_t>(c - '0');
  }
  return *number < count;
}

// Replaces ~1 and ~0 by the characters they stand for. False when something else stands behind a ~.
bool DecodePointerName(String& name) {
  for (int i = 0; i < name.length(); ++i) {
    if (name[i] == '~' && name[i + 1] != '0' && name[i + 1] != '1') return false;
  }
  name.gsub("~1", "/");
  name.gsub("~0", "~");
  return true;
}

}  // namespace

// Takes what the library reads. Each operation returns false to end the reading.
class JsonDocument::Builder {
 public:
  Builder(JsonDocument& document, const Source& source) : document_(document), source_(source) {}

  bool Null() { return AddWord(JsonKind::Null, 4); }
  bool Bool(bool value) { return AddWord(JsonKind::Boolean, value ? 4 : 5); }
  bool RawNumber(const char*, rapidjson::SizeType, bool) {
    const std::string_view text = document_.text_;
    size_t begin = source_.Tell();
    size_t end = begin;
    while (begin > 0 && IsOfNumber(text[begin - 1])) --begin;
    while (end < text.size() && IsOfNumber(text[end])) ++end;
    Node& node = Add(JsonKind::Number);
    node.begin = Offset(begin);
    node.end = Offset(end);
    return true;
  }
  bool String(const char* text, rapidjson::SizeType length, bool) {
    Range range;
    if (!Keep({text, length}, range)) return false;
    Add(JsonKind::Text).inside = range;
    return true;
  }
  bool Key(const char* text, rapidjson::SizeType length, bool) {
    return Keep({text, length}, name_);
  }
  bool StartObject() { return Open(JsonKind::Object); }
  bool StartArray() { return Open(JsonKind::Array); }
  bool EndArray(rapidjson::SizeType) {
    Close(waiting_.begin() + open_.back().first_child, waiting_.end());
    return true;
  }
  bool EndObject(rapidjson::SizeType);
  // Numbers are handed over as texts.
  bool Int(int) { return false; }
  bool Uint(unsigned) { return false; }
  bool Int64(int64_t) { return false; }
  bool Uint64(uint64_t) { return false; }
  bool Double(double) { return false; }

 private:
  using Children = std::vector<Value>::iterator;
  struct OpenValue {
    Value value;
    std::ptrdiff_t first_child;  // in waiting_
  };

  static uint32_t Offset(size_t offset) { return static_cast<uint32_t>(offset); }
  std::vector<Node>& nodes() { return document_.nodes_; }
  std::string_view NameOf(Value value) { return document_.Decoded(nodes()[value].name); }

  Node& Add(JsonKind kind) {
    waiting_.push_back(Offset(nodes().size()));
    nodes().push_back({kind, 0, 0, {}, name_});
    return nodes().back();
  }
  bool AddWord(JsonKind kind, size_t length) {
    Node& node = Add(kind);
    node.end = Offset(source_.Tell());
    node.begin = Offset(node.end - length);
    return true;
  }
  bool Keep(std::string_view text, Range& range) {
    if (HoldsSurrogate(text)) return false;
    range = {Offset(document_.decoded_.size()), Offset(text.size())};
    document_.decoded_.Append(text);
    return true;
  }
  bool Open(JsonKind kind) {
    if (open_.size() == kMostLevels) return false;
    Add(kind).begin = Offset(source_.Tell());
    open_.push_back({waiting_.back(), std::ssize(waiting_)});
    return true;
  }
  void Close(Children first, Children last) {
    Node& node = nodes()[open_.back().value];
    node.end = Offset(source_.Tell() + 1);
    node.inside = {Offset(document_.children_.size()), Offset(static_cast<size_t>(last - first))};
    document_.children_.insert(document_.children_.end(), first, last);
    waiting_.resize(static_cast<size_t>(open_.back().first_child));
    open_.pop_back();
  }

  JsonDocument& document_;
  const Source& source_;
  Range name_;                   // of the member that comes
  std::vector<Value> waiting_;   // values whose parents are not closed yet, in their order
  std::vector<OpenValue> open_;  // the objects and arrays that are not closed yet, from outside in
};

bool JsonDocument::Builder::EndObject(rapidjson::SizeType) {
  const Children first = waiting_.begin() + open_.back().first_child;
  Children last = waiting_.end();
  std::vector<Value> sorted(first, last);
  std::ranges::stable_sort(sorted, {}, [this](Value value) { return NameOf(value); });
  // The last of several with one name counts, in the place of the first.
  size_t kept = 0;
  for (size_t i = 0; i < sorted.size(); ++i) {
    if (kept > 0 && NameOf(sorted[kept - 1]) == NameOf(sorted[i])) {
      std::swap(nodes()[sorted[kept - 1]], nodes()[sorted[i]]);
      nodes()[sorted[i]].kind = JsonKind::Missing;
    } else {
      sorted[kept++] = sorted[i];
    }
  }
  if (kept < sorted.size()) {
    last = std::remove_if(first, last,
                          [this](Value value) { return nodes()[value].kind == JsonKind::Missing; });
    sorted.resize(kept);
  }
  Close(first, last);
  document_.children_.insert(document_.children_.end(), sorted.begin(), sorted.end());
  return true;
}

bool JsonDocument::Read(std::string_view text) {
  Clear();
  text_ = text;
  if (text.find('\0') != text.npos) return false;
  bool too_big = false;
  bool done = Parse(text_.c_str(), &too_big);
  if (too_big) {
    const vexa::String copy = WithoutNumbers(text_);
    done = Parse(copy.c_str(), &too_big);
  }
  if (!done) Clear();
  return done;
}

bool JsonDocument::Parse(const char* text, bool* too_big) {
  constexpr unsigned kFlags = rapidjson::kParseIterativeFlag |
                              rapidjson::kParseNumbersAsStringsFlag |
                              rapidjson::kParseValidateEncodingFlag;
  decoded_.clear();
  nodes_.clear();
  children_.clear();
  Source source(text);
  Builder builder(*this, source);
  Storage storage;
  rapidjson::GenericReader<rapidjson::UTF8<>, rapidjson::UTF8<>, Storage> reader(&storage);
  const rapidjson::ParseResult result = reader.Parse<kFlags>(source, builder);
  *too_big = result.Code() == rapidjson::kParseErrorNumberTooBig;
  return !result.IsError();
}

void JsonDocument::Clear() {
  decoded_.ReleaseStorage();
  nodes_ = {};
  children_ = {};
}

JsonDocument::Value JsonDocument::Find(std::string_view path) const {
  if (nodes_.empty()) return kNoValue;
  Value value = 0;
  if (path.empty()) return value;
  const bool pointer = path[0] == '/';
  if (pointer) path.remove_prefix(1);
  for (;;) {
    const size_t end = path.find(pointer ? '/' : '.');
    String name = path.substr(0, end);
    if (pointer && !DecodePointerName(name)) return kNoValue;
    value = Member(value, name);
    if (value == kNoValue || end == path.npos) return value;
    path.remove_prefix(end + 1);
  }
}

JsonDocument::Value JsonDocument::Member(Value parent, std::string_view name) const {
  const size_t count = Count(parent);
  if (count == 0) return kNoValue;
  const Value* children = children_.data() + nodes_[parent].inside.first;
  if (nodes_[parent].kind == JsonKind::Array) {
    size_t number;
    return ReadNumber(name, count, &number) ? children[number] : kNoValue;
  }
  const std::span<const Value> sorted(children + count, count);
  const auto name_of = [this](Value value) { return Decoded(nodes_[value].name); };
  const auto found = std::ranges::lower_bound(sorted, name, {}, name_of);
  return found != sorted.end() && name_of(*found) == name ? *found : kNoValue;
}

JsonKind JsonDocument::Kind(Value value) const {
  return value == kNoValue ? JsonKind::Missing : nodes_[value].kind;
}

std::string_view JsonDocument::Content(Value value) const {
  if (value == kNoValue) return {};
  const Node& node = nodes_[value];
  const std::string_view written = text_.view().substr(node.begin, node.end - node.begin);
  switch (node.kind) {
    case JsonKind::Text:
      return Decoded(node.inside);
    case JsonKind::Boolean:
      return written == "true" ? "1" : "0";
    case JsonKind::Null:
    case JsonKind::Missing:
      return {};
    default:
      return written;
  }
}

size_t JsonDocument::Count(Value value) const {
  const JsonKind kind = Kind(value);
  if (kind != JsonKind::Object && kind != JsonKind::Array) return 0;
  return nodes_[value].inside.count;
}

std::string_view JsonDocument::NameAt(Value value, size_t number) const {
  if (Kind(value) != JsonKind::Object || number >= Count(value)) return {};
  return Decoded(nodes_[children_[nodes_[value].inside.first + number]].name);
}

}  // namespace vexa
