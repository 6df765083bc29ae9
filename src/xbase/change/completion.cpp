// Reading a journal back and doing what it says; see completion.h.
//
// Everything is done again, whatever the dead process had come to: writing the same bytes twice
// changes nothing, and a file that was renamed is not there any more. Only an index that bears the
// mark, or its header of before the change, is written to: one that was restored from a backup, or
// is through with this change, is left alone. Count and date of the table stay as they are, because
// other programs may have added records since.

#include "xbase/change/completion.h"

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "core/file_access.h"

namespace vexa {

namespace {

constexpr int kOpenMode = OpenRead | OpenWrite;
// A place of a journal may lie so far behind the end of its file: what was lost was pages of it.
constexpr int64_t kMostMissing = int64_t{64} << 20;

// A file that is open and locked.
struct LockedFile {
  std::unique_ptr<File> file;
  RangeLock lock;  // declared behind the file, so given back first
};

class Completer {
 public:
  Completer(const Completion& completion, String& error) : to_(completion), error_(error) {}

  bool Run() {
    for (int i = 0; i < kMostReplacements; ++i) {
      const Step step = Once();
      if (step != Step::Again) return step == Step::Done;
    }
    return Fail("The table is replaced again and again");
  }

 private:
  enum class Step { Done, Failed, Again };

  bool Fail(std::string_view reason) {
    error_ = String::Concat({"Error writing to '", to_.errorname, "': ", reason});
    return false;
  }
  Step Failed(std::string_view reason) {
    (void)Fail(reason);
    return Step::Failed;
  }

  // Opens and locks the file that `path` names.
  LockOutcome Lock(const String& path, int64_t length, LockedFile& locked, String& reason) {
    LockOutcome outcome = LockOutcome::Replaced;
    for (int i = 0; outcome == LockOutcome::Replaced && i < kMostReplacements; ++i) {
      locked.lock.Release();
      locked.file = to_.files.Open(path, kOpenMode);
      if (locked.file == nullptr) {
        reason = to_.files.error();
        return LockOutcome::Failed;
      }
      outcome = locked.lock.TakeNamed(*locked.file, FileLockType::Exclusive, 0, length, reason);
    }
    return outcome;
  }

  // The mark of the table that is open as `file`. False with the cause in `reason`.
  static bool ReadMark(File& file, uint64_t& mark, String& reason) {
    char header[kMarkedTableHeader];
    if (!ReadExactly(file, 0, header, sizeof header, reason)) return false;
    mark = MarkOfTable({header, sizeof header});
    return true;
  }

  Step Once() {
    String reason;
    // 1. What is to be done, and to which files.
    JournalContent planned;
    switch (ReadJournal(to_.files, to_.table, planned, reason)) {
      case JournalState::Missing:
        return Step::Done;
      case JournalState::Unreadable:
        return Failed(kUnfinishedChange);
      case JournalState::Found:
        break;
    }
    // 2. The locks, in the order in which all take them.
    std::vector<LockedFile> indexes(planned.indexes.size());
    if (!LockIndexes(planned, indexes)) return Step::Failed;
    LockedFile table;
    if (Lock(to_.table, 0, table, reason) != LockOutcome::Taken) return Failed(reason);
    // 3. Somebody else may have done it meanwhile, and the next change may have begun.
    uint64_t mark;
    if (!ReadMark(*table.file, mark, reason)) return Failed(reason);
    JournalContent content;
    if (ReadJournal(to_.files, to_.table, content, reason) != JournalState::Found ||
        mark != content.number) {
      return Step::Done;
    }
    if (content.number != planned.number) return Step::Again;
    // 4. The change.
    return Finish(content, indexes, table) ? Step::Done : Step::Failed;
  }

  bool LockIndexes(const JournalContent& content, std::vector<LockedFile>& indexes) {
    std::vector<size_t> order(content.indexes.size());
    for (size_t i = 0; i < order.size(); ++i) order[i] = i;
    std::sort(order.begin(), order.end(), [&](size_t a, size_t b) {
      return content.indexes[a].path.view() < content.indexes[b].path.view();
    });
    for (const size_t i : order) {
      const String& path = content.indexes[i].path;
      // An index that is gone, or lies where nothing may be written, is stale from here on.
      if (!to_.files.Exists(path) || !to_.allowed(path)) continue;
      String reason;
      if (Lock(path, kIndexLockSize, indexes[i], reason) != LockOutcome::Taken) return Fail(reason);
    }
    return true;
  }

