// Tag: one tag of a script as it was read.

#ifndef VEXA_ENGINE_TAG_H_
#define VEXA_ENGINE_TAG_H_

#include <string_view>
#include <utility>
#include <vector>

#include "core/script_value.h"
#include "core/source_place.h"
#include "core/string.h"
#include "core/variables.h"
#include "engine/tag_row.h"

namespace vexa {

// What is known of a pair that is read again and again: the variables that its texts mean.
struct PairNames {
  KnownName name;
  KnownName value;  // when the value is a constant
};

struct NameValuePair {
  String name;
  ScriptValue value;
  const PairNames* names = nullptr;  // borrowed; null when nothing is known

  // Takes one double quote off either end, where the first is, and the backslashes off the quotes
  // inside.
  void RemoveQuotes();
};

class Tag {
 public:
  // `row` is borrowed.
  explicit Tag(const TagRow& row) : row_(&row) {}

  [[nodiscard]] const TagRow& row() const { return *row_; }
  // The name as the tag table lists it.
  [[nodiscard]] std::string_view name() const { return row_->name; }
  [[nodiscard]] int id() const { return row_->id; }
  [[nodiscard]] const std::vector<NameValuePair>& attributes() const { return attributes_; }

  void AddNameValuePair(std::string_view name, ScriptValue value,
                        const PairNames* names = nullptr) {
    attributes_.push_back({String(name), std::move(value), names});
  }
  // Puts a value in the place of the `i`th one.
  void SetValue(size_t i, ScriptValue&& value) { attributes_[i].value = std::move(value); }
  [[nodiscard]] ScriptValue& MutableValue(size_t i) { return attributes_[i].value; }
  // The attribute of that name (letter case ignored), or null. Valid until the tag changes.
  [[nodiscard]] const NameValuePair* Find(std::string_view name) const;
  [[nodiscard]] bool Has(std::string_view name) const { return Find(name) != nullptr; }
  // The first attribute that is read as that row of its tag says, or null.
  [[nodiscard]] const NameValuePair* FindFor(const AttributeRow& attribute) const;
  // Its value, which may be moved out, or null.
  [[nodiscard]] ScriptValue* FindValue(std::string_view name) {
    const NameValuePair* pair = Find(name);
    return pair == nullptr ? nullptr : const_cast<ScriptValue*>(&pair->value);
  }
  // Its value; the empty text when it is absent.
  [[nodiscard]] const String& Value(std::string_view name) const;

  // Whether it has the form that ends a block instead of opening one.
  [[nodiscard]] bool stops() const { return row_->stop != StopForm::None && Has("STOP"); }

  // Whether it is known, for every value that its attributes can have, that it does not stop a
  // block and that all holds what its row says of it.
  [[nodiscard]] bool sound() const { return sound_; }
  void FindSoundness() { sound_ = row_->problem == nullptr && !stops() && Problem().empty(); }

  // What its row says of its attributes and does not hold, as a message; empty when all holds.
  // Required attributes are not looked at: they are missed as soon as the tag is read.
  [[nodiscard]] String Problem() const;

  // Where a value starts that is evaluated later and again (loop conditions, filters).
  [[nodiscard]] const SourcePlace& deferred() const { return deferred_; }
  void Defer(const SourcePlace& place) { deferred_ = place; }

 private:
  const TagRow* row_;
  std::vector<NameValuePair> attributes_;
  SourcePlace deferred_;
  bool sound_ = false;
};

}  // namespace vexa

#endif  // VEXA_ENGINE_TAG_H_
