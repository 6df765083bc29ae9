// Keeping scripts.

#include "engine/page_store.h"

#include <fcntl.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "files/descriptor.h"

namespace vexa {

namespace {

// The bytes of a kept page behind the interface of files.
class KeptFile final : public File {
 public:
  explicit KeptFile(std::shared_ptr<KeptPage> page) : page_(std::move(page)) {}

  int ReadAt(int64_t offset, char* buffer, int count) override {
    const std::string_view text = page_->text;
    const size_t begin = std::min(static_cast<size_t>(std::max<int64_t>(offset, 0)), text.size());
    const size_t length = std::min(static_cast<size_t>(count), text.size() - begin);
    std::memcpy(buffer, text.data() + begin, length);
    return static_cast<int>(length);
  }
  int Read(char* buffer, int count) override {
    const int length = ReadAt(offset_, buffer, count);
    offset_ += length;
    return length;
  }
  int64_t Seek(int64_t offset) override { return offset_ = offset; }
  int64_t Tell() override { return offset_; }
  int64_t Length() override { return static_cast<int64_t>(page_->text.size()); }
  int Write(const char*, int) override { return -1; }
  int Lock(FileLockType, int64_t, int64_t) override { return -1; }
  int TryLock(FileLockType, int64_t, int64_t) override { return -1; }
  int Release(int64_t, int64_t) override { return -1; }
  int WriteAt(int64_t, const char*, int) override { return -1; }
  int Truncate(int64_t) override { return -1; }
  int Sync() override { return -1; }
  int Touch() override { return -1; }
  int Status(struct stat&) override { return -1; }
  void KeepOpen() override {}
  int StillNamed(NameCheck, FileStamp&) override { return -1; }
  const String& error() const override { return error_; }

 private:
  std::shared_ptr<KeptPage> page_;
  int64_t offset_ = 0;
  String error_;
};

}  // namespace

std::unique_ptr<File> ReadKept(std::shared_ptr<KeptPage> page) {
  return std::make_unique<KeptFile>(std::move(page));
}

std::shared_ptr<KeptPage> PageStore::Open(FileManager& files, const String& path,
                                          const FileProof& proof) {
  const auto found = pages_.find(path);
  std::shared_ptr<KeptPage> page = found == pages_.end() ? nullptr : found->second;
  if (page == nullptr || page->proof != proof) page = Load(files, path, proof);
  if (page == nullptr) return nullptr;
  page->used = requests_;
  if (std::find(in_use_.begin(), in_use_.end(), page) == in_use_.end()) in_use_.push_back(page);
  return page;
}

// Reads the file whole. It must have been what `proof` says before and after.
std::shared_ptr<KeptPage> PageStore::Load(FileManager& files, const String& path,
                                          const FileProof& proof) {
  if (proof.length > kLargestFile || !proof.Settled()) return nullptr;
  struct stat status;
  const int descriptor = files.OpenDescriptor(path, O_RDONLY, 0);
  if (descriptor < 0) return nullptr;
  auto page = std::make_shared<KeptPage>();
  page->path = path;
  page->proof = proof;
  std::vector<char> bytes(static_cast<size_t>(proof.length));
  const bool read = ::fstat(descriptor, &status) == 0 && FileProof(status) == proof &&
                    ReadFully(descriptor, bytes.data(), bytes.size()) == proof.length &&
                    ::fstat(descriptor, &status) == 0 && FileProof(status) == proof;
  CloseQuietly(descriptor);
  if (!read) return nullptr;
  page->text = std::string_view(bytes.data(), bytes.size());
  if (const auto former = pages_.find(path); former != pages_.end()) {
    bytes_ -= former->second->counted_bytes;
    pages_.erase(former);
  }
  pages_.emplace(page->path, page);
  return page;
}

void PageStore::EndRequest() {
  for (const auto& page : in_use_) {
    page->sites.ForgetValues();
    const auto kept = pages_.find(page->path);
    if (kept == pages_.end() || kept->second != page) continue;  // Another took its place.
    const size_t bytes = sizeof(KeptPage) + page->text.size() + page->sites.size_bytes();
    bytes_ += bytes - page->counted_bytes;
    page->counted_bytes = bytes;
  }
  in_use_.clear();
  ++requests_;
  while (bytes_ > kMostBytes) ThrowAwayOldest();
}

void PageStore::ThrowAwayOldest() {
  const auto oldest = std::min_element(
      pages_.begin(), pages_.end(),
      [](const auto& a, const auto& b) { return a.second->used < b.second->used; });
  bytes_ -= oldest->second->counted_bytes;
  pages_.erase(oldest);
}

}  // namespace vexa
