// ZDXIndexFile: a B-tree of keys and record numbers in a file of pages (index_header.h,
// index_page.h). Every key stands once in the tree, in an inner page or in a leaf.
//
// Bytes 0-426 are the lock, shared to search and step, exclusive to insert and delete. Under it the
// header is read again, and the open file is compared with the one its path names, because building
// an index anew puts another file in its place. LockExclusive keeps the lock over several
// operations.
//
// As part of a change of its table (xbase/change) the pages are gathered instead of written, and
// the header with them. An index whose header bears the mark of a change is refused until that
// change is finished: unfinished() tells that from other failures.
//
// On its own an index is written page by page. Pages are written in an order that never takes a key
// out of reach: pages that nothing refers to first, then the page or header that refers to them,
// then the pages that gave keys away. A process that dies in between leaves keys that stand twice,
// which the checker reports, but no key missing.
//
// The cursor is a stack of pages. A step first makes sure that the pages it relies on are still
// what the file holds, and searches its entry again when they are not; so other processes may
// change the tree during a walk.
//
// Searches under a shared lock keep inner pages for those that follow (kept_pages.h).
//
// Nothing in a file is believed: page numbers, entry counts and cycles are checked on every way
// down, and walks end after as many entries as the file has room for.
//
// Operations return 1 or true, or else 0 or false with the message in error(). Walks give record
// number 0 when there is no entry to go to.

#ifndef VEXA_XBASE_INDEX_INDEX_FILE_H_
#define VEXA_XBASE_INDEX_INDEX_FILE_H_

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "core/file.h"
#include "core/file_access.h"
#include "xbase/change/change.h"
#include "xbase/index/index_header.h"
#include "xbase/index/index_key.h"
#include "xbase/index/index_page.h"
#include "xbase/index/kept_pages.h"

namespace vexa {

// What an index is made with.
struct ZDXIndexSpec {
  String keyexpression;
  uint32_t flags = 0;
  ZDXIndexShape shape = {};
};

class ZDXIndexFile {
 public:
  // `files` is borrowed and must outlive the index file.
  explicit ZDXIndexFile(FileManager& files) : files_(files) {}
  ZDXIndexFile(const ZDXIndexFile&) = delete;
  ZDXIndexFile& operator=(const ZDXIndexFile&) = delete;

  [[nodiscard]] int Open(const String& path, const String& errorpath, int mode);
  // Makes an empty index, in the place of any that is there, and opens it. No file is left when
  // that fails.
  [[nodiscard]] int Create(const String& path, const String& errorpath, const ZDXIndexSpec& spec);
  // The same in a file that is open already at `path`.
  [[nodiscard]] int Create(std::unique_ptr<File> file, const String& path, const String& errorpath,
                           const ZDXIndexSpec& spec);
  void Close();

  // The underscore sets the walks apart from those of XBaseIndex, which word failures.
  [[nodiscard]] int _First(uint32_t& recordnum);
  [[nodiscard]] int _Last(uint32_t& recordnum);
  // One entry on or back. At the end the cursor stays where it is.
  [[nodiscard]] int _Next(uint32_t& recordnum);
  [[nodiscard]] int _Prev(uint32_t& recordnum);
  // Goes to the first entry whose key is not less than `key`. With `exact` 0, to the first that
  // begins with `key`; when `key` is wholly a number and the index compares numbers, to the first
  // with an equal number if there is one. Without such an entry there is no cursor.
  [[nodiscard]] int _Find(std::string_view key, int exact, uint32_t& recordnum);
  // Goes to the entry of this key and record number; `found` says whether there is one.
  [[nodiscard]] int _Seek(std::string_view key, uint32_t recordnum, bool& found);
  // Whether the entry under the cursor compares equal to `key`.
  [[nodiscard]] bool CursorEquals(std::string_view key) const;
  // The key under the cursor; empty without one.
  [[nodiscard]] String CursorKey() const;

  // Keys are cut to what an entry holds, and at a NUL. Both keep the cursor's entry, if it is still
  // there, for the next step.
  [[nodiscard]] int Insert(uint32_t recordnum, std::string_view key);
  [[nodiscard]] int Delete(uint32_t recordnum, std::string_view key);
  // Returns true, or false with the message of Insert when the index is unique and holds `key` for
  // another record.
  [[nodiscard]] bool CheckUnique(std::string_view key, uint32_t recordnum);

