// Tag: one tag of a script as it was read, and the templates that say what tags there are.

#ifndef VEXA_ENGINE_TAG_H_
#define VEXA_ENGINE_TAG_H_

#include <cstdint>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "core/source_place.h"
#include "core/string.h"

namespace vexa {

class ScriptParser;
class Tag;

// What a state or handler made of a tag or text.
enum class StateResult : int {
  Failed = 0,    // an error was reported; the script stops
  Done = 1,      // handled
  Finished = 2,  // the tag closed this state
  Handled = 3,   // handled
  NotMine = 4,   // for the state below
};

// A tag's work, given its evaluated attributes. Messages are already reported on failure.
using TagHandler = StateResult (*)(ScriptParser& parser, Tag& tag);

enum class AttributeKind : uint8_t {
  Required,
  Optional,
  Default,  // a missing one is filled in
};

struct AttributeTemplate {
  const char* name;
  AttributeKind kind;
  const char* value = "";  // the default
};

// One row of the tag table: constant data.
struct TagTemplate {
  const char* name;
  int id;
  int closing_id;  // the id of the tag that closes this one, 0 when it opens no block
  std::span<const AttributeTemplate> attributes;
  TagHandler handler;  // null: unexpected where no open block takes it
};

struct NameValuePair {
  String name;
  String value;

  // Takes one double quote off either end, where the first is, and the backslashes off the quotes
  // inside.
  void RemoveQuotes();
};

class Tag {
 public:
  explicit Tag(const TagTemplate& form) : form_(&form) {}

  [[nodiscard]] const TagTemplate& form() const { return *form_; }
  // The name as the tag table lists it.
  [[nodiscard]] std::string_view name() const { return form_->name; }
  [[nodiscard]] int id() const { return form_->id; }
  [[nodiscard]] const std::vector<NameValuePair>& attributes() const { return attributes_; }

  void AddNameValuePair(std::string_view name, String value) {
    attributes_.push_back({String(name), std::move(value)});
  }
  // The attribute of that name (letter case ignored), or null. Valid until the tag changes.
  [[nodiscard]] const NameValuePair* Find(std::string_view name) const;
  [[nodiscard]] bool Has(std::string_view name) const { return Find(name) != nullptr; }
  // Its value; the empty text when it is absent.
  [[nodiscard]] const String& Value(std::string_view name) const;

  // Where a value starts that is evaluated later and again (loop conditions, filters).
  [[nodiscard]] const SourcePlace& deferred() const { return deferred_; }
  void Defer(const SourcePlace& place) { deferred_ = place; }

 private:
  const TagTemplate* form_;
  std::vector<NameValuePair> attributes_;
  SourcePlace deferred_;
};

}  // namespace vexa

#endif  // VEXA_ENGINE_TAG_H_
