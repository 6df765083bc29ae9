// Opening, creating and closing a table; see xbase_table.h.
//
// Opening locks bytes 0-31 shared while it reads the header, the field descriptors and, under a
// lock of its own, the header of the memo file. Reopen does the same for a table that was replaced,
// and takes over only files of the structure it knows.
//
// Creating goes in three steps:
//   1  refuse what cannot be, before anything is touched
//   2  write the table and its memo file beside their places, under names that nobody knows
//   3  put them in place: over another table as a swap, under the lock of all of the former
//      table; where nothing is, or what is no table, with plain renames, the memo file first
// What fails on the way removes the new files again.

#include <algorithm>
#include <cassert>
#include <cstdio>
#include <cstring>
#include <utility>

#include "xbase/table/new_files.h"
#include "xbase/table/xbase_table.h"

namespace vexa {

namespace {

constexpr char kEndOfDescriptors = 0x0D;

}  // namespace

XBaseTable::XBaseTable(FileManager& files) : files_(files), journal_(files) {}
XBaseTable::~XBaseTable() { Close(); }

int XBaseTable::Open(const String& datapath, const String& dataerrorpath, int mode) {
  Close();
  const std::string_view extension = MemoExtensionOf(files_, datapath);
  names_ = {datapath, dataerrorpath, String::Concat({files_.StripExtension(datapath), extension}),
            String::Concat({files_.StripExtension(dataerrorpath), extension})};
  mode_ = mode;
  Opened opened;
  if (!OpenFiles(opened)) return 0;
  file_ = std::move(opened.file);
  memo_ = std::move(opened.memo);
  header_ = opened.header;
  if (MakeFields(opened.fields)) return 1;
  Close();
  return 0;
}

bool XBaseTable::OpenFiles(Opened& opened) {
  String reason;
  for (int i = 0; i < kMostReplacements; ++i) {
    opened.file = files_.Open(names_.datapath, mode_);
    if (opened.file == nullptr) return Fail("opening", files_.error());
    RangeLock lock;
    switch (lock.TakeNamed(*opened.file, FileLockType::Shared, 0, kTableHeaderSize, reason)) {
      case LockOutcome::Taken:
        if (!ReadStructure(opened)) return false;
        return opened.header.version != kVersionWithMemo || OpenMemo(opened);
      case LockOutcome::Failed:
        return FailLock(FileLockType::Shared, reason);
      case LockOutcome::Replaced:
        break;
    }
  }
  return Fail("opening", "The table is replaced again and again");
}

bool XBaseTable::ReadStructure(Opened& opened) {
  char bytes[kTableHeaderSize];
  String reason;
  if (!ReadExactly(*opened.file, 0, bytes, kTableHeaderSize, reason)) {
    return Fail("reading from", reason);
  }
  const HeaderState state = DecodeTableHeader(bytes, opened.header);
  if (state == HeaderState::UnsupportedVersion) {
    char number[8];
    std::snprintf(number, sizeof number, "0x%02X", static_cast<unsigned>(opened.header.version));
    error_ = String::Concat(
        {"'", names_.dataerrorpath, "': Unsupported xBase file version (", number, ")"});
    return false;
  }
  if (state == HeaderState::Damaged) return Fail("reading from", "The header is damaged");
  if (IsMarked(opened.header.mark)) return false;

  std::vector<char> rest(static_cast<size_t>(opened.header.headerlength - kTableHeaderSize));
  if (!ReadExactly(*opened.file, kTableHeaderSize, rest.data(), static_cast<int>(rest.size()),
                   reason)) {
    return Fail("reading from", reason);
  }
  opened.fields.clear();
  for (int i = 0; i < opened.header.DescriptorCount(); ++i) {
    opened.fields.push_back(DecodeDescriptor(rest.data() + i * kDescriptorSize));
    const char letter = opened.fields.back().letter;
    XBaseFieldType type;
    if (!FieldTypeOfLetter(letter, type)) {
      error_ =
          String::Concat({"'", names_.dataerrorpath, "' contains an unsupported field of type '",
                          std::string_view(&letter, 1), "'"});
      return false;
    }
    // Some writers leave the version of a plain table in a table with memo fields.
    if (type == XBaseFieldType::MEMO) opened.header.version = kVersionWithMemo;
  }
  if (RecordLengthOf(opened.fields) != opened.header.recordlength) {
    return Fail("reading from", "The header is damaged");
  }
  return true;
}

bool XBaseTable::OpenMemo(Opened& opened) {
  auto file = files_.Open(names_.memopath, mode_);
  if (file == nullptr) {
    error_ = String::Concat({"Error opening '", names_.memoerrorpath, "': ", files_.error()});
    return false;
  }
  opened.memo = std::make_unique<MemoFile>(std::move(file), names_.memoerrorpath);
  if (opened.memo->ReadHeaderLocked()) return true;
  error_ = opened.memo->error();
  return false;
}

bool XBaseTable::Reopen() {
  Opened opened;
  if (!OpenFiles(opened)) return false;
  std::vector<FieldDescriptor> known;
  for (const auto& field : fields_) known.push_back(field->Descriptor());
  if (opened.fields != known) {
    return Fail("reading from", "The structure of the table has changed");
  }
  header_ = opened.header;
  Exchange(std::move(opened.file), std::move(opened.memo));
  return true;
}

void XBaseTable::Exchange(std::unique_ptr<File> file, std::unique_ptr<MemoFile> memo) {
  assert(!record_lock_.held() && !header_lock_.held() && !all_lock_.held());
  // The block numbers of the current record mean nothing in the new memo file.
  for (const auto& field : fields_) field->Detach();
  file_ = std::move(file);
  memo_ = std::move(memo);
  ++generation_;
  recordnum_ = 0;
  deleted_ = 0;
  header_stamp_ = {};
  DropBlock();
}

bool XBaseTable::MakeFields(const std::vector<FieldDescriptor>& descriptors) {
  fields_.clear();
  for (const FieldDescriptor& descriptor : descriptors) {
    XBaseField::Declaration declaration{descriptor.name, XBaseFieldType::CHAR, descriptor.length,
                                        descriptor.decimalcount};
    if (!FieldTypeOfLetter(descriptor.letter, declaration.type)) return false;
    fields_.push_back(XBaseField::Make(this, declaration));
  }
  record_.assign(static_cast<size_t>(header_.recordlength) + 1, ' ');
  stored_.assign(static_cast<size_t>(header_.recordlength), ' ');
  return true;
}

// --- Creating --------------------------------------------------------------------------------

int XBaseTable::Create(const XBaseTableNames& names,
                       const std::vector<XBaseField::Declaration>& fields,
                       const std::vector<XBaseRow>& rows) {
  Close();
  names_ = names;
  if (names_.memopath.empty()) {
    const std::string_view extension = kMemoExtensions[0];
    names_.memopath = String::Concat({files_.StripExtension(names_.datapath), extension});
    names_.memoerrorpath = String::Concat({files_.StripExtension(names_.dataerrorpath), extension});
  }
  mode_ = OpenRead | OpenWrite;
  // 1. What can be refused before anything is touched.
  std::vector<FieldDescriptor> descriptors;
  if (!Declare(fields, descriptors)) return 0;
  // 2. The new files, beside the places they are to take.
  uint64_t number;
  if (!NewChangeNumber(number)) {
    (void)Fail("creating", "The system gives no random numbers");
    return 0;
  }
  const bool has_memo = header_.version == kVersionWithMemo;
  const bool made = MakeNewFiles(has_memo, number, "creating") && MakeFields(descriptors) &&
                    WriteStructure() && WriteRows(rows) && Install();
  if (made) {
    EndChange();
    return 1;
  }
  const String message = error_;
  Close();
  error_ = message;
  return 0;
}

bool XBaseTable::Declare(const std::vector<XBaseField::Declaration>& fields,
                         std::vector<FieldDescriptor>& descriptors) {
  bool has_memo = false;
  for (const auto& field : fields) {
    descriptors.push_back({field.name.before(kLongestFieldName),
                           kFieldTypeLetters[static_cast<size_t>(field.type)], field.length,
                           field.decimalcount});
    has_memo = has_memo || field.type == XBaseFieldType::MEMO;
    if (field.length < 0 || field.length > 255 || field.decimalcount < 0 ||
        field.decimalcount > 255) {
      return Fail("creating",
                  String::Concat({"The length of field '", field.name, "' is not possible"}));
    }
  }
  const int64_t headerlength = kTableHeaderSize + kDescriptorSize * std::ssize(fields) + 1;
  const int64_t recordlength = RecordLengthOf(descriptors);
  if (headerlength > kLongestHeader) return Fail("creating", "There are too many fields");
  if (recordlength > kLongestRecord) {
    return Fail("creating", "A record would be longer than 65535 bytes");
  }
  header_ = TableHeader();
  header_.version = has_memo ? kVersionWithMemo : kVersionPlain;
  header_.headerlength = static_cast<int>(headerlength);
  header_.recordlength = static_cast<int>(recordlength);
  return true;
}

bool XBaseTable::WriteStructure() {
  NewFiles& files = *new_files_;
  if (files.file == nullptr) {
    error_ = String::Concat({"Internal error opening '", names_.dataerrorpath, "'"});
    return false;
  }
  files.header = header_;
  files.header.SetToday();
  std::vector<char> bytes(static_cast<size_t>(header_.headerlength - kTableHeaderSize));
  char* to = bytes.data();
  for (const auto& field : fields_) {
    field->Descriptor().Encode(to);
    to += kDescriptorSize;
  }
  bytes.back() = kEndOfDescriptors;
  String reason;
  if (!WriteExactly(*files.file, kTableHeaderSize, bytes.data(), static_cast<int>(bytes.size()),
                    reason)) {
    return Fail("writing to", reason);
  }
  if (header_.version != kVersionWithMemo) return true;
  if (files.memo == nullptr) {
    // The odd word is on purpose: the message is known by this text.
    error_ = String::Concat({"Internal errorl opening '", names_.memoerrorpath, "'"});
    return false;
  }
  files.memo->SetFirstFreeBlock(1);
  return files.memo->WriteHeader() || FailNewMemo();
}

// Writes the rows, and the header with their count.
bool XBaseTable::WriteRows(const std::vector<XBaseRow>& rows) {
  NewFiles& files = *new_files_;
  std::string bytes;
  for (const XBaseRow& row : rows) {
    assert(row.size() == fields_.size());
    record_[0] = kLiveMark;
    auto* to = reinterpret_cast<unsigned char*>(record_.data()) + 1;
    for (size_t i = 0; i < fields_.size(); ++i) {
      fields_[i]->Set(row[i]);
      if (fields_[i]->Write(to) == 0) return false;
      to += fields_[i]->length();
    }
    bytes.append(record_.data(), static_cast<size_t>(header_.recordlength));
  }
  if (!rows.empty()) bytes += kEndOfTable;
  files.header.numrecords = static_cast<int>(rows.size());
  String reason;
  if (!bytes.empty() && !WriteExactly(*files.file, header_.headerlength, bytes.data(),
                                      static_cast<int>(bytes.size()), reason)) {
    return Fail("writing to", reason);
  }
  return true;
}

// 3. Another table may be there, and in use by others: they see the old one or the new one.
bool XBaseTable::Install() {
  if (files_.RealPath(names_.datapath, realpath_) < 0) return InstallNew();
  String reason;
  std::unique_ptr<File> former;
  RangeLock lock;
  LockOutcome outcome = LockOutcome::Replaced;
  for (int i = 0; outcome == LockOutcome::Replaced && i < kMostReplacements; ++i) {
    former = files_.Open(realpath_, OpenRead | OpenWrite);
    if (former == nullptr) return Fail("creating", files_.error());
    outcome = lock.TakeNamed(*former, FileLockType::Exclusive, 0, 0, reason);
  }
  if (outcome != LockOutcome::Taken) return FailLock(FileLockType::Exclusive, reason);
  std::string header(kTableHeaderSize, '\0');
  const int got = former->ReadAt(0, header.data(), kTableHeaderSize);
  TableHeader decoded;
  // What is no table has no header to bear a mark, and nobody who uses it.
  if (got != kTableHeaderSize || DecodeTableHeader(header.data(), decoded) != HeaderState::Good) {
    return InstallNew();
  }
  if (IsMarked(decoded.mark)) return false;
  FileSwap swap(files_);
  DescribeSwap(swap, *former, header);
  return CarryOut(swap);
}

// The memo file first: without its table it means nothing.
bool XBaseTable::InstallNew() {
  NewFiles& made = *new_files_;
  const bool durable = durability_ == Durability::PowerCut;
  if (!WriteNewHeader(0) || (durable && !SyncNewFiles())) return false;
  if (made.memo != nullptr && files_.Rename(made.memopath, names_.memopath) < 0) {
    error_ = String::Concat({"Error creating '", names_.memoerrorpath, "': ", files_.error()});
    return false;
  }
  made.memopath.clear();
  // A link is followed to where the table is wanted.
  const String& path = realpath_.empty() ? names_.datapath : realpath_;
  if (files_.Rename(made.datapath, path) < 0) return Fail("creating", files_.error());
  AdoptNewFiles();
  if (!durable || files_.SyncDirectory(path) == 0) return true;
  return Fail("creating", files_.error());
}

void XBaseTable::Close() {
  EndChange();
  fields_.clear();
  memo_.reset();
  file_.reset();
  journal_.Close();
  realpath_.clear();
  recordnum_ = 0;
  deleted_ = 0;
  void_mark_ = 0;
  header_stamp_ = {};
  DropBlock();
}

}  // namespace vexa
