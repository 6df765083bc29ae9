// TagWalker: steps through the tags of a text that another machine sent, as they stand: nothing is
// repaired, no tree is built. It goes through the text once and remembers only the present tag. It
// shares nothing with the scanner of scripts.
//
//   TagWalker walker(text, DetectMarkup(type, text));
//   while (walker.Next()) use(walker.name(), walker.text());
//
// A step is a tag with the text behind it up to the next tag; the first may be the text before any
// tag, unless that is white space. Comments, declarations, processing instructions and "</" before
// no letter vanish, and the text around them is one. CDATA is text. A tag that the end cuts off is
// dropped. In HTML the content of script and style is text as it stands, that of title and textarea
// text with entities. In XML <x/> is two steps, x and /x.

#ifndef VEXA_NET_TAG_WALKER_H_
#define VEXA_NET_TAG_WALKER_H_

#include <cstddef>
#include <string_view>
#include <vector>

#include "core/string.h"
#include "net/entities.h"

namespace vexa {

// The name of a header or attribute as the end of a variable's name: letters and digits stay,
// anything else becomes "_". Empty when it is longer than kLongestPart bytes, and then left out.
[[nodiscard]] String VariablePart(std::string_view name);
inline constexpr size_t kLongestPart = 64;
// How many of one kind become variables.
inline constexpr size_t kMostParts = 100;

// Xml by its content type (in lower case, without parameters) or when it begins with "<?xml".
[[nodiscard]] Markup DetectMarkup(std::string_view type, std::string_view text);
// The charset that the XML declaration at the start names, else a meta tag of the first 1024 bytes;
// empty without either.
[[nodiscard]] String NamedCharset(std::string_view text);

class TagWalker {
 public:
  struct Attribute {
    String name;             // as VariablePart gives it, in HTML in lower case
    std::string_view value;  // as written
  };

  // `text` is borrowed, and should be UTF-8.
  TagWalker(std::string_view text, Markup markup) : source_(text), markup_(markup) {}

  // Moves to the next step. False at the end.
  [[nodiscard]] bool Next();

  // --- The present step ---
  // The name, lower case in HTML, as written in XML, with "/" first for a closing tag; empty for
  // the text before the first tag.
  [[nodiscard]] const String& name() const { return name_; }
  // The tag as it stands; empty for that text, and for the closing step of <x/>. Borrows.
  [[nodiscard]] std::string_view raw() const { return raw_; }
  // The text behind it, decoded.
  [[nodiscard]] const String& text() const { return text_; }
  // The first kMostParts attributes with different names; of two with one name the first.
  [[nodiscard]] const std::vector<Attribute>& attributes() const { return attributes_; }
  // The decoded value of the attribute of that name, letter case ignored; empty without one.
  [[nodiscard]] String Value(std::string_view attribute) const;
  [[nodiscard]] String Decoded(std::string_view written) const;
  // Where the present step ends: it only grows.
  [[nodiscard]] size_t position() const { return position_; }

 private:
  // What begins at a "<".
  enum class Kind { Text, Tag, CharacterData, Nothing };

  [[nodiscard]] char At(size_t i) const { return i < source_.size() ? source_[i] : '\0'; }
  [[nodiscard]] bool BeginsName(char c) const;
  [[nodiscard]] Kind KindAt(size_t start) const;
  [[nodiscard]] size_t Behind(std::string_view end, size_t from) const;
  [[nodiscard]] size_t BehindNothing(size_t start) const;
  [[nodiscard]] size_t BehindDeclaration(size_t start) const;
  void ReadTag();
  bool ReadAttributes(size_t at);
  void AddAttribute(std::string_view name, std::string_view value);
  std::string_view ReadAttributeValue(size_t& at) const;
  void ReadText();
  void ReadElementText();

  std::string_view source_;
  Markup markup_;
  size_t position_ = 0;
  bool started_ = false;
  bool closes_itself_ = false;  // the present tag is <x/> of XML, and its closing step follows
  String name_;
  std::string_view raw_;
  String text_;
  std::vector<Attribute> attributes_;
};

}  // namespace vexa

#endif  // VEXA_NET_TAG_WALKER_H_
