// Environment: taking the process environment apart.

#include "core/environment.h"

#include <algorithm>

namespace vexa {

Environment::Environment(char** entries) {
  for (char** entry = entries; entry != nullptr && *entry != nullptr; ++entry) {
    std::string_view text = *entry;
    size_t equals = text.find('=');
    std::string_view value = equals == text.npos ? "" : text.substr(equals + 1);
    entries_.push_back({text.substr(0, equals), value});
  }
}

const EnvironmentEntry* Environment::Find(std::string_view name) const {
  auto found = std::find_if(entries_.rbegin(), entries_.rend(),
                            [name](const EnvironmentEntry& entry) { return entry.name == name; });
  return found == entries_.rend() ? nullptr : &*found;
}

std::string_view Environment::Value(std::string_view name) const {
  const EnvironmentEntry* entry = Find(name);
  return entry == nullptr ? std::string_view() : entry->value;
}

}  // namespace vexa
