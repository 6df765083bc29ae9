// The walk through an index tree that believes nothing; see index_check.h.

#include "xbase/check/index_check.h"

#include <algorithm>

#include "core/text.h"
#include "xbase/change/journal.h"
#include "xbase/index/index_key.h"

namespace vexa {

bool IndexChecker::Open(const String& path) {
  file_ = files_.Open(path, OpenRead);
  if (file_ == nullptr) {
    report_.Fault("cannot be opened: " + files_.error());
    return false;
  }
  if (!lock_.Take(*file_, FileLockType::Shared, 0, kIndexHeaderSize)) {
    report_.Fault("cannot be locked: " + file_->error());
    return false;
  }
  char bytes[kMarkedIndexHeader];
  String reason;
  if (!ReadExactly(*file_, 0, bytes, sizeof bytes, reason)) {
    report_.Fault("the header cannot be read: " + reason);
    return false;
  }
  if (MarkOfIndex({bytes, sizeof bytes}) != 0) {
    report_.Fault("a change of it was not finished; it is when the index is used next");
  }
  if (DecodeIndexHeader(bytes, header_) == IndexHeaderState::Good) return true;
  report_.Fault("the header is not that of an index");
  return false;
}

void IndexChecker::Check(RecordReader* table) {
  table_ = table;
  const int64_t pages = file_->Length() / header_.shape.pagesize;
  pages_in_file_ = static_cast<uint32_t>(std::clamp<int64_t>(pages, 0, UINT32_MAX - 1));
  if (pages_in_file_ > header_.numpages) {
    report_.Fault("the file has more pages than its header counts, ", pages_in_file_, "");
  }
  reached_.assign(size_t{pages_in_file_} + 1, false);
  if (table_ != nullptr) {
    named_.assign(static_cast<size_t>(table_->RecordsInFile()) + 1, false);
    FindKeyField();
  }
  Walk();
  if (disorder_ > 0) report_.Fault("", disorder_, " keys are out of order");
  ReportMissing();
}

void IndexChecker::FindKeyField() {
  const std::string_view expression = Stripped(header_.keyexpression);
  for (size_t i = 0; i < table_->fields().size(); ++i) {
    const FieldDescriptor& field = table_->fields()[i];
    if (EqualsIgnoreCase(field.name, expression) && field.letter != 'D') {
      key_field_ = static_cast<int>(i);
    }
  }
}

bool IndexChecker::Enter(uint32_t number) {
  if (number == 0) return false;
  if (number > pages_in_file_) {
    report_.Fault("page ", number, " is named but not in the file");
    return false;
  }
  if (reached_[number]) {
    report_.Fault("page ", number, " is reached twice");
    return false;
  }
  reached_[number] = true;
  if (stack_.CheckForRecursion(number)) {
    report_.Fault("the tree is too deep at page ", number, "");
    return false;
  }
  String reason;
  if (stack_.Push().ReadPage(*file_, nullptr, number, header_.shape, reason) == 1) {
    CheckShapeOfPage(stack_.Top());
    return true;
  }
  report_.Fault("page ", number, " cannot be read: " + reason);
  stack_.Pop();
  return false;
}

void IndexChecker::CheckShapeOfPage(const ZDXIndexPage& page) {
  uint32_t children = 0;
  for (uint32_t i = 0; i <= page.numentries(); ++i) children += page.childpage(i) != 0 ? 1 : 0;
  if (children == 0) {
    if (leaf_depth_ == 0) leaf_depth_ = stack_.depth();
    if (leaf_depth_ != stack_.depth()) {
      report_.Fault("page ", page.number(), " is a leaf at another depth than the first leaf");
    }
  } else if (children != page.numentries() + 1) {
    report_.Fault("page ", page.number(), " lacks some of its child pages");
  }
}

void IndexChecker::Walk() {
  // A page's cursor is the child that is gone into next, then the key behind it.
  bool down = Enter(header_.startingpage);
  while (!stack_.empty()) {
    ZDXIndexPage& page = stack_.Top();
    if (down && Enter(page.childpage(page.cursor))) continue;
    if (page.cursor < page.numentries()) {
      CheckEntry(page.key(page.cursor), page.recordnum(page.cursor));
      ++page.cursor;
      down = true;
    } else {
      stack_.Pop();
      down = false;
    }
  }
}

void IndexChecker::CheckEntry(std::string_view key, uint32_t recordnum) {
  ++entries_;
  CheckOrder(key);
  if (table_ != nullptr) CheckRecord(key, recordnum);
}

void IndexChecker::CheckOrder(std::string_view key) {
  if (has_last_key_) {
    const int order = SearchKey(last_key_, 1, header_.flags).Compare(key);
    if (order > 0) ++disorder_;
    if (order == 0 && (header_.flags & kIndexUnique) != 0) {
      report_.Fault(String::Concat({"the key '", key, "' stands twice in a unique index"}));
    }
  }
  last_key_ = key;
  has_last_key_ = true;
}

void IndexChecker::CheckRecord(std::string_view key, uint32_t recordnum) {
  if (recordnum == 0 || recordnum >= named_.size()) {
    report_.Fault("a key names record ", recordnum, ", which is not in the table");
    return;
  }
  if (named_[recordnum]) report_.Fault("record ", recordnum, " has more than one key");
  named_[recordnum] = true;
  if (key_field_ < 0) return;
  String expected;
  if (table_->Read(static_cast<int>(recordnum)) == 0 || !ExpectedKey(expected)) return;
  if (expected != key) report_.Fault("record ", recordnum, " has the key of another value");
}

bool IndexChecker::ExpectedKey(String& key) {
  const auto field = static_cast<size_t>(key_field_);
  std::string_view value = table_->Bytes(field);
  String text;
  switch (table_->fields()[field].letter) {
    case 'C':
      while (value.ends_with(' ')) value.remove_suffix(1);
      break;
    case 'N':
      while (value.starts_with(' ')) value.remove_prefix(1);
      break;
    case 'M': {
      const int block = ReadInteger(value);
      // A text that cannot be read is a fault of the table.
      if (block != 0 && table_->memo()->ReadBlock(block, text) == 0) return false;
      value = text;
      break;
    }
    default:
      break;
  }
  key = value.substr(0, value.find('\0')).substr(0, header_.shape.keysize() - 1);
  return true;
}

void IndexChecker::ReportMissing() {
  for (size_t n = 1; n < named_.size(); ++n) {
    if (!named_[n]) report_.Fault("record ", static_cast<int64_t>(n), " has no key");
  }
}

}  // namespace vexa
