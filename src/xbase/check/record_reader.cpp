// Opening a table to read it as a whole; see record_reader.h.

#include "xbase/check/record_reader.h"

#include <algorithm>
#include <utility>

#include "core/number.h"

namespace vexa {

bool RecordReader::Fail(std::string_view text) {
  error_ = text;
  return false;
}

bool RecordReader::Open(const String& path) {
  file_ = files_.Open(path, OpenRead);
  if (file_ == nullptr) return Fail("cannot be opened: " + files_.error());
  if (!lock_.Take(*file_, FileLockType::Shared, 0, 0)) {
    return Fail("cannot be locked: " + file_->error());
  }
  char bytes[kTableHeaderSize];
  String reason;
  if (!ReadExactly(*file_, 0, bytes, kTableHeaderSize, reason)) {
    return Fail("the header cannot be read: " + reason);
  }
  const HeaderState state = DecodeTableHeader(bytes, header_);
  if (state == HeaderState::UnsupportedVersion) return Fail("the version is not supported");
  if (state == HeaderState::Damaged) return Fail("the header is damaged");
  if (!ReadDescriptors()) return false;
  return header_.version != kVersionWithMemo || OpenMemo(path);
}

bool RecordReader::ReadDescriptors() {
  std::vector<char> rest(static_cast<size_t>(header_.headerlength - kTableHeaderSize));
  String reason;
  if (!ReadExactly(*file_, kTableHeaderSize, rest.data(), static_cast<int>(rest.size()), reason)) {
    return Fail("the field descriptors cannot be read: " + reason);
  }
  size_t offset = 1;
  for (int i = 0; i < header_.DescriptorCount(); ++i) {
    fields_.push_back(DecodeDescriptor(rest.data() + i * kDescriptorSize));
    offsets_.push_back(offset);
    offset += static_cast<size_t>(fields_.back().length);
    XBaseFieldType type;
    if (!FieldTypeOfLetter(fields_.back().letter, type)) {
      return Fail("a field has a type that is not supported");
    }
    if (type == XBaseFieldType::MEMO) header_.version = kVersionWithMemo;
  }
  if (RecordLengthOf(fields_) != header_.recordlength) {
    return Fail("the record length is not that of the fields");
  }
  record_.resize(static_cast<size_t>(header_.recordlength));
  return true;
}

bool RecordReader::OpenMemo(const String& path) {
  const String memopath =
      String::Concat({files_.StripExtension(path), MemoExtensionOf(files_, path)});
  auto file = files_.Open(memopath, OpenRead);
  if (file == nullptr) return Fail("the memo file cannot be opened: " + files_.error());
  memo_ = std::make_unique<MemoFile>(std::move(file), memopath);
  return memo_->ReadHeaderLocked() || Fail(memo_->error());
}

int RecordReader::RecordsInFile() {
  const int64_t room = (file_->Length() - header_.headerlength) / header_.recordlength;
  return static_cast<int>(std::clamp<int64_t>(room, 0, header_.numrecords));
}

bool RecordReader::Read(int n) {
  String reason;
  if (ReadExactly(*file_, header_.RecordOffset(n), record_.data(), header_.recordlength, reason)) {
    return true;
  }
  return Fail(String::Concat({"record ", PrintInteger(n), " cannot be read: ", reason}));
}

}  // namespace vexa