  // Takes the exclusive lock and keeps it until Unlock or Close. Not nested. An index that bears a
  // mark is refused unless marks are Ignored, by who builds it anew. Returns true, or false with
  // the message in error().
  enum class Marks { Refused, Ignored };
  [[nodiscard]] bool LockExclusive(Marks marks = Marks::Refused);
  void Unlock();

  // From now on pages are read through `gathered`, and what changes is gathered there.
  // REQUIRES: the lock of LockExclusive is held. Unlock ends it; `gathered` must live until then.
  void Gather(GatheredWrites& gathered);
  [[nodiscard]] bool gathering() const { return gathered_ != nullptr; }
  // What the gathered changes make of the header. False when nothing changed.
  [[nodiscard]] bool DescribeChange(ChangedFile& file) const;
  // What was gathered is in the file now.
  void Committed();

  // Takes over `file`, which stands at the path of this index by now. A lock on the former one
  // goes.
  void Adopt(std::unique_ptr<File> file);
  // The file has been renamed to `path`.
  void Renamed(const String& path) { path_ = path; }
  // Whether the header last read bears a mark.
  [[nodiscard]] bool marked() const { return MarkOfIndex(header_bytes_) != 0; }
  // Whether an operation failed because the index bears the mark of an unfinished change.
  [[nodiscard]] bool unfinished() const { return unfinished_; }
  void ForgetUnfinished() { unfinished_ = false; }

  // How two keys stand in an index with these flags; see SearchKey.
  [[nodiscard]] static int Compare(std::string_view searchkey, std::string_view pagekey, int exact,
                                   uint32_t flags);
  // -1, 0 or 1 in `order` when both keys are numbers; false when one is not.
  [[nodiscard]] static bool NumberCompare(std::string_view a, std::string_view b, int& order);

  // From the header last read.
  [[nodiscard]] const ZDXIndexHeader& header() const { return header_; }
  [[nodiscard]] const String& keyexpression() const { return header_.keyexpression; }
  [[nodiscard]] uint32_t flags() const { return header_.flags; }
  [[nodiscard]] uint32_t numpages() const { return header_.numpages; }
  [[nodiscard]] uint32_t startingpage() const { return header_.startingpage; }
  [[nodiscard]] uint32_t updatecount() const { return header_.updatecount; }
  [[nodiscard]] bool is_open() const { return file_ != nullptr; }
  [[nodiscard]] const String& error() const { return error_; }

  // The message that `key` is there already.
  [[nodiscard]] static String UniqueMessage(std::string_view errorpath, std::string_view key);

 private:
  enum class Direction { Forward, Backward };
  // Whether the pages on the stack may have changed in the file.
  enum class Trust { Fresh, Verify };
  // What a move along the stack came to.
  enum class Move { Failed, Done, Changed };

  // Messages. Each returns false.
  bool Fail(std::string_view action, std::string_view reason);
  bool FailCorrupt();
  bool FailNotAnIndex();

  // index_file.cpp
  [[nodiscard]] bool Enter(RangeLock& lock, FileLockType type, Marks marks = Marks::Refused);
  [[nodiscard]] bool RefuseMark();
  [[nodiscard]] bool TakeLock(RangeLock& lock, FileLockType type);
  [[nodiscard]] int ReadHeader();
  [[nodiscard]] bool ReadHeaderOf(File& file, ZDXIndexHeader& header, std::string& bytes);
  [[nodiscard]] int WriteHeader();
  [[nodiscard]] int ReadPage(uint32_t number, ZDXIndexPage& page);
  // The same under a shared lock: from those that are kept, if it is there.
  [[nodiscard]] int ReadSharedPage(uint32_t number, ZDXIndexPage& page);
  void ReadAhead(uint32_t number);
  // Words what reading a page came to.
  [[nodiscard]] int PageResult(int result, const String& reason);
  [[nodiscard]] int WritePage(const ZDXIndexPage& page);
  [[nodiscard]] bool OpenFile(std::unique_ptr<File>& file, ZDXIndexHeader& header);
  [[nodiscard]] std::string_view CutKey(std::string_view key) const;

