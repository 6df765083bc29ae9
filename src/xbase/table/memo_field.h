// XBaseMemoField: a field whose text stands in the memo file; the record holds only the number of
// the block where the text begins. The text is read when it is first asked for.
//
// Value and original are each a block number together with a text that is held or still in the
// file, and a mark that says the text is not in the file yet. Swapping moves them as one, so that
// writing a record back with its original values names the original block and stores nothing.

#ifndef VEXA_XBASE_TABLE_MEMO_FIELD_H_
#define VEXA_XBASE_TABLE_MEMO_FIELD_H_

#include "xbase/table/xbase_field.h"

namespace vexa {

class XBaseMemoField final : public XBaseField {
 public:
  using XBaseField::Set;
  using XBaseField::XBaseField;

  // Takes the block number; forgets any text.
  int Read(const unsigned char* recordbytes) override;
  // Stores a changed text that is not empty in the memo file, then writes the block number.
  // REQUIRES: when NeedsMemoBlock(), the caller holds the memo file's write lock.
  [[nodiscard]] int Write(unsigned char* recordbytes) override;
  // Sets the text, of any length.
  void Set(const char* text, int length) override;
  // The text. Empty when it cannot be read, with the table's error set; the record then keeps its
  // block number.
  [[nodiscard]] const String& data() override;
  void SwapOriginal() override;
  void SetOriginal() override;
  [[nodiscard]] bool NeedsMemoBlock() const override;
  // Reads the texts that are still in the file and takes them for changed. One that cannot be read
  // is lost: writing the field fails until it is set.
  void Detach() override;

 private:
  struct Memo {
    String block;  // as the record holds it, empty for no text
    String text;
    bool held = false;     // whether `text` is the text
    bool changed = false;  // whether the text is not in the file
    bool lost = false;     // whether the file went away before the text could be read
  };

  // Brings the current text in. Without success it is not held, so that the next one to ask
  // learns of it too.
  void Load();

  Memo current_;
  // Meaningful only when it may differ from the current one.
  Memo original_;
  bool original_held_ = false;
};

}  // namespace vexa

#endif  // VEXA_XBASE_TABLE_MEMO_FIELD_H_
