// Opening, creating and closing a table.

#include <cstdio>
#include <cstring>
#include <utility>

#include "xbase/table/xbase_table.h"

namespace vexa {

namespace {

constexpr int kMostReplacements = 100;
constexpr int kCreateMode = OpenRead | OpenWrite | OpenCreate | OpenTruncate;
constexpr char kMemoExtension[] = ".dbt";
constexpr char kEndOfDescriptors = 0x0D;

}  // namespace

String XBaseTable::DerivedMemoName(const String& dataname) const {
  return files_.StripExtension(dataname) + kMemoExtension;
}

int XBaseTable::Open(const String& datapath, const String& dataerrorpath, int mode) {
  Close();
  names_ = {datapath, dataerrorpath, DerivedMemoName(datapath), DerivedMemoName(dataerrorpath)};
  mode_ = mode;
  Opened opened;
  if (OpenFiles(opened) == 0) return 0;
  file_ = std::move(opened.file);
  memo_ = std::move(opened.memo);
  header_ = opened.header;
  if (MakeFields(opened.fields) != 0) return 1;
  Close();
  return 0;
}

int XBaseTable::OpenFiles(Opened& opened) {
  for (int i = 0; i < kMostReplacements; ++i) {
    opened.file = files_.Open(names_.datapath, mode_);
    if (opened.file == nullptr) return Fail("opening", files_.error());
    RangeLock lock;
    if (lock.Take(*opened.file, FileLockType::Shared, 0, kTableHeaderSize) == 0) {
      error_ = String::Concat(
          {"Error locking '", names_.dataerrorpath, "' for read: ", opened.file->error()});
      return 0;
    }
    // While the lock was waited for, a pack may have put another file in its place.
    if (opened.file->StillNamed() == 0) continue;
    if (ReadStructure(opened) == 0) return 0;
    return opened.header.version == kVersionWithMemo ? OpenMemo(opened) : 1;
  }
  return Fail("opening", "The table is replaced again and again");
}

int XBaseTable::ReadStructure(Opened& opened) {
  char bytes[kTableHeaderSize];
  String reason;
  if (ReadExactly(*opened.file, 0, bytes, kTableHeaderSize, reason) == 0) {
    return Fail("reading from", reason);
  }
  const HeaderState state = DecodeTableHeader(bytes, opened.header);
  if (state == HeaderState::UnsupportedVersion) {
    char number[8];
    std::snprintf(number, sizeof number, "0x%02X", static_cast<unsigned>(opened.header.version));
    error_ = String::Concat(
        {"'", names_.dataerrorpath, "': Unsupported xBase file version (", number, ")"});
    return 0;
  }
  if (state == HeaderState::Damaged) return Fail("reading from", "The header is damaged");

  std::vector<char> rest(static_cast<size_t>(opened.header.headerlength - kTableHeaderSize));
  if (ReadExactly(*opened.file, kTableHeaderSize, rest.data(), static_cast<int>(rest.size()),
                  reason) == 0) {
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
      return 0;
    }
    // Some writers leave the version of a plain table in a table with memo fields.
    if (type == XBaseFieldType::MEMO) opened.header.version = kVersionWithMemo;
  }
  if (RecordLengthOf(opened.fields) != opened.header.recordlength) {
    return Fail("reading from", "The header is damaged");
  }
  return 1;
}

int XBaseTable::OpenMemo(Opened& opened) {
  String path = names_.memopath;
  FinishPack(path);
  auto file = files_.Open(path, mode_);
  if (file == nullptr) {
    error_ = String::Concat({"Error opening '", names_.memoerrorpath, "': ", files_.error()});
    return 0;
  }
  opened.memo = std::make_unique<MemoFile>(std::move(file), names_.memoerrorpath);
  if (opened.memo->ReadHeaderLocked() != 0) return 1;
  error_ = opened.memo->error();
  return 0;
}

int XBaseTable::Reopen() {
  Opened opened;
  if (OpenFiles(opened) == 0) return 0;
  std::vector<FieldDescriptor> known;
  for (const auto& field : fields_) known.push_back(field->Descriptor());
  if (opened.fields != known) {
    return Fail("reading from", "The structure of the table has changed");
  }
  // The block numbers of the current record mean nothing in the new memo file.
  for (const auto& field : fields_) field->Detach();
  file_ = std::move(opened.file);
  memo_ = std::move(opened.memo);
  header_ = opened.header;
  ++generation_;
  recordnum_ = 0;
  deleted_ = 0;
  return 1;
}

int XBaseTable::MakeFields(const std::vector<FieldDescriptor>& descriptors) {
  fields_.clear();
  for (const FieldDescriptor& descriptor : descriptors) {
    XBaseField::Declaration declaration{descriptor.name, XBaseFieldType::CHAR, descriptor.length,
                                        descriptor.decimalcount};
    if (!FieldTypeOfLetter(descriptor.letter, declaration.type)) return 0;
    fields_.push_back(XBaseField::Make(this, declaration));
  }
  record_.assign(static_cast<size_t>(header_.recordlength) + 1, ' ');
  return 1;
}

int XBaseTable::Create(const XBaseTableNames& names,
                       const std::vector<XBaseField::Declaration>& fields) {
  Close();
  names_ = names;
  if (names_.memopath.empty()) {
    names_.memopath = DerivedMemoName(names_.datapath);
    names_.memoerrorpath = DerivedMemoName(names_.dataerrorpath);
  }
  mode_ = OpenRead | OpenWrite;
  std::vector<FieldDescriptor> descriptors;
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
  file_ = files_.Open(names_.datapath, kCreateMode);
  if (file_ == nullptr) return Fail("creating", files_.error());
  if (has_memo) {
    auto file = files_.Open(names_.memopath, kCreateMode);
    if (file == nullptr) {
      error_ = String::Concat({"Error creating '", names_.memoerrorpath, "': ", files_.error()});
      Close();
      return 0;
    }
    memo_ = std::make_unique<MemoFile>(std::move(file), names_.memoerrorpath);
  }
  header_ = TableHeader();
  header_.version = has_memo ? kVersionWithMemo : kVersionPlain;
  header_.headerlength = static_cast<int>(headerlength);
  header_.recordlength = static_cast<int>(recordlength);
  if (MakeFields(descriptors) != 0 && WriteStructure() != 0) return 1;
  Close();
  return 0;
}

int XBaseTable::WriteStructure() {
  if (file_ == nullptr) {
    error_ = String::Concat({"Internal error opening '", names_.dataerrorpath, "'"});
    return 0;
  }
  RemovePackFiles();
  if (WriteHeader() == 0) return 0;
  std::vector<char> bytes(static_cast<size_t>(header_.headerlength - kTableHeaderSize));
  char* to = bytes.data();
  for (const auto& field : fields_) {
    field->Descriptor().Encode(to);
    to += kDescriptorSize;
  }
  bytes.back() = kEndOfDescriptors;
  String reason;
  if (WriteExactly(*file_, kTableHeaderSize, bytes.data(), static_cast<int>(bytes.size()),
                   reason) == 0) {
    return Fail("writing to", reason);
  }
  if (header_.version != kVersionWithMemo) return 1;
  if (memo_ == nullptr) {
    // The odd word is on purpose: the message is known by this text.
    error_ = String::Concat({"Internal errorl opening '", names_.memoerrorpath, "'"});
    return 0;
  }
  memo_->SetFirstFreeBlock(1);
  return WriteMemoHeader();
}

void XBaseTable::Close() {
  fields_.clear();
  memo_.reset();
  file_.reset();
  recordnum_ = 0;
  deleted_ = 0;
}

}  // namespace vexa
