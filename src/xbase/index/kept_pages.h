// KeptPages: inner pages of an index that were read under its lock, without the zeros that fill up
// their keys.
//
// They hold while the lock is held, and longer only where the file's stamp proves that nobody wrote
// to it: the same time and length, and a time that was no longer that of the clock when the pages
// were read. Whenever that cannot be told they are forgotten, and a new epoch begins.

#ifndef VEXA_XBASE_INDEX_KEPT_PAGES_H_
#define VEXA_XBASE_INDEX_KEPT_PAGES_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>

#include "core/file.h"
#include "xbase/index/index_page.h"

namespace vexa {

class KeptPages {
 public:
  // The lock was taken, and the file told `stamp`. Returns whether that proves that the file is
  // what it was under the lock before.
  bool Locked(const FileStamp& stamp);
  // What is known of the file is worth nothing any more.
  void Forget();
  // Never 0. What was read from the file in an epoch is what the file holds until it ends.
  [[nodiscard]] uint32_t epoch() const { return epoch_; }

  // Puts the kept page `number` into `page`; false when it is not here.
  [[nodiscard]] bool Find(uint32_t number, const ZDXIndexShape& shape, ZDXIndexPage& page) const;
  // Keeps a page that was just read, unless it is a leaf: those are many, and seldom met again.
  void Keep(uint32_t number, const char* bytes, const ZDXIndexShape& shape);
  // Whether so many pages were wanted and not here that more should be read at once.
  [[nodiscard]] bool ShouldReadAhead() { return ++missed_ > kMissesAlone; }

 private:
  // Reading more at once pays for who searches often.
  static constexpr int kMissesAlone = 256;

  FileStamp stamp_;
  bool proves_ = false;  // stamp_ was old when the pages were read
  uint32_t epoch_ = 1;
  int missed_ = 0;
  std::string packed_;                             // one page behind the other
  std::unordered_map<uint32_t, uint32_t> places_;  // of pages in packed_
};

}  // namespace vexa

#endif  // VEXA_XBASE_INDEX_KEPT_PAGES_H_
