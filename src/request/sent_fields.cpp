// Taking the kept texts apart, and finding what has one name.

#include "request/sent_fields.h"

#include <algorithm>

#include "request/form.h"

namespace vexa {

// In the order they came: what was kept before goes first.
void SentFields::Keep(const String& name, String value) {
  TakeApart();
  fields_.push_back({Symbol(name), std::move(value)});
}

void SentFields::TakeApart() {
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
}

std::span<const SentField> SentFields::Find(std::string_view name) {
  TakeApart();
  if (sorted_ < fields_.size()) {
    std::stable_sort(fields_.begin(), fields_.end(), [](const SentField& a, const SentField& b) {
      return a.name.number() < b.name.number();
    });
    sorted_ = fields_.size();
  }
  const Symbol wanted = Symbol::Known(name);
  if (!wanted) return {};
  const auto before = [](const SentField& a, uint32_t number) { return a.name.number() < number; };
  const auto first = std::lower_bound(fields_.begin(), fields_.end(), wanted.number(), before);
  const auto end = std::lower_bound(first, fields_.end(), wanted.number() + 1, before);
  return {first, end};
}

}  // namespace vexa
