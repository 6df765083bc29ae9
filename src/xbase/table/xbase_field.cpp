// Values of a field and their bytes in the record; see xbase_field.h.

#include "xbase/table/xbase_field.h"

#include <cstring>
#include <utility>

#include "xbase/table/memo_field.h"

namespace vexa {

XBaseField::XBaseField(XBaseTable* table, Declaration declaration)
    : table_(table), declared_(std::move(declaration)) {}

std::unique_ptr<XBaseField> XBaseField::Make(XBaseTable* table, const Declaration& declaration) {
  if (declaration.type == XBaseFieldType::MEMO) {
    return std::make_unique<XBaseMemoField>(table, declaration);
  }
  return std::make_unique<XBaseField>(table, declaration);
}

int XBaseField::Read(const unsigned char* recordbytes) {
  stored_ = recordbytes;
  original_held_ = false;
  return 1;
}

int XBaseField::Write(unsigned char* recordbytes) {
  Hold();
  Place(value_, recordbytes);
  return 1;
}

void XBaseField::Set(const String& value) { Set(value.data(), value.length()); }

void XBaseField::Set(const char* text, int length) {
  Hold();
  if (!original_held_) {
    original_ = value_;
    original_held_ = true;
  }
  value_ = Cut(std::string_view(text, static_cast<size_t>(length)));
}

void XBaseField::SwapOriginal() {
  if (original_held_) std::swap(value_, original_);
}

void XBaseField::SetOriginal() { original_held_ = false; }

FieldDescriptor XBaseField::Descriptor() const {
  return {declared_.name, kFieldTypeLetters[static_cast<size_t>(declared_.type)], declared_.length,
          declared_.decimalcount};
}

std::string_view XBaseField::Cut(std::string_view text) const {
  return text.substr(0, static_cast<size_t>(declared_.length));
}

std::string_view XBaseField::ValueIn(const unsigned char* recordbytes) const {
  std::string_view bytes(reinterpret_cast<const char*>(recordbytes),
                         static_cast<size_t>(declared_.length));
  if (RightAligned()) {
    while (!bytes.empty() && bytes.front() == ' ') bytes.remove_prefix(1);
  } else if (declared_.type == XBaseFieldType::CHAR) {
    while (!bytes.empty() && bytes.back() == ' ') bytes.remove_suffix(1);
  }
  return bytes;
}

void XBaseField::Place(std::string_view value, unsigned char* recordbytes) const {
  const std::string_view cut = Cut(value);
  const size_t padding = static_cast<size_t>(declared_.length) - cut.size();
  const size_t start = RightAligned() ? padding : 0;
  std::memset(recordbytes, ' ', static_cast<size_t>(declared_.length));
  if (!cut.empty()) std::memcpy(recordbytes + start, cut.data(), cut.size());
}

}  // namespace vexa
