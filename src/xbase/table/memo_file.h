// MemoFile: the texts of a table's memo fields, in blocks of 512 bytes.
//
//   block 0   bytes 0-3: the next free block, little-endian; the rest zero
//   block n   from byte n * 512: a text, followed by 1A 1A; it runs on through the blocks behind
//
// A new file is one block that begins 01 00 00 00. Storing "abc" then writes 61 62 63 1A 1A at byte
// 512 and makes the next free block 2. Texts are only ever appended: blocks are not reused.
//
// Bytes 0-511 are the lock: exclusive from reading the next free block to moving it on. Reading a
// text takes no lock, because a text that a record names does not change any more.
//
// A text is on its place before the header moves on, so a process that dies in between costs
// nothing but the space of that text.

#ifndef VEXA_XBASE_TABLE_MEMO_FILE_H_
#define VEXA_XBASE_TABLE_MEMO_FILE_H_

#include <memory>
#include <string>
#include <string_view>

#include "core/file_access.h"

namespace vexa {

inline constexpr int kMemoBlockSize = 512;
inline constexpr char kMemoEnd = 0x1A;

// The extensions of memo files; a new one gets the first.
inline constexpr std::string_view kMemoExtensions[] = {".dbt", ".DBT"};
// The extension of the memo file of the table at `path`: in capitals when the table's is, as some
// programs write both, and only such a file is there.
[[nodiscard]] std::string_view MemoExtensionOf(FileManager& files, const String& path);

// Operations return true; false with the message in error().
class MemoFile {
 public:
  // `errorname` is the name used in messages.
  MemoFile(std::unique_ptr<File> file, String errorname);
  MemoFile(const MemoFile&) = delete;
  MemoFile& operator=(const MemoFile&) = delete;

  // Takes the next free block from the header.
  [[nodiscard]] bool ReadHeader();
  [[nodiscard]] bool WriteHeader();
  // Reads the header under a shared lock.
  [[nodiscard]] bool ReadHeaderLocked();
  // Reads the header under the exclusive lock and keeps the lock until Unlock. Replaced: another
  // file, or none, stands at its path, and texts stored here would be lost.
  [[nodiscard]] LockOutcome LockForWriting();
  void Unlock() { lock_.Release(); }

  // Reads the text that begins at `block`, up to its first byte 1A.
  [[nodiscard]] bool ReadBlock(int block, String& text);
  // Reads the bytes that are stored from `block` on: up to the two bytes 1A 1A, or up to block
  // `next` or the end of the file. Other programs keep there what is no text.
  [[nodiscard]] bool ReadStored(int block, int64_t next, std::string& bytes);
  // Stores `text`; its block number, or -1. Takes the lock for it unless it is held already.
  [[nodiscard]] int WriteBlock(std::string_view text);

  [[nodiscard]] int firstfreeblock() const { return firstfreeblock_; }
  void SetFirstFreeBlock(int block) { firstfreeblock_ = block; }
  [[nodiscard]] File& file() { return *file_; }
  [[nodiscard]] const String& error() const { return error_; }

 private:
  // Words the message; returns false.
  bool Fail(std::string_view action, std::string_view reason);
  // Moves firstfreeblock_ behind everything that is stored.
  [[nodiscard]] bool PassStoredBlocks();

  std::unique_ptr<File> file_;
  String errorname_;
  String error_;
  int firstfreeblock_ = 1;
  RangeLock lock_;
};

}  // namespace vexa

#endif  // VEXA_XBASE_TABLE_MEMO_FILE_H_
