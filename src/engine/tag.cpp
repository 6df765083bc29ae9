// Looking up rows, and a tag's attributes.

#include "engine/tag.h"

#include <algorithm>

#include "core/number.h"
#include "core/text.h"

namespace vexa {

const AttributeRow* TagRow::FindAttribute(std::string_view attribute) const {
  for (const AttributeRow& row : attributes) {
    const bool fits = row.reading == Reading::Raw ? IsLeadingPart(attribute, row.name)
                                                  : EqualsIgnoreCase(attribute, row.name);
    if (fits || row.name == kAnyName) return &row;
  }
  return nullptr;
}

bool TagRow::IsStopBody(std::string_view tag_body) const {
  constexpr std::string_view kStop = "STOP";
  switch (stop) {
    case StopForm::None:
      return false;
    case StopForm::Stop:
      return EqualsIgnoreCase(Stripped(tag_body), kStop);
    case StopForm::StartOfStop:
      return IsLeadingPart(Stripped(tag_body), kStop);
  }
  return false;
}

const TagRow* TagSet::WithNumber(int id) const {
  auto row = std::lower_bound(rows.begin(), rows.end(), id,
                              [](const TagRow& tag, int wanted) { return tag.id < wanted; });
  return row != rows.end() && row->id == id ? &*row : nullptr;
}

const TagRow* TagSet::WithFlag(TagFlag flag) const {
  auto row =
      std::find_if(rows.begin(), rows.end(), [flag](const TagRow& tag) { return tag.Has(flag); });
  return row != rows.end() ? &*row : nullptr;
}

void NameValuePair::RemoveQuotes() {
  String stripped = value.text();
  stripped.StripWhitespace();
  std::string_view text = stripped;
  if (text.empty() || text[0] != '"') return;
  text.remove_prefix(1);
  if (!text.empty() && text.back() == '"' && (text.size() < 2 || text[text.size() - 2] != '\\')) {
    text.remove_suffix(1);
  }
  String bare(text);
  bare.gsub("\\\"", "\"");
  value = std::move(bare);
}

String Tag::Problem() const {
  const TagBody body = row_->body;
  if ((body == TagBody::OneExpression || body == TagBody::OneAssignment) &&
      attributes_.size() != 1) {
    // Two wordings on purpose: pages show them.
    return String::Concat(
        {name(), " expects exactly ", body == TagBody::OneAssignment ? "one " : "",
         "1 name/value pair, found ", PrintInteger(static_cast<int64_t>(attributes_.size()))});
  }
  for (const AttributeRow& attribute : row_->attributes) {
    if (attribute.presence != Presence::Needed || FindFor(attribute) != nullptr) continue;
    return String::Concat({name(), " requires the ", attribute.name, " attribute to be specified"});
  }
  return row_->problem == nullptr ? String() : row_->problem(*this);
}

const NameValuePair* Tag::FindFor(const AttributeRow& attribute) const {
  for (const NameValuePair& pair : attributes_) {
    if (row_->FindAttribute(pair.name) == &attribute) return &pair;
  }
  return nullptr;
}

const NameValuePair* Tag::Find(std::string_view name) const {
  for (const NameValuePair& pair : attributes_) {
    if (EqualsIgnoreCase(pair.name, name)) return &pair;
  }
  return nullptr;
}

const String& Tag::Value(std::string_view name) const {
  static const String kAbsent;
  const NameValuePair* pair = Find(name);
  return pair == nullptr ? kAbsent : pair->value.text();
}

}  // namespace vexa
