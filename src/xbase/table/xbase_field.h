// XBaseField: one field of the current record of a table.
//
// A field holds its value twice: the current one, and the original, which is what the record held
// when it was read. The original is kept so that the keys a record had before an update can be
// computed: SwapOriginal brings it forward, a second SwapOriginal brings the current value back.
//
// How values stand in the record:
//   CHAR, DATE, BOOL   left-aligned, padded with spaces
//   NUMBER             right-aligned, padded with spaces
//   MEMO               the number of the block of its text, as NUMBER; see memo_field.h
// A value is cut to the field's length and otherwise stored as it is given: nothing is rounded or
// checked here.

#ifndef VEXA_XBASE_TABLE_XBASE_FIELD_H_
#define VEXA_XBASE_TABLE_XBASE_FIELD_H_

#include <memory>
#include <string_view>
#include <utility>

#include "core/string.h"
#include "xbase/table/table_header.h"

namespace vexa {

class XBaseTable;

class XBaseField {
 public:
  // What a field is declared as. `length` and `decimalcount` fit into a byte.
  struct Declaration {
    String name;
    XBaseFieldType type = XBaseFieldType::CHAR;
    int length = 0;
    int decimalcount = 0;
  };

  // `table` is borrowed, may be null for a field that is only declared, and must outlive the field.
  XBaseField(XBaseTable* table, Declaration declaration);
  virtual ~XBaseField() = default;
  XBaseField(const XBaseField&) = delete;
  XBaseField& operator=(const XBaseField&) = delete;

  // The field of the right class for the declared type.
  [[nodiscard]] static std::unique_ptr<XBaseField> Make(XBaseTable* table,
                                                        const Declaration& declaration);

  // Takes value and original from the field's bytes, of which there are length(). Returns 1. They
  // are looked at when the value is asked for first.
  // REQUIRES: they stay as they are until the next Read, or Hold.
  virtual int Read(const unsigned char* recordbytes);
  // Makes the value independent of the bytes that were read.
  void Hold() {
    if (stored_ != nullptr) value_ = ValueIn(std::exchange(stored_, nullptr));
  }
  // Puts the value into the field's bytes, length() of them. 1, or 0 with the table's error set.
  [[nodiscard]] virtual int Write(unsigned char* recordbytes);
  // Sets the current value.
  virtual void Set(const String& value);
  virtual void Set(const char* text, int length);

  [[nodiscard]] virtual const String& name() const { return declared_.name; }
  [[nodiscard]] virtual XBaseFieldType type() const { return declared_.type; }
  [[nodiscard]] virtual int length() const { return declared_.length; }
  [[nodiscard]] virtual int decimalcount() const { return declared_.decimalcount; }
  // The current value. Stays valid until the field or the current record changes.
  [[nodiscard]] virtual const String& data() {
    Hold();
    return value_;
  }
  virtual void SwapOriginal();
  virtual void SetOriginal();

  // Whether writing the record now would first have to store a text in the memo file.
  [[nodiscard]] virtual bool NeedsMemoBlock() const { return false; }
  // Makes the value independent of the table's files, which are about to be replaced.
  virtual void Detach() {}
  // What the table file says about the field.
  [[nodiscard]] FieldDescriptor Descriptor() const;

 protected:
  // Cuts `text` to the field's length.
  [[nodiscard]] std::string_view Cut(std::string_view text) const;
  // The value that the field's bytes stand for.
  [[nodiscard]] std::string_view ValueIn(const unsigned char* recordbytes) const;
  // Puts `value` into the field's bytes, aligned as the type asks.
  void Place(std::string_view value, unsigned char* recordbytes) const;
  [[nodiscard]] XBaseTable* table() const { return table_; }

 private:
  [[nodiscard]] bool RightAligned() const {
    return declared_.type == XBaseFieldType::NUMBER || declared_.type == XBaseFieldType::MEMO;
  }

  XBaseTable* table_;
  Declaration declared_;
  const unsigned char* stored_ = nullptr;  // borrowed: the value while nobody asked for it
  String value_;                           // once it is held
  // Kept only when it may differ from the current value.
  String original_;
  bool original_held_ = false;
};

}  // namespace vexa

#endif  // VEXA_XBASE_TABLE_XBASE_FIELD_H_
