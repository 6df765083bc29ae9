// The formatting engine: takes the picture item by item and runs each over the value.

#include "expr/format_picture.h"

#include <cstdint>

#include "core/text.h"

namespace vexa {

namespace {

enum class ItemKind {
  Literal,    // `character` itself
  Digit,      // #
  Letter,     // A
  NotDigit,   // !#
  NotLetter,  // !A
  Pass,       // P
  Drop,       // p
};

struct Item {
  ItemKind kind = ItemKind::Literal;
  char character = '\0';
  bool repeat_all = false;  // written with "*"
  size_t count = 1;
};

// Reads a decimal number off `picture` at `i`; `value` stays as it is when there is none. More
// than kLongestFormatted is as good as it, since every repetition adds to or takes off that much.
bool TakeNumber(std::string_view picture, size_t& i, size_t& value) {
  size_t first = i;
  size_t number = 0;
  for (; i < picture.size() && IsDigit(picture[i]); ++i) {
    if (number <= kLongestFormatted) number = number * 10 + static_cast<size_t>(picture[i] - '0');
  }
  if (i == first) return false;
  value = number;
  return true;
}

class PictureReader {
 public:
  explicit PictureReader(std::string_view picture) : picture_(picture) {}

  // False at the end of the picture.
  bool Next(Item& item) {
    item = Item();
    bool negated = TakeNegation();
    if (next_ < picture_.size() && picture_[next_] == '*') {
      item.repeat_all = true;
      ++next_;
    } else {
      TakeNumber(picture_, next_, item.count);
    }
    negated = TakeNegation() || negated;
    if (next_ >= picture_.size()) return false;
    ReadCode(negated, item);
    return true;
  }

 private:
  bool TakeNegation() {
    if (next_ >= picture_.size() || picture_[next_] != '!') return false;
    ++next_;
    return true;
  }

  void ReadCode(bool negated, Item& item) {
    item.character = picture_[next_++];
    switch (item.character) {
      case '#':
        item.kind = negated ? ItemKind::NotDigit : ItemKind::Digit;
        break;
      case 'A':
        item.kind = negated ? ItemKind::NotLetter : ItemKind::Letter;
        break;
      case 'P':
        item.kind = ItemKind::Pass;
        break;
      case 'p':
        item.kind = ItemKind::Drop;
        break;
      case '&':
        ReadCharacterNumber(item);
        break;
      default:
        break;
    }
  }

  // Behind an "&": takes `N;` when it is there.
  void ReadCharacterNumber(Item& item) {
    size_t i = next_;
    size_t code = 0;
    if (!TakeNumber(picture_, i, code) || i >= picture_.size() || picture_[i] != ';') return;
    if (code < 1 || code > 255) return;
    item.character = static_cast<char>(code);
    next_ = i + 1;
  }

  std::string_view picture_;
  size_t next_ = 0;
};

// Whether an item of this kind takes `c`; when not, the item drops it and looks further.
bool Takes(ItemKind kind, char c) {
  switch (kind) {
    case ItemKind::Letter:
      return IsAlpha(c);
    case ItemKind::NotDigit:
      return !IsDigit(c);
    case ItemKind::NotLetter:
      return !IsAlpha(c);
    default:
      return true;
  }
}

// Runs `item` once over what is left of the value. REQUIRES: something is left.
void Apply(const Item& item, std::string_view& rest, String& result) {
  if (item.kind == ItemKind::Literal) {
    result.cat(item.character);
    return;
  }
  while (!rest.empty()) {
    char c = rest.front();
    rest.remove_prefix(1);
    if (!Takes(item.kind, c)) continue;
    if (item.kind == ItemKind::Digit && !IsDigit(c)) c = '0';
    if (item.kind != ItemKind::Drop) result.cat(c);
    return;
  }
}

}  // namespace

String Format(std::string_view value, std::string_view picture) {
  String result;
  PictureReader reader(picture);
  Item item;
  while (!value.empty() && result.size() < kLongestFormatted && reader.Next(item)) {
    size_t count = item.repeat_all ? value.size() : item.count;
    for (; count > 0 && !value.empty() && result.size() < kLongestFormatted; --count) {
      Apply(item, value, result);
    }
  }
  return result;
}

}  // namespace vexa
