// Change and FileSwap: the two kinds of changes of a table, carried out in the steps of journal.h.
//
//   Change     writes in place: adding, updating, marking. Step 1 and the gathering are the
//              caller's; steps 2 to 6 are Commit.
//   FileSwap   new files take the places of old ones: packing, creating over a table.
//
// A write that fails takes back what was written: the old bytes, and the table's old header last,
// in one write. When that fails as well the message ends in kNextCompletes.

#ifndef VEXA_XBASE_CHANGE_CHANGE_H_
#define VEXA_XBASE_CHANGE_CHANGE_H_

#include <cstdint>
#include <string>
#include <vector>

#include "core/file.h"
#include "xbase/change/gathered_writes.h"
#include "xbase/change/journal.h"

namespace vexa {

// A file with a header that takes part in a change. Its lock is held.
struct ChangedFile {
  File* file = nullptr;  // borrowed
  String path;           // without links
  String errorname;
  std::string former;          // the header as it is, without mark
  std::string header;          // as it will be, without mark
  int64_t former_length = -1;  // to cut the file to when the change is taken back; -1: not needed
};

// What carrying out a change came to: it failed with nothing changed, or it could not be taken back
// and the next request completes it.
enum class ChangeOutcome { Done, Undone, Unfinished };

class Change {
 public:
  GatheredWrites writes;
  ChangedFile table;
  std::vector<ChangedFile> indexes;
  // Files that step 1 wrote to, to be on the disk first.
  std::vector<File*> written_before;

  // Carries the change out. Unless it is Done the message is in `error`.
  [[nodiscard]] ChangeOutcome Commit(Journal& journal, Durability durability, String& error);

 private:
  using Piece = GatheredWrites::Piece;

  // Whether the change is one write that cannot be torn.
  [[nodiscard]] bool IsOneWrite() const;
  [[nodiscard]] bool WriteInPlace(String& error);
  [[nodiscard]] JournalContent Describe(uint64_t number) const;
  [[nodiscard]] bool WriteAll(uint64_t number, Durability durability, String& error);
  [[nodiscard]] bool TakeBack();
  [[nodiscard]] bool WriteHeader(const ChangedFile& file, const std::string& header, String& error);
  [[nodiscard]] bool WritePiece(const Piece& piece, String& error);
  [[nodiscard]] bool Sync(File& file, const String& errorname, String& error);
  [[nodiscard]] const String& ErrorName(const File* file) const;
  [[nodiscard]] uint32_t FileNumber(const File* file) const;
};

class FileSwap {
 public:
  struct Swap {
    String from;
    String to;
    String errorname;  // of the place it takes
  };

  // `files` is borrowed.
  explicit FileSwap(FileManager& files) : files_(files) {}

  uint64_t number = 0;
  ChangedFile table;            // the old one; its `header` is not used
  std::vector<Swap> swaps;      // the table's first
  std::vector<String> indexes;  // paths of the indexes among them, which are locked
  File* new_table = nullptr;    // bears the mark when NeedsMark
  std::string new_header;       // of the new table, without mark

  // One rename needs no journal.
  [[nodiscard]] bool NeedsMark() const { return swaps.size() > 1; }
  // Carries the swap out. False with the message in `error`; `happened` says whether the new table
  // is in place all the same.
  // REQUIRES: the new files are on the disk; all of the old table is locked.
  [[nodiscard]] bool Commit(Journal& journal, Durability durability, bool& happened, String& error);

 private:
  [[nodiscard]] bool Fail(std::string_view errorname, std::string_view reason, String& error);

  FileManager& files_;
};

}  // namespace vexa

#endif  // VEXA_XBASE_CHANGE_CHANGE_H_
