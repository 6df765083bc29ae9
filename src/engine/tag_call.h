// TagCall: all that a tag's handler sees of the world. Attributes are fetched by name in the
// reading that the handler wants; errors are reported here, so that all of them sound alike.

#ifndef VEXA_ENGINE_TAG_CALL_H_
#define VEXA_ENGINE_TAG_CALL_H_

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "core/output.h"
#include "core/string.h"
#include "core/variables.h"
#include "engine/script_state.h"
#include "engine/tag.h"
#include "vexa.h"

namespace vexa {

class ScriptParser;

class TagCall {
 public:
  // Both are borrowed. REQUIRES: what the tag's row says of its attributes holds.
  TagCall(ScriptParser& script, Tag& tag) : script_(script), tag_(tag) {}

  // --- What is written in the tag ---
  [[nodiscard]] const Tag& tag() const { return tag_; }
  [[nodiscard]] const TagRow& row() const { return tag_.row(); }
  [[nodiscard]] const std::vector<NameValuePair>& attributes() const { return tag_.attributes(); }
  // The attribute of that name (letter case ignored), or null.
  [[nodiscard]] const NameValuePair* Find(std::string_view name) const { return tag_.Find(name); }
  [[nodiscard]] bool Has(std::string_view name) const { return tag_.Has(name); }
  // Its value; the empty text, and 0, when it is absent.
  [[nodiscard]] const String& Text(std::string_view name) const { return tag_.Value(name); }
  [[nodiscard]] int32_t Integer(std::string_view name) const;
  // The one attribute of a tag that has just one.
  [[nodiscard]] const NameValuePair& Only() const { return tag_.attributes().front(); }

  // --- The page ---
  [[nodiscard]] Vexa& host() const;
  [[nodiscard]] Variables& variables() const { return host().vars(); }
  // Writes a value and keeps the white-space flag; an empty one changes nothing.
  void Write(std::string_view text) const;
  // Writes markup, which is no white space.
  void WriteMarkup(std::string_view text) const;
  // Assigns; a refusal is a runtime error of the tag.
  [[nodiscard]] StateResult Assign(std::string_view name, ScriptValue value) const;
  // Assigns the value of the one attribute to the variable of its name.
  [[nodiscard]] StateResult AssignOnly() const;
  // Assigns the value of the attribute `value` to the variable whose name is the value of `name`.
  // Moves the value.
  [[nodiscard]] StateResult AssignNamed(std::string_view name, std::string_view value) const;

  // --- Errors ---
  // Stops the script. Always returns Failed.
  StateResult SyntaxError(std::string_view message) const;
  // Reports that the tag could not do its work. Reported when the page goes on, with the message in
  // the tag's error variable; else Failed.
  [[nodiscard]] StateResult Fail(std::string_view message) const;
  // Sets the tag's error variable, for an outcome that is no error.
  void NoteOutcome(const String& text) const;

  // --- Blocks and scripts ---
  // Opens a block. Returns Handled.
  StateResult Enter(std::unique_ptr<ScriptState> block) const;
  // The executor itself, for blocks and for the few tags that steer the script.
  [[nodiscard]] ScriptParser& script() const { return script_; }

 private:
  ScriptParser& script_;
  Tag& tag_;
};

}  // namespace vexa

#endif  // VEXA_ENGINE_TAG_CALL_H_