  // index_walk.cpp
  [[nodiscard]] int PushPage(uint32_t number);
  [[nodiscard]] bool DescendFirst(uint32_t page);
  [[nodiscard]] bool DescendLast(uint32_t page);
  [[nodiscard]] bool Descend(const SearchKey& key);
  [[nodiscard]] Move SettleForward(Trust trust);
  [[nodiscard]] Move SettleBackward(Trust trust);
  [[nodiscard]] Move Advance(Direction direction, Trust trust);
  [[nodiscard]] bool AdvanceFresh(Direction direction);
  [[nodiscard]] bool GoToEnd(Direction direction);
  [[nodiscard]] bool Step(Direction direction, uint32_t& recordnum);
  [[nodiscard]] bool StepAfresh(Direction direction, uint32_t& recordnum);
  [[nodiscard]] bool SeekEntry(std::string_view key, uint32_t recordnum, bool& found);
  [[nodiscard]] bool ScanNumbers(std::string_view prefix);
  [[nodiscard]] bool DescendToPrefix(std::string_view prefix);
  [[nodiscard]] bool Reenter(RangeLock& lock);
  void BeginStack();
  void ProveStack();
  [[nodiscard]] Move TopIsUnchanged();
  [[nodiscard]] bool CountStep(Direction direction);
  [[nodiscard]] bool EntriesInFile(uint64_t& count);
  void Arrive(uint32_t& recordnum);
  void DropCursor();
  void KeepCursorEntry();
  [[nodiscard]] bool OnEntry() const { return !stack_.empty(); }

  // index_insert.cpp
  [[nodiscard]] int DoInsert(ZDXIndexEntry entry);
  [[nodiscard]] bool DescendToInsert(const ZDXIndexEntry& entry);
  [[nodiscard]] bool AllocatePage(uint32_t& number);
  void Split(ZDXIndexPage& page, ZDXIndexPage& newpage, ZDXIndexEntry& promoted) const;
  [[nodiscard]] bool WriteInsertion(const std::vector<ZDXIndexPage>& created, size_t first_changed,
                                    uint32_t newroot);

  // index_delete.cpp
  [[nodiscard]] int DoDelete(std::string_view key, uint32_t recordnum);
  [[nodiscard]] bool FindToDelete(std::string_view key, uint32_t recordnum);
  [[nodiscard]] bool ReplaceByPredecessor();
  [[nodiscard]] bool RepairUnderflow();
  [[nodiscard]] int HandleUnderflow(ZDXIndexPage& page, ZDXIndexPage& parent);
  [[nodiscard]] bool ReadSibling(uint32_t number, ZDXIndexPage& sibling);
  [[nodiscard]] bool RedistributeFromLeft(ZDXIndexPage& left, ZDXIndexPage& page,
                                          ZDXIndexPage& parent);
  [[nodiscard]] bool RedistributeFromRight(ZDXIndexPage& page, ZDXIndexPage& right,
                                           ZDXIndexPage& parent);
  [[nodiscard]] int Concatenate(ZDXIndexPage& left, ZDXIndexPage& right, ZDXIndexPage& parent,
                                uint32_t separator);
  [[nodiscard]] bool ShrinkRoot();
  [[nodiscard]] uint32_t FewestKeys() const;

  FileManager& files_;
  std::unique_ptr<File> file_;
  RangeLock held_;                // by LockExclusive; declared behind the file, so given back first
  bool header_is_stale_ = false;  // while held_: a write failed half way
  std::string header_bytes_;      // the header as the file holds it, with its mark
  GatheredWrites* gathered_ = nullptr;
  ZDXIndexHeader former_header_;  // while gathering: as it was before
  bool unfinished_ = false;
  int mode_ = 0;
  String path_;
  String errorpath_;
  String error_;
  ZDXIndexHeader header_;

  // The cursor. Its entry is the one on top of the stack, or `position_` once the stack no longer
  // says where the entry is.
  bool positioned_ = false;
  bool stack_is_cursor_ = false;
  ZDXIndexPageStack stack_;
  // Whether the pages on the stack are those of the file as long as its stamp is this one. A stamp
  // that is younger than a tick of the system's clock proves nothing.
  bool proven_ = false;
  FileStamp stack_stamp_;
  FileStamp lock_stamp_;  // of the file when the lock was taken last
  ZDXIndexEntry position_;
  ZDXIndexPage scratch_;
  KeptPages kept_;
  bool reads_only_ = false;    // the lock taken last is shared
  bool unchanged_ = false;     // it found the file as it was under the lock before
  uint32_t header_epoch_ = 0;  // of kept_, when header_ was read
  size_t levels_ = 0;          // from root to leaves, as far as is known
  // Steps since the cursor was set or turned round, to notice a walk without end.
  Direction direction_ = Direction::Forward;
  uint64_t steps_ = 0;
  uint64_t most_steps_ = 0;
};

}  // namespace vexa

#endif  // VEXA_XBASE_INDEX_INDEX_FILE_H_
