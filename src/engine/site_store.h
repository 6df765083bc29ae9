// SiteStore: the sites of one script, by the offset where they begin, and the skips. Nothing in it
// is moved or freed while a request runs, so a site in use stays what it is. Beyond a bound nothing
// more is remembered.

#ifndef VEXA_ENGINE_SITE_STORE_H_
#define VEXA_ENGINE_SITE_STORE_H_

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

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
    NoteValues(*site);
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
  void CountReading(Site& site, const TagReading& reading) {
    size_bytes_ += SizeOf(reading);
    if (site.readings.empty()) with_values_.push_back(&site);
  }
  // Forgets the readings that were made with values which references had: another request has
  // others. REQUIRES: nobody follows the sites.
  void ForgetValues();

  // How far the script was read: what stands before this is learnt when it is read again.
  [[nodiscard]] int64_t& furthest() { return furthest_; }
  [[nodiscard]] size_t size_bytes() const { return size_bytes_; }
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

  void NoteValues(Site& site) {
    if (!site.readings.empty() && site.sole == nullptr) with_values_.push_back(&site);
  }

  std::unordered_map<int64_t, std::unique_ptr<Site>> sites_;
  std::unordered_map<uint64_t, SiteSkip> skips_;
  std::vector<Site*> with_values_;  // that have readings of this kind
  int64_t furthest_ = 0;
  size_t size_bytes_ = 0;
};

}  // namespace vexa

#endif  // VEXA_ENGINE_SITE_STORE_H_
