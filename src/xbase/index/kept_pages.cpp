// Pages in memory between searches; see kept_pages.h.

#include "xbase/index/kept_pages.h"

#include "core/file_access.h"

namespace vexa {

namespace {

constexpr size_t kMostBytes = 1 << 20;

}  // namespace

bool KeptPages::Locked(const FileStamp& stamp) {
  const bool unchanged = proves_ && stamp == stamp_;
  if (!unchanged) Forget();
  stamp_ = stamp;
  proves_ = IsOld(stamp);
  return unchanged;
}

void KeptPages::Forget() {
  if (++epoch_ == 0) epoch_ = 1;
  proves_ = false;
  packed_.clear();
  places_.clear();
}

bool KeptPages::Find(uint32_t number, const ZDXIndexShape& shape, ZDXIndexPage& page) const {
  const auto place = places_.find(number);
  if (place == places_.end()) return false;
  page.Unpack(number, shape, packed_.data() + place->second);
  return true;
}

void KeptPages::Keep(uint32_t number, const char* bytes, const ZDXIndexShape& shape) {
  if (packed_.size() > kMostBytes) {
    packed_.clear();
    places_.clear();
  }
  const auto place = static_cast<uint32_t>(packed_.size());
  if (ZDXIndexPage::Pack(bytes, shape, packed_)) places_[number] = place;
}

}  // namespace vexa
