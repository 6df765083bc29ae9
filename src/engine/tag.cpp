// Looking up a tag's attributes.

#include "engine/tag.h"

#include "core/text.h"

namespace vexa {

void NameValuePair::RemoveQuotes() {
  value.StripWhitespace();
  std::string_view text = value;
  if (text.empty() || text[0] != '"') return;
  text.remove_prefix(1);
  if (!text.empty() && text.back() == '"' && (text.size() < 2 || text[text.size() - 2] != '\\')) {
    text.remove_suffix(1);
  }
  value = String(text);
  value.gsub("\\\"", "\"");
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
  return pair == nullptr ? kAbsent : pair->value;
}

}  // namespace vexa
