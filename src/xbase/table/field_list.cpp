// Reading field specifications. Some messages carry tabs in the place of spaces on purpose: pages
// compare them with the text they know.

#include "xbase/table/field_list.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "core/number.h"
#include "core/text.h"

namespace vexa {

namespace {

constexpr int kLongestChar = 254;
constexpr int kLongestNumber = 19;
constexpr int kDefaultNumber = 10;

// What may stand in parentheses behind a type.
enum class Size { None, Length, LengthAndDecimals };

struct TypeWord {
  std::string_view word;
  XBaseFieldType type;
  int length;  // without parentheses; 0: they are required
  Size size;
};

constexpr TypeWord kTypeWords[] = {
    {"CHAR", XBaseFieldType::CHAR, 0, Size::Length},
    {"NUMBER", XBaseFieldType::NUMBER, kDefaultNumber, Size::LengthAndDecimals},
    {"DATE", XBaseFieldType::DATE, 8, Size::None},
    {"BOOL", XBaseFieldType::BOOL, 1, Size::None},
    {"MEMO", XBaseFieldType::MEMO, 10, Size::None},
};

// Cuts the first word, up to white space, off `text`.
std::string_view TakeWord(std::string_view& text) {
  text = Stripped(text);
  size_t length = 0;
  while (length < text.size() && !IsWhitespace(text[length])) ++length;
  const std::string_view word = text.substr(0, length);
  text = Stripped(text.substr(length));
  return word;
}

// Reads a number of digits only; -1 for any other text.
int ReadDigits(std::string_view text) {
  text = Stripped(text);
  if (text.empty() || !std::all_of(text.begin(), text.end(), IsDigit)) return -1;
  return ReadInteger(text);
}

class Declaration {
 public:
  // Reads `piece`, one declaration. `fields` are those before it.
  Declaration(std::string_view piece, const std::vector<XBaseField::Declaration>& fields)
      : rest_(piece), fields_(fields) {}

  [[nodiscard]] bool Read() { return ReadName() && ReadType() && ReadEnd(); }
  [[nodiscard]] const XBaseField::Declaration& field() const { return field_; }
  [[nodiscard]] const String& message() const { return message_; }

 private:
  bool Fail(std::initializer_list<std::string_view> pieces) {
    message_ = String::Concat(pieces);
    return false;
  }

  [[nodiscard]] bool ReadName() {
    String name(TakeWord(rest_));
    name.upcase();
    if (name.empty()) return Fail({"Empty field name in field specification"});
    if (name.length() > kLongestFieldName) {
      return Fail({"Field name '", name, "' is longer than the XBase limit of 10 characters"});
    }
    for (const XBaseField::Declaration& field : fields_) {
      if (field.name == name) {
        return Fail({"Field name '", name, "' is used more than once in the field specification"});
      }
    }
    field_.name = name;
    return true;
  }

  [[nodiscard]] bool ReadType() {
    size_t length = 0;
    while (length < rest_.size() && !IsWhitespace(rest_[length]) && rest_[length] != '(') {
      ++length;
    }
    const std::string_view word = rest_.substr(0, length);
    if (rest_.empty()) return Fail({"Empty field type in field specification"});
    for (const TypeWord& type : kTypeWords) {
      if (!EqualsIgnoreCase(type.word, word)) continue;
      rest_.remove_prefix(length);
      field_.type = type.type;
      field_.length = type.length;
      return type.size == Size::None || ReadSize(type);
    }
    return Fail({"Unknown\tfield type '", word, "' in field specification"});
  }

  // Reads the parentheses behind a type, if there are any.
  [[nodiscard]] bool ReadSize(const TypeWord& type) {
    const size_t end = rest_.find(')');
    if (rest_.starts_with('(') && end != std::string_view::npos) {
      std::string_view length = rest_.substr(1, end - 1);
      rest_.remove_prefix(end + 1);
      const size_t point = length.find('.');
      if (type.size == Size::LengthAndDecimals && point != std::string_view::npos) {
        const std::string_view decimals = Stripped(length.substr(point + 1));
        field_.decimalcount = decimals.empty() ? 0 : ReadDigits(decimals);
        length = length.substr(0, point);
      }
      field_.length = field_.decimalcount < 0 ? 0 : ReadDigits(length);
    }
    if (field_.length <= 0) {
      return Fail({"Error in field specification: ", type.word, " datatypes require a length"});
    }
    return CheckLength(type.type);
  }

  [[nodiscard]] bool CheckLength(XBaseFieldType type) {
    const String length = PrintInteger(field_.length);
    if (type == XBaseFieldType::CHAR && field_.length > kLongestChar) {
      return Fail({"CHAR fields may\tonly be\t254 characters long, field '", field_.name, "' is ",
                   length, " characters long"});
    }
    if (type == XBaseFieldType::NUMBER && field_.length > kLongestNumber) {
      return Fail({"NUMERIC\tfields may only\tbe 19 digits, field '", field_.name, "'\tis ", length,
                   " digits"});
    }
    return true;
  }

  [[nodiscard]] bool ReadEnd() {
    const std::string_view rest = Stripped(rest_);
    if (rest.empty()) return true;
    return Fail({"Unexpected '", rest, "' following field declaration"});
  }

  std::string_view rest_;
  const std::vector<XBaseField::Declaration>& fields_;
  XBaseField::Declaration field_;
  String message_;
};

}  // namespace

bool ParseFieldList(const String& list, std::vector<XBaseField::Declaration>& fields,
                    String& message) {
  std::string_view rest = list;
  if (Stripped(rest).empty()) {
    message = "Field specification does not define any\tfields";
    return false;
  }
  for (bool first = true;; first = false) {
    const size_t comma = rest.find(',');
    const std::string_view piece = rest.substr(0, comma);
    if (!first && Stripped(piece).empty()) {
      message = "Dangling comma in field\tspecification";
      return false;
    }
    Declaration declaration(piece, fields);
    if (!declaration.Read()) {
      message = declaration.message();
      return false;
    }
    fields.push_back(declaration.field());
    if (comma == std::string_view::npos) return true;
    rest.remove_prefix(comma + 1);
  }
}

}  // namespace vexa
