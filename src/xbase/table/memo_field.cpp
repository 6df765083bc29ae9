// Memo texts and their block numbers; see memo_field.h.

#include "xbase/table/memo_field.h"

#include <utility>

#include "core/number.h"
#include "xbase/table/xbase_table.h"

namespace vexa {

int XBaseMemoField::Read(const unsigned char* recordbytes) {
  current_.block = ValueIn(recordbytes);
  current_.text.clear();
  current_.held = false;
  current_.changed = false;
  current_.lost = false;
  original_held_ = false;
  return 1;
}

int XBaseMemoField::Write(unsigned char* recordbytes) {
  if (current_.lost) {
    (void)table()->MemoTextLost(name());
    return 0;
  }
  if (NeedsMemoBlock()) {
    const int block = table()->WriteMemoBlock(current_.text);
    if (block < 0) return 0;
    const String number = PrintInteger(block);
    // A cut number would name another text.
    if (number.length() > length()) {
      (void)table()->MemoNumberTooLong(name());
      return 0;
    }
    current_.block = number;
  } else if (current_.changed) {
    current_.block.clear();
  }
  current_.changed = false;
  Place(current_.block, recordbytes);
  return 1;
}

void XBaseMemoField::Set(const char* text, int length) {
  if (!original_held_) {
    original_ = current_;
    original_held_ = true;
  }
  current_.text = std::string_view(text, static_cast<size_t>(length));
  current_.held = true;
  current_.changed = true;
  current_.lost = false;
}

const String& XBaseMemoField::data() {
  Load();
  return current_.text;
}

void XBaseMemoField::Load() {
  if (current_.held) return;
  current_.text.clear();
  const int block = ReadInteger(current_.block);
  current_.held = block == 0 || table()->ReadMemoBlock(block, current_.text) != 0;
}

void XBaseMemoField::Detach() {
  for (int i = 0; i < 2; ++i) {
    Load();
    current_.lost = current_.lost || !current_.held;
    current_.held = true;
    current_.changed = true;
    SwapOriginal();
    if (!original_held_) return;
  }
}

void XBaseMemoField::SwapOriginal() {
  if (original_held_) std::swap(current_, original_);
}

void XBaseMemoField::SetOriginal() { original_held_ = false; }

bool XBaseMemoField::NeedsMemoBlock() const { return current_.changed && !current_.text.empty(); }

}  // namespace vexa
