// A JSON text that was read: where each value stands in it, and what members and elements it has.
//
// The grammar is that of RFC 8259, in UTF-8, with two limits: at most 512 levels of arrays and
// objects, and no halves of surrogate pairs in escapes, which no text can hold. Numbers have none:
// they stay the texts they are. Of two members with one name the last counts; it takes the place of
// the first, so that a name is met once.

#ifndef VEXA_EXPR_JSON_DOCUMENT_H_
#define VEXA_EXPR_JSON_DOCUMENT_H_

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "core/string.h"

namespace vexa {

// What a value is. Missing: there is none.
enum class JsonKind : uint8_t { Missing, Object, Array, Text, Number, Boolean, Null };

class JsonDocument {
 public:
  static constexpr size_t kMostLevels = 512;
  // The number of a value. The whole text is value 0.
  using Value = uint32_t;
  static constexpr Value kNoValue = UINT32_MAX;

  // Reads `text`, of which a copy is kept. False when it is no JSON; there are no values then.
  bool Read(std::string_view text);

  // The text that was read.
  [[nodiscard]] const String& text() const { return text_; }
  // The value at a path: names and numbers from 0 between points ("items.0.name"), or, when it
  // begins with "/", a pointer of RFC 6901. The empty path is the whole. kNoValue when there is
  // none.
  [[nodiscard]] Value Find(std::string_view path) const;
  // The member of that name, the element of that number; kNoValue when there is none.
  [[nodiscard]] Value Member(Value parent, std::string_view name) const;
  // Of kNoValue too.
  [[nodiscard]] JsonKind Kind(Value value) const;
  // A text decoded, a number as it is written, true as "1", false as "0", null as nothing, objects
  // and arrays as they are written. Valid until the next reading.
  [[nodiscard]] std::string_view Content(Value value) const;
  // How many members or elements it has; 0 when it is something else.
  [[nodiscard]] size_t Count(Value value) const;
  // The name of a member by its number, from 0; empty when there is none. Valid until the next
  // reading.
  [[nodiscard]] std::string_view NameAt(Value value, size_t number) const;

 private:
  class Builder;
  // A part of decoded_ or of children_.
  struct Range {
    uint32_t first = 0;
    uint32_t count = 0;
  };
  struct Node {
    JsonKind kind;   // Missing: another member has its name
    uint32_t begin;  // its bytes in text_; not of a text
    uint32_t end;
    Range inside;  // a text's in decoded_, an array's or object's in children_
    Range name;    // a member's in decoded_
  };

  bool Parse(const char* text, bool* too_big);
  [[nodiscard]] std::string_view Decoded(Range range) const {
    return decoded_.view().substr(range.first, range.count);
  }
  void Clear();

  String text_;
  String decoded_;  // the texts and names, one behind the other
  std::vector<Node> nodes_;
  // Of each array and object the elements or members in their order. Behind those of an object they
  // stand again, sorted by their names.
  std::vector<Value> children_;
};

}  // namespace vexa

#endif  // VEXA_EXPR_JSON_DOCUMENT_H_
