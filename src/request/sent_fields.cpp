// Taking the kept texts apart, and finding what has one name.

#include "request/sent_fields.h"

#include <algorithm>
#include <iterator>

#include "request/form.h"

namespace vexa {

void SentFields::Keep(const String& name, const String& value) {
  decoded_.push_back({Symbol(name), value});
}

void SentFields::TakeApart() {
  const size_t former = fields_.size();
  const auto add = [this](std::string_view text, FieldSpace space) {
    for (PieceReader pieces(text, "&"); pieces.Next();) {
      FormPair field = DecodePair(pieces.piece(), space);
      fields_.push_back({Symbol(field.name), std::move(field.value)});
    }
  };
  query_.gsub("\\", "");
  add(query_, FieldSpace::Stripped);
  query_.Reset();
  add(encoded_, FieldSpace::Kept);
  encoded_.Reset();
  std::move(decoded_.begin(), decoded_.end(), std::back_inserter(fields_));
  decoded_.clear();
  if (fields_.size() == former) return;
  std::stable_sort(fields_.begin(), fields_.end(), [](const SentField& a, const SentField& b) {
    return a.name.number() < b.name.number();
  });
}

std::span<const SentField> SentFields::Find(std::string_view name) {
  TakeApart();
  const Symbol wanted = Symbol::Known(name);
  if (!wanted) return {};
  const auto before = [](const SentField& a, uint32_t number) { return a.name.number() < number; };
  const auto first = std::lower_bound(fields_.begin(), fields_.end(), wanted.number(), before);
  const auto end = std::lower_bound(first, fields_.end(), wanted.number() + 1, before);
  return {first, end};
}

}  // namespace vexa
