// PageStore: the scripts that a process keeps from one request to the next, each with its bytes and
// what was learnt of them (site.h).
//
//   Open        proven -> the page that is kept
//               not, but old enough to be proven later -> read whole, and kept from now on
//               else -> none: the caller reads the file as ever
//   EndRequest  what was learnt with values of the request is forgotten; too much is thrown away
//
// What is kept is of the file alone: bytes, sites, finished expressions. A page prints the same as
// if its file had been opened.

#ifndef VEXA_ENGINE_PAGE_STORE_H_
#define VEXA_ENGINE_PAGE_STORE_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "core/file.h"
#include "core/string.h"
#include "engine/site_store.h"
#include "files/file_proof.h"

namespace vexa {

struct KeptPage {
  String path;
  FileProof proof;
  String text;
  SiteStore sites;
  uint64_t used = 0;         // when it was used last, in requests
  size_t counted_bytes = 0;  // of it in the store's sum
};

class PageStore {
 public:
  // The page at a finished path, where the file is of which `proof` was taken a moment ago; null
  // when it is not to be kept.
  [[nodiscard]] std::shared_ptr<KeptPage> Open(FileManager& files, const String& path,
                                               const FileProof& proof);
  // REQUIRES: no script of the request is there any more.
  void EndRequest();

 private:
  static constexpr int64_t kLargestFile = 1 << 20;
  static constexpr size_t kMostBytes = 32u << 20;

  [[nodiscard]] std::shared_ptr<KeptPage> Load(FileManager& files, const String& path,
                                               const FileProof& proof);
  void ThrowAwayOldest();

  std::unordered_map<std::string_view, std::shared_ptr<KeptPage>> pages_;  // by their own paths
  std::vector<std::shared_ptr<KeptPage>> in_use_;
  uint64_t requests_ = 0;
  size_t bytes_ = 0;
};

// A kept page as a file to read. Nothing else can be done with it.
[[nodiscard]] std::unique_ptr<File> ReadKept(std::shared_ptr<KeptPage> page);

}  // namespace vexa

#endif  // VEXA_ENGINE_PAGE_STORE_H_
