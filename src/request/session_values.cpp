// Encoding and decoding the values of a session.

#include "request/session_values.h"

#include <algorithm>
#include <utility>

#include "core/byte_order.h"
#include "core/digest.h"

namespace vexa {

namespace {

constexpr std::string_view kMagic = "VxSess1\n";
constexpr size_t kChecksumSize = 4;
constexpr size_t kEntryHead = 8;

Digest Checksum(std::string_view bytes) { return DigestOf(DigestMethod::Crc32, bytes); }

void AppendLength(String& to, size_t length) {
  char bytes[4];
  Put32(bytes, static_cast<uint32_t>(length));
  to.cat(std::string_view(bytes, sizeof bytes));
}

}  // namespace

SessionValues::Entries::const_iterator SessionValues::Place(const Entries& entries,
                                                            std::string_view name) {
  return std::lower_bound(
      entries.begin(), entries.end(), name,
      [](const Entry& entry, std::string_view wanted) { return entry.name.view() < wanted; });
}

std::string_view SessionValues::Find(std::string_view name) const {
  const auto place = Place(entries_, name);
  return place == entries_.end() || place->name.view() != name ? std::string_view()
                                                               : place->value.view();
}

void SessionValues::Set(std::string_view name, std::string_view value) {
  const auto place = entries_.begin() + (Place(entries_, name) - entries_.begin());
  const bool there = place != entries_.end() && place->name.view() == name;
  if (value.empty()) {
    if (there) entries_.erase(place);
  } else if (there) {
    place->value = value;
  } else {
    entries_.insert(place, {name, value});
  }
}

size_t SessionValues::bytes() const {
  size_t sum = 0;
  for (const Entry& entry : entries_) sum += entry.name.size() + entry.value.size();
  return sum;
}

String SessionValues::Encoded() const {
  String content;
  content.Reserve(bytes() + entries_.size() * kEntryHead);
  for (const Entry& entry : entries_) {
    AppendLength(content, entry.name.size());
    AppendLength(content, entry.value.size());
    content.cat(entry.name.view());
    content.cat(entry.value.view());
  }
  return String::Concat({kMagic, Checksum(content).bytes(), content});
}

void SessionValues::Decode(std::string_view file) {
  entries_.clear();
  constexpr size_t kHead = kMagic.size() + kChecksumSize;
  if (file.size() < kHead || file.size() > kLongestFile || !file.starts_with(kMagic)) return;
  const std::string_view content = file.substr(kHead);
  if (file.substr(kMagic.size(), kChecksumSize) != Checksum(content).bytes()) return;
  Entries entries;
  if (ReadEntries(content, entries)) entries_ = std::move(entries);
}

bool SessionValues::ReadEntries(std::string_view bytes, Entries& entries) {
  while (!bytes.empty()) {
    if (bytes.size() < kEntryHead) return false;
    const size_t name_length = Get32(bytes.data());
    const size_t value_length = Get32(bytes.data() + 4);
    bytes.remove_prefix(kEntryHead);
    if (name_length > bytes.size() || value_length > bytes.size() - name_length) return false;
    const std::string_view name = bytes.substr(0, name_length);
    if (value_length == 0 || (!entries.empty() && name <= entries.back().name.view())) return false;
    entries.push_back({name, bytes.substr(name_length, value_length)});
    bytes.remove_prefix(name_length + value_length);
  }
  return true;
}

}  // namespace vexa
