// What the tags that talk to other machines have in common: how their attributes are checked, and
// the variables in which they tell what came of it.

#ifndef VEXA_TAGS_NETWORK_TAG_H_
#define VEXA_TAGS_NETWORK_TAG_H_

#include <initializer_list>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "core/script_value.h"
#include "core/string.h"
#include "core/variables.h"
#include "engine/script_parser.h"
#include "engine/tag_call.h"
#include "net/named_value.h"

namespace vexa {

// A piece of FIELDS, FILES or HEADERS: `variable` or `shown=variable`.
struct ListedVariable {
  String shown;  // what the other side sees; empty when the list does not say
  String variable;
};
// The pieces of a list between commas; empty ones are passed over.
[[nodiscard]] std::vector<ListedVariable> ReadVariableList(std::string_view list);

// Reads HEADERS: the headers to be sent, without those whose variables are empty. `is_own` says
// which ones the tag sets itself. False with `reason` set when one cannot be sent.
[[nodiscard]] bool ReadHeaders(const TagCall& call, bool (*is_own)(std::string_view name),
                               std::vector<NamedValue>& headers, String& reason);

// Whether no attribute has a line break in it; else `reason` is set. In lists they may stand
// between the pieces; texts (`free`) are not looked at.
[[nodiscard]] bool CheckLineBreaks(const Tag& tag, std::initializer_list<std::string_view> free,
                                   String& reason);

// The number of the word that the attribute is, letter case ignored: the first without the
// attribute. -1 with `reason` set when it is none of them.
[[nodiscard]] int ReadKeyword(const TagCall& call, std::string_view attribute,
                              std::initializer_list<std::string_view> words, String& reason);

// The variables of a tag: NAME, `_`, and what each is. They are globals, or locals of the running
// function; which, is said by NAME alone.
class NetworkVariables {
 public:
  // `script` is borrowed, as is the row of the tag, whose errors refusals are.
  NetworkVariables(ScriptParser& script, const TagRow& row) : script_(script), row_(row) {}

  // Takes NAME, or `fallback` without one. False with `reason` set when it is no such name.
  [[nodiscard]] bool ReadName(const TagCall& call, std::string_view fallback, String& reason);
  // Makes the variables with these endings empty (`status` and `sent` 0), and all those of headers
  // and attributes, whoever set them. All assigning here returns what ScriptParser::Assign does.
  [[nodiscard]] StateResult Clear(std::initializer_list<std::string_view> endings);
  [[nodiscard]] StateResult Assign(std::string_view ending, ScriptValue value);
  // Sets the variables `h_x` of headers: repeated ones joined by line feeds. Those of the call
  // before are emptied.
  [[nodiscard]] StateResult AssignHeaders(std::span<const NamedValue> headers);
  // Sets the variables whose endings are these parts behind `kind` ("h_", "a_"), in their order and
  // as many as are let be; those of that kind that the call before set are emptied.
  [[nodiscard]] StateResult AssignParts(std::string_view kind,
                                        std::vector<std::pair<String, String>> parts);

 private:
  [[nodiscard]] ScopedName Name(std::string_view ending) const;
  [[nodiscard]] StateResult ClearBeginningWith(std::string_view beginning);
  // Whether a variable may get this name that another machine chose: one tag makes so many new
  // ones.
  [[nodiscard]] bool MayName(std::string_view ending);

  ScriptParser& script_;
  const TagRow& row_;
  String name_;
  VariableScope scope_ = VariableScope::Global;
  std::vector<String> parts_;  // endings that AssignParts set last
  int new_names_ = 0;
};

}  // namespace vexa

#endif  // VEXA_TAGS_NETWORK_TAG_H_
