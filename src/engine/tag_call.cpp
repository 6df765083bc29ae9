// What handlers ask of the executor.

#include "engine/tag_call.h"

#include <cassert>
#include <utility>

#include "core/number.h"
#include "engine/script_parser.h"

namespace vexa {

int32_t TagCall::Integer(std::string_view name) const { return ReadInteger(Text(name)); }

Vexa& TagCall::host() const { return script_.host(); }

void TagCall::Write(std::string_view text) const { script_.WriteValue(text); }

void TagCall::WriteMarkup(std::string_view text) const {
  script_.output().Write(text);
  script_.output().inwhitespace() = 0;
}

StateResult TagCall::Assign(std::string_view name, ScriptValue value) const {
  return script_.Assign(row(), name, std::move(value));
}

StateResult TagCall::AssignOnly() const {
  const NameValuePair& pair = Only();
  ScriptValue value = pair.value;
  return pair.names != nullptr ? script_.Assign(row(), pair.names->name, std::move(value))
                               : script_.Assign(row(), pair.name, std::move(value));
}

StateResult TagCall::AssignNamed(std::string_view name, std::string_view value) const {
  const NameValuePair* target = Find(name);
  ScriptValue* found = tag_.FindValue(value);
  assert(target != nullptr && found != nullptr);
  const bool known = target->names != nullptr && static_cast<bool>(target->names->value);
  return known ? script_.Assign(row(), target->names->value, std::move(*found))
               : script_.Assign(row(), target->value.view(), std::move(*found));
}

StateResult TagCall::SyntaxError(std::string_view message) const {
  return script_.SyntaxError(message);
}

StateResult TagCall::Fail(std::string_view message) const {
  return script_.RuntimeError(row(), message);
}

void TagCall::NoteOutcome(const String& text) const { script_.SetErrorVariable(row(), text); }

StateResult TagCall::Enter(std::unique_ptr<ScriptState> block) const {
  script_.AddState(std::move(block));
  return StateResult::Handled;
}

}  // namespace vexa
