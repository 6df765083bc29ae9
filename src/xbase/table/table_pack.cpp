// Packing a table: its live records and their texts go to two new files beside the old ones, which
// then take their places.
//
//   1  NAME.dbf.pack is made, then NAME.dbt.pack; both are written and brought to the disk
//   2  NAME.dbf.pack is renamed to NAME.dbf: from here the table is packed
//   3  NAME.dbt.pack is renamed to NAME.dbt
//
// Two files cannot be swapped at one stroke, so what a pack left behind says how far it came. With
// NAME.dbf.pack there, nothing has happened yet and both are rubbish. With only NAME.dbt.pack
// there, the table was swapped and its texts stand in that file: whoever opens the table next does
// step 3. This holds because the table's new file is made first and removed last.
//
// The old file is locked as a whole, the new one too before it gets its name; so nobody reads a
// table between the steps unless the packing process died there.

#include <algorithm>
#include <cstring>
#include <utility>

#include "core/number.h"
#include "xbase/table/table_pack.h"
#include "xbase/table/xbase_table.h"

namespace vexa {

namespace {

constexpr char kPackExtension[] = ".pack";
constexpr int kPackMode = OpenRead | OpenWrite | OpenCreate | OpenTruncate;
constexpr int kPermissionBits = 07777;
constexpr int kCopyBuffer = 65536;

}  // namespace

String PackName(const String& path) { return path + kPackExtension; }

bool PackIsUnfinished(FileManager& files, const String& datapath, const String& memopath) {
  return files.Exists(PackName(memopath)) && !files.Exists(PackName(datapath));
}

String MemoPathInUse(FileManager& files, const String& datapath, const String& memopath) {
  return PackIsUnfinished(files, datapath, memopath) ? PackName(memopath) : memopath;
}

struct XBaseTable::PackFiles {
  std::unique_ptr<File> file;
  std::unique_ptr<MemoFile> memo;
  RangeLock lock;  // on `file`; declared behind it, so given back first
  TableHeader header;
};

void XBaseTable::FinishPack(String& memopath) {
  // The caller holds the header lock of the file that the path names, so no pack is under way.
  if (!PackIsUnfinished(files_, names_.datapath, names_.memopath)) return;
  if (files_.Rename(PackName(names_.memopath), names_.memopath) == 0) return;
  // Perhaps another process was quicker; else, without the right to rename, it is read there.
  memopath = MemoPathInUse(files_, names_.datapath, names_.memopath);
}

void XBaseTable::RemovePackFiles() {
  const String data = PackName(names_.datapath);
  const String memo = PackName(names_.memopath);
  if (memo_ != nullptr && files_.Exists(memo)) (void)files_.Delete(memo);
  if (files_.Exists(data)) (void)files_.Delete(data);
}

int XBaseTable::CheckNoLinks() {
  const bool links = IsSymbolicLink(names_.datapath) || IsSymbolicLink(names_.memopath);
  return links ? Fail("writing to", kNoReplacementOfLinks) : 1;
}

int XBaseTable::Pack() {
  if (file_ == nullptr) return 0;
  if (CheckNoLinks() == 0) return 0;
  RangeLock lock;
  if (LockStart(lock, FileLockType::Exclusive, 0) == 0) return 0;
  if (ReadHeader() == 0) return 0;
  // What looks like rubbish of an earlier pack is then the table's memo file.
  if (memo_ != nullptr && PackIsUnfinished(files_, names_.datapath, names_.memopath)) {
    return Fail("writing to", "An earlier pack could not be finished");
  }
  RemovePackFiles();
  {
    PackFiles pack;
    if (MakePackFiles(pack) == 0 || CopyLiveRecords(pack) == 0 || SwapIn(pack) == 0) {
      const String reason = error_;
      pack.lock.Release();
      pack.file.reset();
      pack.memo.reset();
      RemovePackFiles();
      error_ = reason;
      return 0;
    }
  }
  lock.Release();
  return Reopen();
}

int XBaseTable::MakePackFiles(PackFiles& pack) {
  const String data = PackName(names_.datapath);
  pack.file = files_.Open(data, kPackMode);
  if (pack.file == nullptr) return Fail("writing to", files_.error());
  const int mode = files_.Mode(names_.datapath);
  if (mode >= 0) (void)files_.ChangeMode(data, mode & kPermissionBits);
  if (pack.lock.Take(*pack.file, FileLockType::Exclusive, 0, 0) == 0) {
    return Fail("writing to", pack.file->error());
  }
  if (memo_ == nullptr) return 1;
  const String memo = PackName(names_.memopath);
  auto file = files_.Open(memo, kPackMode);
  if (file == nullptr) return Fail("writing to", files_.error());
  const int memo_mode = files_.Mode(names_.memopath);
  if (memo_mode >= 0) (void)files_.ChangeMode(memo, memo_mode & kPermissionBits);
  pack.memo = std::make_unique<MemoFile>(std::move(file), names_.memoerrorpath);
  if (pack.memo->WriteHeader() != 0 && pack.memo->LockForWriting() != 0) return 1;
  error_ = pack.memo->error();
  return 0;
}

int XBaseTable::CopyLiveRecords(PackFiles& pack) {
  String reason;
  std::vector<char> start(static_cast<size_t>(header_.headerlength));
  if (ReadExactly(*file_, 0, start.data(), header_.headerlength, reason) == 0) {
    return Fail("reading from", reason);
  }
  pack.header = header_;
  pack.header.numrecords = 0;
  const int at_once = std::max(1, kCopyBuffer / header_.recordlength);
  const auto record_size = static_cast<size_t>(header_.recordlength);
  std::vector<char> records(static_cast<size_t>(at_once) * record_size + 1);
  for (int first = 1; first <= header_.numrecords;) {
    const int count = std::min(at_once, header_.numrecords - first + 1);
    if (ReadExactly(*file_, header_.RecordOffset(first), records.data(),
                    count * header_.recordlength, reason) == 0) {
      return Fail("reading from", reason);
    }
    char* to = records.data();
    for (int i = 0; i < count; ++i) {
      char* record = records.data() + static_cast<size_t>(i) * record_size;
      if (record[0] == kDeletedMark) continue;
      if (to != record) std::memcpy(to, record, record_size);
      if (pack.memo != nullptr && CopyMemos(to, pack) == 0) return 0;
      to += record_size;
    }
    const auto size = static_cast<int>(to - records.data());
    *to = kEndOfTable;  // The next records begin over it.
    const int64_t offset = pack.header.RecordOffset(pack.header.numrecords + 1);
    if (size > 0 && WriteExactly(*pack.file, offset, records.data(), size + 1, reason) == 0) {
      return Fail("writing to", reason);
    }
    pack.header.numrecords += size / header_.recordlength;
    first += count;
  }
  pack.header.SetToday();
  pack.header.Encode(start.data());
  if (WriteExactly(*pack.file, 0, start.data(), header_.headerlength, reason) == 0) {
    return Fail("writing to", reason);
  }
  return 1;
}

int XBaseTable::CopyMemos(char* record, PackFiles& pack) {
  char* bytes = record + 1;
  for (const auto& field : fields_) {
    char* const here = bytes;
    bytes += field->length();
    if (field->type() != XBaseFieldType::MEMO) continue;
    const auto width = static_cast<size_t>(field->length());
    const int old_block = ReadInteger(std::string_view(here, width));
    if (old_block == 0) continue;
    String text;
    // One text that cannot be read stops the pack: it would be lost for good.
    if (memo_->ReadBlock(old_block, text) == 0) return FailMemo();
    String number;
    if (!text.empty()) {
      const int block = pack.memo->WriteBlock(text);
      if (block < 0) {
        error_ = pack.memo->error();
        return 0;
      }
      number = PrintInteger(block);
    }
    if (number.size() > width) return MemoNumberTooLong(field->name());
    std::memset(here, ' ', width);
    std::memcpy(here + (width - number.size()), number.data(), number.size());
  }
  return 1;
}

int XBaseTable::SwapIn(PackFiles& pack) {
  if (pack.file->Sync() < 0) return Fail("writing to", pack.file->error());
  if (pack.memo != nullptr && pack.memo->file().Sync() < 0) {
    return Fail("writing to", pack.memo->file().error());
  }
  if (files_.Rename(PackName(names_.datapath), names_.datapath) < 0) {
    return Fail("writing to", files_.error());
  }
  // The table is packed from here on. Should this fail, opening it tries again.
  if (pack.memo != nullptr) (void)files_.Rename(PackName(names_.memopath), names_.memopath);
  return 1;
}

}  // namespace vexa
