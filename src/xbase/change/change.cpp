// Writing a change in order, and taking it back; see change.h and journal.h, whose steps are
// numbered here as there. The caller holds all locks from before the first write to the end.
//
//   Change::Commit    what step 1 wrote goes to the disk when the change must outlive a power cut;
//                     then either WriteInPlace, for one write that cannot be torn, or the journal
//                     (2) and WriteAll (3 to 6). When that fails TakeBack writes the former bytes:
//                     pieces, index headers, and the table's header last, since its mark is what
//                     makes the change count
//   FileSwap::Commit  journal (2), mark (3), renames (4), and the new table's header without the
//                     mark (6). After the first rename nothing is taken back: the next request
//                     completes what is missing

#include "xbase/change/change.h"

#include <algorithm>
#include <cassert>

#include "core/file_access.h"

namespace vexa {

namespace {

// What the system copies in one go: a process may be killed between two of them, but not within.
constexpr int64_t kBlock = 4096;
// Bytes 1 to 3 of a table's header: the date of the last update.
constexpr size_t kDateEnd = 4;

String Message(std::string_view errorname, std::string_view reason) {
  return String::Concat({"Error writing to '", errorname, "': ", reason});
}

}  // namespace

const String& Change::ErrorName(const File* file) const {
  for (const ChangedFile& index : indexes) {
    if (index.file == file) return index.errorname;
  }
  return table.errorname;
}

uint32_t Change::FileNumber(const File* file) const {
  for (size_t i = 0; i < indexes.size(); ++i) {
    if (indexes[i].file == file) return static_cast<uint32_t>(i + 1);
  }
  assert(file == table.file);
  return 0;
}

bool Change::WriteHeader(const ChangedFile& file, const std::string& header, String& error) {
  String reason;
  if (WriteExactly(*file.file, 0, header.data(), static_cast<int>(header.size()), reason)) {
    return true;
  }
  error = Message(file.errorname, reason);
  return false;
}

bool Change::WritePiece(const Piece& piece, String& error) {
  String reason;
  const std::string_view bytes = piece.changed_bytes();
  if (WriteExactly(*piece.file, piece.changed_offset(), bytes.data(),
                   static_cast<int>(bytes.size()), reason)) {
    return true;
  }
  error = Message(ErrorName(piece.file), reason);
  return false;
}

bool Change::Sync(File& file, const String& errorname, String& error) {
  if (file.Sync() == 0) return true;
  error = Message(errorname, file.error());
  return false;
}

bool Change::IsOneWrite() const {
  if (!indexes.empty()) return false;
  const std::string_view former(table.former);
  const std::string_view header(table.header);
  int writes_needed = former.substr(kDateEnd) != header.substr(kDateEnd) ? 1 : 0;
  for (const Piece& piece : writes.pieces()) {
    if (!piece.changed) continue;
    const int64_t last = piece.offset + static_cast<int64_t>(piece.end) - 1;
    if (piece.changed_offset() / kBlock != last / kBlock) return false;
    ++writes_needed;
  }
  return writes_needed <= 1;
}

ChangeOutcome Change::Commit(Journal& journal, Durability durability, String& error) {
  assert(table.file != nullptr);
  if (durability == Durability::PowerCut) {
    for (File* file : written_before) {
      if (!Sync(*file, table.errorname, error)) return ChangeOutcome::Undone;
    }
  }
  if (IsOneWrite()) {
    if (!WriteInPlace(error)) return ChangeOutcome::Undone;
    const bool synced = durability == Durability::None || Sync(*table.file, table.errorname, error);
    return synced ? ChangeOutcome::Done : ChangeOutcome::Unfinished;
  }
  uint64_t number;
  if (!journal.numbers().Next(number)) {
    error = Message(table.errorname, "The system gives no random numbers");
    return ChangeOutcome::Undone;
  }
  if (!journal.Write(Describe(number), table.path, table.errorname, durability, error)) {
    return ChangeOutcome::Undone;
  }
  if (WriteAll(number, durability, error)) return ChangeOutcome::Done;
  if (TakeBack()) return ChangeOutcome::Undone;
  error.cat(kNextCompletes);
  return ChangeOutcome::Unfinished;
}

bool Change::WriteInPlace(String& error) {
  String ignored;
  const bool counts = std::string_view(table.former).substr(kDateEnd) !=
                      std::string_view(table.header).substr(kDateEnd);
  for (const Piece& piece : writes.pieces()) {
    if (!piece.changed || WritePiece(piece, error)) continue;
    if (!piece.former.empty()) {
      (void)WriteExactly(*piece.file, piece.offset, piece.former.data(),
                         static_cast<int>(piece.former.size()), ignored);
    }
    return false;
  }
  if (table.header == table.former || WriteHeader(table, table.header, error)) return true;
  // A date alone is not worth a message: the change has happened.
  if (!counts) return true;
  (void)WriteHeader(table, table.former, ignored);
  return false;
}

JournalContent Change::Describe(uint64_t number) const {
  JournalContent content;
  content.number = number;
  content.indexes.reserve(indexes.size());
  content.places.reserve(indexes.size() + writes.pieces().size());
  for (const ChangedFile& index : indexes) {
    content.indexes.push_back({index.path, index.former});
    content.places.push_back({FileNumber(index.file), 0, index.header});
  }
  for (const Piece& piece : writes.pieces()) {
    if (!piece.changed) continue;
    content.places.push_back(
        {FileNumber(piece.file), piece.changed_offset(), piece.changed_bytes()});
  }
  return content;
}

bool Change::WriteAll(uint64_t number, Durability durability, String& error) {
  const bool durable = durability == Durability::PowerCut;
  // 3: from here on the change counts.
  if (!WriteHeader(table, MarkedTable(table.header, number), error)) return false;
  if (durable && !Sync(*table.file, table.errorname, error)) return false;
  // 4: all marks before the first page, the record last.
  for (const ChangedFile& index : indexes) {
    if (!WriteHeader(index, MarkedIndex(index.header, number), error)) return false;
  }
  for (const bool of_table : {false, true}) {
    for (const Piece& piece : writes.pieces()) {
      if (!piece.changed || (piece.file == table.file) != of_table) continue;
      if (!WritePiece(piece, error)) return false;
    }
  }
  if (durable) {
    for (const ChangedFile& index : indexes) {
      if (!Sync(*index.file, index.errorname, error)) return false;
    }
    if (!Sync(*table.file, table.errorname, error)) return false;
  }
  // 5 and 6: nothing is unfinished any more.
  for (const ChangedFile& index : indexes) {
    if (!WriteHeader(index, index.header, error)) return false;
  }
  return WriteHeader(table, table.header, error);
}

bool Change::TakeBack() {
  String ignored;
  for (const Piece& piece : writes.pieces()) {
    if (!piece.changed || piece.former.empty()) continue;
    if (!WriteExactly(*piece.file, piece.offset, piece.former.data(),
                      static_cast<int>(piece.former.size()), ignored)) {
      return false;
    }
  }
  for (const ChangedFile& index : indexes) {
    if (!WriteHeader(index, index.former, ignored)) return false;
    if (index.former_length >= 0 && index.file->Truncate(index.former_length) < 0) return false;
  }
  return WriteHeader(table, table.former, ignored);
}

// --- Swaps -----------------------------------------------------------------------------------

bool FileSwap::Fail(std::string_view errorname, std::string_view reason, String& error) {
  error = Message(errorname, reason);
  return false;
}

bool FileSwap::Commit(Journal& journal, Durability durability, bool& happened, String& error) {
  assert(!swaps.empty() && new_table != nullptr);
  happened = false;
  String ignored;
  const auto write = [](File& file, const std::string& header, String& reason) {
    return WriteExactly(file, 0, header.data(), static_cast<int>(header.size()), reason);
  };
  String reason;
  if (NeedsMark()) {
    JournalContent content;
    content.number = number;
    const std::string none(kMarkedIndexHeader, '\0');
    for (const String& index : indexes) content.indexes.push_back({index, none});
    for (const Swap& swap : swaps) content.swaps.push_back({swap.from, swap.to});
    if (!journal.Write(content, table.path, table.errorname, durability, error)) return false;
    // 3: from here on the change counts.
    if (!write(*table.file, MarkedTable(table.former, number), reason) ||
        (durability == Durability::PowerCut && table.file->Sync() < 0)) {
      (void)Fail(table.errorname, reason.empty() ? table.file->error() : reason, error);
      if (!write(*table.file, table.former, ignored)) error.cat(kNextCompletes);
      return false;
    }
  }
  // 4
  for (const Swap& swap : swaps) {
    if (files_.Rename(swap.from, swap.to) == 0) {
      happened = true;
      continue;
    }
    (void)Fail(swap.errorname, files_.error(), error);
    // What lost its name cannot be brought back.
    if (happened || (NeedsMark() && !write(*table.file, table.former, ignored))) {
      error.cat(kNextCompletes);
    }
    return false;
  }
  if (durability == Durability::PowerCut && files_.SyncDirectory(table.path) < 0) {
    return Fail(table.errorname, files_.error(), error);
  }
  // 6
  if (!NeedsMark() || write(*new_table, new_header, reason)) return true;
  (void)Fail(table.errorname, reason, error);
  error.cat(kNextCompletes);
  return false;
}

}  // namespace vexa
