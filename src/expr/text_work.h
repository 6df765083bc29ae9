// What the functions for texts keep from one call to the next: the JSON texts, patterns and time
// zones used last, so that a loop over what stands in a text reads it once. It belongs to one
// request.

#ifndef VEXA_EXPR_TEXT_WORK_H_
#define VEXA_EXPR_TEXT_WORK_H_

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "core/script_value.h"
#include "expr/json_document.h"
#include "expr/pattern.h"
#include "expr/time_zone.h"

namespace vexa {

// The few texts used last, each with a `Made` of it: an object with an operation text(), which
// holds a copy of the text.
template <typename Made, size_t kCount>
class KnownTexts {
 public:
  // What was made of this text; a new one, of which text() is another yet, when none is known.
  // Valid until the next call.
  Made& Find(const ScriptValue& value, bool* known) {
    const uint64_t mark = value.Mark();
    auto slot = std::ranges::find_if(slots_, [&](const Slot& candidate) {
      return candidate.made != nullptr && mark != 0 && candidate.mark == mark;
    });
    if (slot == slots_.end()) {
      slot = std::ranges::find_if(slots_, [&](const Slot& candidate) {
        return candidate.made != nullptr && candidate.made->text() == value.view();
      });
    }
    *known = slot != slots_.end();
    if (!*known) {
      slot = slots_.end() - 1;  // the one that was not used for longest
      slot->made = std::make_unique<Made>();
    }
    slot->mark = mark;
    std::rotate(slots_.begin(), slot, slot + 1);
    return *slots_.front().made;
  }

 private:
  struct Slot {
    uint64_t mark = 0;  // of a value that holds the text; 0: it has none
    std::unique_ptr<Made> made;
  };
  std::array<Slot, kCount> slots_;  // the one used last first
};

class TextWork {
 public:
  // What is returned is valid until the next call.
  const JsonDocument& Json(const ScriptValue& text) {
    bool known;
    JsonDocument& document = documents_.Find(text, &known);
    if (!known) document.Read(text.view());
    return document;
  }
  Pattern& FindPattern(const ScriptValue& text) {
    bool known;
    Pattern& pattern = patterns_.Find(text, &known);
    if (!known) pattern.SetText(text.view());
    return pattern;
  }
  // Null when there is no zone of that name.
  const TimeZone* FindZone(const ScriptValue& name) {
    bool known;
    TimeZone& zone = zones_.Find(name, &known);
    if (!known) zone.Load(name.view());
    return zone.valid() ? &zone : nullptr;
  }

 private:
  // One for a loop and one for what stands in its items; patterns are more often used in turn.
  KnownTexts<JsonDocument, 2> documents_;
  KnownTexts<Pattern, 4> patterns_;
  KnownTexts<TimeZone, 2> zones_;
};

}  // namespace vexa

#endif  // VEXA_EXPR_TEXT_WORK_H_