  bool Finish(const JournalContent& content, std::vector<LockedFile>& indexes, LockedFile& table) {
    String reason;
    for (const auto& swap : content.swaps) {
      if (!to_.files.Exists(swap.from)) continue;
      if (!(swap.to == to_.table) && !to_.allowed(swap.to)) continue;
      if (to_.files.Rename(swap.from, swap.to) < 0) return Fail(to_.files.error());
    }
    LockedFile renewed;
    File* marked = table.file.get();
    if (table.file->StillNamed() == 0) {
      if (Lock(to_.table, 0, renewed, reason) != LockOutcome::Taken) return Fail(reason);
      marked = renewed.file.get();
      uint64_t mark;
      if (!ReadMark(*marked, mark, reason)) return Fail(reason);
      if (mark != content.number) return true;
    }
    if (!WritePlaces(content, indexes, *marked)) return false;
    if (to_.durability == Durability::PowerCut && !SyncAll(content, indexes, *marked)) return false;
    const std::string none(kMarkSize, '\0');
    if (!WriteExactly(*marked, kTableMark, none.data(), kMarkSize, reason)) return Fail(reason);
    return true;
  }

  // The header of an index with mark and pages, and without the mark.
  bool WritePlaces(const JournalContent& content, std::vector<LockedFile>& indexes, File& table) {
    std::vector<File*> files{&table};
    for (size_t i = 0; i < indexes.size(); ++i) {
      bool wanted = indexes[i].file != nullptr;
      if (wanted && !IsInvolved(content, i, *indexes[i].file, wanted)) return false;
      files.push_back(wanted ? indexes[i].file.get() : nullptr);
    }
    enum class Pass { Marks, Pages, Headers };
    for (const Pass pass : {Pass::Marks, Pass::Pages, Pass::Headers}) {
      for (const auto& place : content.places) {
        File* const file = files[place.file];
        const bool is_header = place.file != 0 && place.offset == 0;
        if (file == nullptr || is_header != (pass != Pass::Pages)) continue;
        if (!is_header && !MayStandThere(place, *file)) continue;
        if (is_header && place.bytes.size() != kMarkedIndexHeader) continue;
        std::string marked;
        if (pass == Pass::Marks) marked = MarkedIndex(place.bytes, content.number);
        const std::string_view bytes = pass == Pass::Marks ? marked : place.bytes;
        String reason;
        if (!WriteExactly(*file, place.offset, bytes.data(), static_cast<int>(bytes.size()),
                          reason)) {
          return Fail(reason);
        }
      }
    }
    return true;
  }

  // Sets `involved` to whether the index still takes part in the change.
  bool IsInvolved(const JournalContent& content, size_t i, File& file, bool& involved) {
    char header[kMarkedIndexHeader];
    String reason;
    involved = false;
    if (!ReadExactly(file, 0, header, sizeof header, reason)) {
      return reason == kUnexpectedEnd || Fail(reason);
    }
    const std::string_view bytes(header, sizeof header);
    involved = MarkOfIndex(bytes) == content.number || bytes == content.indexes[i].former;
    return true;
  }

  // A journal is believed as little as any other file: headers of tables are not its to write, and
  // no file is made endless.
  static bool MayStandThere(const JournalContent::Place& place, File& file) {
    const size_t header = place.file == 0 ? kMarkedTableHeader : kMarkedIndexHeader;
    return place.offset >= static_cast<int64_t>(header) &&
           place.offset <= file.Length() + kMostMissing;
  }

  bool SyncAll(const JournalContent& content, std::vector<LockedFile>& indexes, File& table) {
    for (LockedFile& index : indexes) {
      if (index.file != nullptr && index.file->Sync() < 0) return Fail(index.file->error());
    }
    if (table.Sync() < 0) return Fail(table.error());
    if (content.swaps.empty() || to_.files.SyncDirectory(to_.table) == 0) return true;
    return Fail(to_.files.error());
  }

  const Completion& to_;
  String& error_;
};

}  // namespace

bool CompleteChange(const Completion& completion, String& error) {
  Completer completer(completion, error);
  return completer.Run();
}

}  // namespace vexa
