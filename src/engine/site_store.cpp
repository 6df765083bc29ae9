// What is remembered of a script is counted with all that it owns: a tag with a few values takes
// well over a kilobyte, and a value that a reference had may be of any length.

#include "engine/site_store.h"

#include <cstddef>
#include <vector>

#include "core/script_value.h"
#include "core/string.h"
#include "engine/site.h"

namespace vexa {

namespace {

constexpr size_t kAllocation = 16;  // what the heap adds to each block, rounding up among it
constexpr size_t kEntry = 64;       // an entry of a table, with its share of the buckets

template <typename T>
size_t StorageOf(const std::vector<T>& elements) {
  return elements.capacity() == 0 ? 0 : elements.capacity() * sizeof(T) + kAllocation;
}

size_t ReferencesIn(const std::vector<MacroReference>& references) {
  size_t size = StorageOf(references);
  for (const MacroReference& reference : references) size += reference.name.storage_bytes();
  return size;
}

}  // namespace

void SiteStore::ForgetValues() {
  for (Site* site : with_values_) {
    for (const auto& reading : site->readings) size_bytes_ -= SizeOf(*reading);
    site->readings.clear();
    site->met = false;
  }
  with_values_.clear();
}

size_t SiteStore::SizeOf(const TagReading& reading) {
  size_t size =
      sizeof(TagReading) + kAllocation + StorageOf(reading.references) + StorageOf(reading.values);
  for (const ReferenceValue& known : reading.references) {
    size += known.reference.name.storage_bytes() + known.value.storage_bytes();
  }
  for (const SiteValue& value : reading.values) {
    size += value.name.storage_bytes() + value.constant.text_size();
    if (!value.expression.empty()) size += value.expression.program().storage_bytes();
  }
  if (reading.tag == nullptr) return size;
  // The tag holds the names and constants once more.
  size += sizeof(Tag) + kAllocation + StorageOf(reading.tag->attributes());
  for (const NameValuePair& pair : reading.tag->attributes()) {
    size += pair.name.storage_bytes() + pair.value.text_size();
  }
  return size;
}

size_t SiteStore::SizeOf(const Site& site) {
  size_t size = sizeof(Site) + kAllocation + kEntry + site.bytes.storage_bytes() +
                StorageOf(site.pieces) + StorageOf(site.plain_pieces) + StorageOf(site.references) +
                StorageOf(site.readings);
  for (const SiteReference& known : site.references) size += known.reference.name.storage_bytes();
  for (const auto& reading : site.readings) size += SizeOf(*reading);
  return size;
}

size_t SiteStore::SizeOf(const SiteSkip& skip) {
  return sizeof(SiteSkip) - sizeof(TagReading) + kEntry + sizeof(NotedSkip) +
         ReferencesIn(skip.references) + SizeOf(skip.landing);
}

}  // namespace vexa
