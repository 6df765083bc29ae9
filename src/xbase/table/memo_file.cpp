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

std::string_view MemoExtensionOf(FileManager& files, const String& path) {
  const auto named = [&](std::string_view extension) {
    return String::Concat({files.StripExtension(path), extension});
  };
  const auto [lower, upper] = kMemoExtensions;
  const bool only_upper =
      path.view().ends_with(".DBF") && !files.Exists(named(lower)) && files.Exists(named(upper));
  return only_upper ? upper : lower;
}

MemoFile::MemoFile(std::unique_ptr<File> file, String errorname)
    : file_(std::move(file)), errorname_(std::move(errorname)) {}

bool MemoFile::Fail(std::string_view action, std::string_view reason) {
  error_ = String::Concat({"Error ", action, " '", errorname_, "'", reason});
  return false;
}

bool MemoFile::ReadHeader() {
  char header[kMemoBlockSize];
  String reason;
  if (!ReadExactly(*file_, 0, header, kMemoBlockSize, reason)) {
    return Fail("reading from", ": " + reason);
  }
  const uint32_t block = Get32(header);
  if (block > INT32_MAX) return Fail("reading from", ": The number of blocks is not possible");
  firstfreeblock_ = static_cast<int>(block);
  return true;
}

bool MemoFile::WriteHeader() {
  char header[kMemoBlockSize] = {};
  Put32(header, static_cast<uint32_t>(firstfreeblock_));
  String reason;
  if (!WriteExactly(*file_, 0, header, kMemoBlockSize, reason)) {
    return Fail("writing to", ": " + reason);
  }
  return true;
}

bool MemoFile::ReadHeaderLocked() {
  RangeLock lock;
  if (!lock.Take(*file_, FileLockType::Shared, 0, kMemoBlockSize)) {
    return Fail("locking", " for read: " + file_->error());
  }
  return ReadHeader();
}

LockOutcome MemoFile::LockForWriting() {
  String reason;
  const LockOutcome outcome =
      lock_.TakeNamed(*file_, FileLockType::Exclusive, 0, kMemoBlockSize, reason);
  if (outcome == LockOutcome::Failed) (void)Fail("locking", " for write: " + reason);
  if (outcome != LockOutcome::Taken || ReadHeader()) return outcome;
  Unlock();
  return LockOutcome::Failed;
}

bool MemoFile::ReadBlock(int block, String& text) {
  text.clear();
  int64_t offset = static_cast<int64_t>(block) * kMemoBlockSize;
  if (block < 1) return Fail("reading from", ": There is no such block");
  char chunk[kLargestChunk];
  for (int size = kMemoBlockSize;; size = kLargestChunk) {
    const int got = file_->ReadAt(offset, chunk, size);
    if (got < 0) return Fail("reading from", ": " + file_->error());
    if (got == 0) {
      // A text may end with the file, but one that begins there was never written.
      return !text.empty() || Fail("reading from", String(": ") + kUnexpectedEnd);
    }
    const std::string_view bytes(chunk, static_cast<size_t>(got));
    const size_t end = bytes.find(kMemoEnd);
    const std::string_view part = bytes.substr(0, end);
    if (text.size() + part.size() > String::kLongestText) {
      return Fail("reading from", ": The text is too long");
    }
    text.Append(part);
    if (end != std::string_view::npos) return true;
    offset += got;
  }
}

bool MemoFile::ReadStored(int block, int64_t next, std::string& bytes) {
  constexpr std::string_view kEnd("\x1A\x1A", 2);
  bytes.clear();
  int64_t offset = static_cast<int64_t>(block) * kMemoBlockSize;
  const int64_t limit = std::max(next, int64_t{block} + 1) * kMemoBlockSize;
  if (block < 1) return Fail("reading from", ": There is no such block");
  while (offset < limit) {
    char chunk[kLargestChunk];
    const auto size = static_cast<int>(std::min<int64_t>(kLargestChunk, limit - offset));
    const int got = file_->ReadAt(offset, chunk, size);
    if (got < 0) return Fail("reading from", ": " + file_->error());
    // What begins behind the end of the file was never written.
    if (got == 0 && bytes.empty()) {
      return Fail("reading from", String(": ") + kUnexpectedEnd);
    }
    if (got == 0) return true;
    const size_t behind = bytes.empty() ? 0 : bytes.size() - 1;
    bytes.append(chunk, static_cast<size_t>(got));
    const size_t end = bytes.find(kEnd, behind);
    if (end != std::string::npos) {
      bytes.resize(end);
      return true;
    }
    if (bytes.size() > String::kLongestText) {
      return Fail("reading from", ": The text is too long");
    }
    offset += got;
  }
  return true;
}

bool MemoFile::PassStoredBlocks() {
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
  return true;
}

int MemoFile::WriteBlock(std::string_view text) {
  RangeLock own;
  if (!lock_.held()) {
    if (!own.Take(*file_, FileLockType::Exclusive, 0, kMemoBlockSize)) {
      (void)Fail("locking", " for write: " + file_->error());
      return -1;
    }
    if (!ReadHeader()) return -1;
  }
  if (!PassStoredBlocks()) return -1;
  const int block = firstfreeblock_;
  const char end[] = {kMemoEnd, kMemoEnd};
  const int64_t size = static_cast<int64_t>(text.size()) + 2;
  const int64_t next = block + BlocksOf(size);
  if (next > INT32_MAX || text.size() > String::kLongestText - 2) {
    (void)Fail("writing to", ": The file is full");
    return -1;
  }
  const String bytes = String::Concat({text, std::string_view(end, sizeof end)});
  String reason;
  const int64_t offset = static_cast<int64_t>(block) * kMemoBlockSize;
  if (!WriteExactly(*file_, offset, bytes.data(), bytes.length(), reason)) {
    (void)Fail("writing to", ": " + reason);
    return -1;
  }
  firstfreeblock_ = static_cast<int>(next);
  return WriteHeader() ? block : -1;
}

}  // namespace vexa
