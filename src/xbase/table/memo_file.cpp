// Reading and appending memo texts; see memo_file.h.

#include "xbase/table/memo_file.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "core/byte_order.h"

namespace vexa {

namespace {

// Most texts are short: the first read takes one block, the next ones more.
constexpr int kLargestChunk = 16 * kMemoBlockSize;

// So many blocks may be counted that are not in the file.
constexpr int64_t kMostMissingBlocks = 65536;

int64_t BlocksOf(int64_t bytes) { return (bytes + kMemoBlockSize - 1) / kMemoBlockSize; }

}  // namespace

MemoFile::MemoFile(std::unique_ptr<File> file, String errorname)
    : file_(std::move(file)), errorname_(std::move(errorname)) {}

int MemoFile::Fail(std::string_view action, std::string_view reason) {
  error_ = String::Concat({"Error ", action, " '", errorname_, "'", reason});
  return 0;
}

int MemoFile::ReadHeader() {
  char header[kMemoBlockSize];
  String reason;
  if (ReadExactly(*file_, 0, header, kMemoBlockSize, reason) == 0) {
    return Fail("reading from", ": " + reason);
  }
  const uint32_t block = Get32(header);
  if (block > INT32_MAX) return Fail("reading from", ": The number of blocks is not possible");
  firstfreeblock_ = static_cast<int>(block);
  return 1;
}

int MemoFile::WriteHeader() {
  char header[kMemoBlockSize] = {};
  Put32(header, static_cast<uint32_t>(firstfreeblock_));
  String reason;
  if (WriteExactly(*file_, 0, header, kMemoBlockSize, reason) == 0) {
    return Fail("writing to", ": " + reason);
  }
  return 1;
}

int MemoFile::ReadHeaderLocked() {
  RangeLock lock;
  if (lock.Take(*file_, FileLockType::Shared, 0, kMemoBlockSize) == 0) {
    return Fail("locking", " for read: " + file_->error());
  }
  return ReadHeader();
}

int MemoFile::LockForWriting() {
  if (lock_.Take(*file_, FileLockType::Exclusive, 0, kMemoBlockSize) == 0) {
    return Fail("locking", " for write: " + file_->error());
  }
  if (ReadHeader() != 0) return 1;
  Unlock();
  return 0;
}

int MemoFile::ReadBlock(int block, String& text) {
  text.clear();
  int64_t offset = static_cast<int64_t>(block) * kMemoBlockSize;
  if (block < 1) return Fail("reading from", ": There is no such block");
  char chunk[kLargestChunk];
  for (int size = kMemoBlockSize;; size = kLargestChunk) {
    const int got = file_->ReadAt(offset, chunk, size);
    if (got < 0) return Fail("reading from", ": " + file_->error());
    if (got == 0) {
      // A text may end with the file, but one that begins there was never written.
      return text.empty() ? Fail("reading from", String(": ") + kUnexpectedEnd) : 1;
    }
    const std::string_view bytes(chunk, static_cast<size_t>(got));
    const size_t end = bytes.find(kMemoEnd);
    const std::string_view part = bytes.substr(0, end);
    if (text.size() + part.size() > String::kLongestText) {
      return Fail("reading from", ": The text is too long");
    }
    text.Reserve(text.size() + part.size());
    text.cat(part);
    if (end != std::string_view::npos) return 1;
    offset += got;
  }
}

int MemoFile::PassStoredBlocks() {
  const int64_t length = file_->Length();
  if (length < 0) return Fail("reading from", ": " + file_->error());
  // After a power cut the header may be ahead of the file, but not by much.
  if (firstfreeblock_ > BlocksOf(length) + kMostMissingBlocks) {
    return Fail("writing to", ": The number of blocks does not fit the file's size");
  }
  // A damaged header must not send a text over those that stand already.
  const int64_t block = std::max<int64_t>({firstfreeblock_, BlocksOf(length), 1});
  if (block > INT32_MAX) return Fail("writing to", ": The file is full");
  firstfreeblock_ = static_cast<int>(block);
  return 1;
}

int MemoFile::WriteBlock(std::string_view text) {
  RangeLock own;
  if (!lock_.held()) {
    if (own.Take(*file_, FileLockType::Exclusive, 0, kMemoBlockSize) == 0) {
      Fail("locking", " for write: " + file_->error());
      return -1;
    }
    if (ReadHeader() == 0) return -1;
  }
  if (PassStoredBlocks() == 0) return -1;
  const int block = firstfreeblock_;
  const char end[] = {kMemoEnd, kMemoEnd};
  const int64_t size = static_cast<int64_t>(text.size()) + 2;
  const int64_t next = block + BlocksOf(size);
  if (next > INT32_MAX || text.size() > String::kLongestText - 2) {
    Fail("writing to", ": The file is full");
    return -1;
  }
  const String bytes = String::Concat({text, std::string_view(end, sizeof end)});
  String reason;
  const int64_t offset = static_cast<int64_t>(block) * kMemoBlockSize;
  if (WriteExactly(*file_, offset, bytes.data(), bytes.length(), reason) == 0) {
    Fail("writing to", ": " + reason);
    return -1;
  }
  firstfreeblock_ = static_cast<int>(next);
  return WriteHeader() != 0 ? block : -1;
}

}  // namespace vexa
