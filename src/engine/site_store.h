// SiteStore: the sites of one script, by the offset where they begin, and the skips. Nothing in it
// is ever moved or freed, so a site in use stays what it is. Beyond a bound nothing more is
// remembered.

#ifndef VEXA_ENGINE_SITE_STORE_H_
#define VEXA_ENGINE_SITE_STORE_H_

#include <cstdint>
#include <memory>
#include <unordered_map>

#include "engine/site.h"

namespace vexa {

class SiteStore {
 public:
  // The site that begins at that offset, or null.
  [[nodiscard]] Site* Find(int64_t offset) const {
    auto found = sites_.find(offset);
    return found == sites_.end() ? nullptr : found->second.get();
  }
  Site* Add(std::unique_ptr<Site> site) {
    const int64_t offset = site->begin.position;
    size_bytes_ += SizeOf(*site);
    return (sites_[offset] = std::move(site)).get();
  }

  // The skip from that offset to the tags with that number, or null.
  [[nodiscard]] SiteSkip* FindSkip(int64_t offset, uint16_t key) {
    auto found = skips_.find(KeyOf(offset, key));
    return found == skips_.end() ? nullptr : &found->second;
  }
  SiteSkip* AddSkip(int64_t offset, uint16_t key, SiteSkip skip) {
    size_bytes_ += SizeOf(skip);
    return &skips_.insert_or_assign(KeyOf(offset, key), std::move(skip)).first->second;
  }
  // Notes that a tag reads in a further way.
  void CountReading(const TagReading& reading) { size_bytes_ += SizeOf(reading); }

  [[nodiscard]] bool full() const { return size_bytes_ > kMostBytes; }

 private:
  static constexpr size_t kMostBytes = 2u << 20;

  // What one takes with all that it owns, in bytes.
  [[nodiscard]] static size_t SizeOf(const TagReading& reading);
  [[nodiscard]] static size_t SizeOf(const Site& site);
  [[nodiscard]] static size_t SizeOf(const SiteSkip& skip);
  static uint64_t KeyOf(int64_t offset, uint16_t key) {
    return static_cast<uint64_t>(offset) << 16 ^ key;
  }

  std::unordered_map<int64_t, std::unique_ptr<Site>> sites_;
  std::unordered_map<uint64_t, SiteSkip> skips_;
  size_t size_bytes_ = 0;
};

}  // namespace vexa

#endif  // VEXA_ENGINE_SITE_STORE_H_
