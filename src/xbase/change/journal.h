// The journal: what makes a change of a table whole when the process that made it is gone.
//
// A change of a table, its memo file and its open indexes is written in this order, under all locks
// it needs, which are taken first and kept to the end:
//
//   1  memo texts and a new record, which nothing names yet; or the new files of a pack or creation
//   2  the journal: a random number, and all that step 4 does
//   3  the table's header with the new count, the date, and the number as its mark:
//      from here on the change counts
//   4  index headers with the mark, then their pages, then the record; or the renames
//   5  index headers without the mark
//   6  the table's header without the mark
//
// One write in place inside one page of 4,096 bytes, which happens wholly or not at all, needs no
// journal; the date of the last update does not count.
//
// Who reads a header reads it under a lock, and a change holds the locks of all headers that it
// marks. So whoever finds a mark stands before a change whose process is gone, and finishes it
// (completion.h) before anything else is read or written. A journal is never emptied: it means
// something only while the table bears its number. A mark whose number the journal lacks, as in a
// copy or a restored backup of a table, is none. An index that bears a mark its table lacks is made
// anew before it is used.
//
// Other programs see a valid table all the time: the mark stands in bytes of the header that are
// reserved, and a record is in its place before it is counted.
//
//   offset  width  content (all numbers unsigned, little-endian)
//   0       8      "VxChange"
//   8       8      the number of the change, not zero
//   16      8      bytes of the journal, checksum included; what follows is left from another
//   change 24      4      number of indexes, then that many:
//           2, n     path from the table's directory, with its length
//           435      the header as it was before the change
//           4      number of places, then that many:
//           4        file: 0 the table, else an index from 1 in the order above
//           8        offset
//           4, n     bytes, with their count; at offset 0 of an index its new header, without mark
//           4      number of swaps, then that many, in the order in which they are done:
//           2, n     name of a new file, from the table's directory
//           2, n     name that it takes
//   end-8   8      checksum (FNV-1a, 64 bits) of all before it
//
// The journal of /srv/data/t.dbf is /srv/data/t.dbf-journal; of a table that is a symbolic link it
// stands beside the file that the link leads to, so that all who use the table find the same one.

#ifndef VEXA_XBASE_CHANGE_JOURNAL_H_
#define VEXA_XBASE_CHANGE_JOURNAL_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "core/file.h"

namespace vexa {

// Where the marks stand, and how much of either file is its header.
inline constexpr size_t kMarkSize = 8;
inline constexpr size_t kTableMark = 20;
inline constexpr size_t kMarkedTableHeader = 32;
inline constexpr size_t kIndexMark = 427;
inline constexpr size_t kMarkedIndexHeader = 435;
// The bytes of an index file that are its lock.
inline constexpr int64_t kIndexLockSize = 427;

inline constexpr char kUnfinishedChange[] = "An unfinished change must be completed first";
// What a message ends in when a change could be neither finished nor taken back.
inline constexpr char kNextCompletes[] = " (the next request completes the change)";

[[nodiscard]] uint64_t MarkOfTable(std::string_view header);
[[nodiscard]] uint64_t MarkOfIndex(std::string_view header);
// `header` with its mark set to `number`; 0 for none.
[[nodiscard]] std::string MarkedTable(std::string_view header, uint64_t number);
[[nodiscard]] std::string MarkedIndex(std::string_view header, uint64_t number);

struct JournalContent {
  struct Index {
    String path;              // finished
    std::string_view former;  // kMarkedIndexHeader bytes
  };
  struct Place {
    uint32_t file;  // 0 the table, else indexes[file - 1]
    int64_t offset;
    std::string_view bytes;  // those that change
  };
  struct Swap {
    String from;  // finished paths
    String to;
  };
  std::string storage;  // what the views of a journal that was read look at
  uint64_t number = 0;
  std::vector<Index> indexes;
  std::vector<Place> places;
  std::vector<Swap> swaps;
};

// A number for a change, never 0. False when the system has none.
[[nodiscard]] bool NewChangeNumber(uint64_t& number);
// The same for who makes many changes. Not to be shared with a process that is forked off.
class ChangeNumbers {
 public:
  [[nodiscard]] bool Next(uint64_t& number);

 private:
  std::array<uint64_t, 32> numbers_;
  size_t left_ = 0;
  bool drawn_ = false;
};

// The name of a file that is made for change `number` beside the one at `path`.
[[nodiscard]] String NewFileName(const String& path, uint64_t number);

[[nodiscard]] String JournalPath(const String& table);
// The bytes of a journal. `table` is the table's path without links.
[[nodiscard]] std::string EncodeJournal(const JournalContent& content, const String& table);
// False when they are no journal.
[[nodiscard]] bool DecodeJournal(std::string bytes, const String& table, JournalContent& content);

// What reading the journal of a table came to.
enum class JournalState { Found, Missing, Unreadable };
// Missing also stands for a file that is no whole journal. `reason` is set when it is Unreadable.
[[nodiscard]] JournalState ReadJournal(FileManager& files, const String& table,
                                       JournalContent& content, String& reason);

// Whether changes wait for the disk.
enum class Durability { None, PowerCut };

// The journal of one table, open for writing from the first change on.
class Journal {
 public:
  // `files` is borrowed and must outlive the journal.
  explicit Journal(FileManager& files) : files_(files) {}

  // Writes `content`. `table` is the table's path without links, `errorname` its name in messages.
  // False with the message in `error`; nothing has changed then.
  // REQUIRES: the table's header is locked and bears no mark.
  [[nodiscard]] bool Write(const JournalContent& content, const String& table,
                           const String& errorname, Durability durability, String& error);
  [[nodiscard]] ChangeNumbers& numbers() { return numbers_; }
  void Close() { file_.reset(); }

 private:
  [[nodiscard]] bool Open(const String& table, Durability durability, String& reason);

  FileManager& files_;
  std::unique_ptr<File> file_;
  ChangeNumbers numbers_;
};

}  // namespace vexa

#endif  // VEXA_XBASE_CHANGE_JOURNAL_H_
