// UNIXConfigParser: reads the configuration file, one setting a line, with a few tags among them.
//
//   # a comment, to the end of the line
//   vexaroot = /srv/site
//   <CONTENT-TYPE EXTS="txt, text" MIMETYPE="text/plain">
//
// A backslash before "#", "<", a line end or a backslash is dropped and keeps that character as
// part of the text; any other backslash stays. Tags are written as in scripts, but their values are
// plain words or quoted texts. HTML comments, "<## ... ##>" and comment blocks are skipped, and so
// are tags that mean nothing here.
//
// Errors carry the line on which the setting or the tag begins. The first one ends the reading.

#ifndef VEXA_CONFIG_CONFIG_PARSER_H_
#define VEXA_CONFIG_CONFIG_PARSER_H_

#include <string_view>
#include <vector>

#include "core/string.h"

namespace vexa {

class Buffer;
class ConfigReceiver;
class UNIXConfig;

class UNIXConfigParser {
 public:
  // Everything is borrowed; `source` is open and stands at its start.
  UNIXConfigParser(ConfigReceiver& receiver, UNIXConfig& config, Buffer& source)
      : receiver_(receiver), config_(config), source_(source) {}

  // Reads the whole file into the configuration. False after the error was shown.
  [[nodiscard]] bool Parse();

 private:
  struct Attribute {
    String name;
    String value;
  };
  struct Tag {
    std::string_view name;
    std::vector<Attribute> attributes;
    // The value of the attribute, letter case ignored, or null.
    [[nodiscard]] const String* Find(std::string_view attribute) const;
  };
  // A tag of the file: what it is called and what it does. A handler returns false after an error.
  struct TagRow {
    std::string_view name;
    bool (UNIXConfigParser::*handler)(const Tag& tag);
  };
  static const TagRow kTags[];

  enum class LineEnd { Line, Tag, File };
  // What reading a part of a tag came to.
  enum class Scan { Failed, More, TagEnd };

  LineEnd GetNextLine(String& text);
  void EatComment();
  void CatEscaped(String& text);
  [[nodiscard]] bool ProcessText(std::string_view text);

  [[nodiscard]] bool GetTag();
  [[nodiscard]] bool GetKnownTag(const TagRow& row);
  [[nodiscard]] Scan GetNextNameValuePair(Tag& tag);
  [[nodiscard]] Scan GetValue(const Tag& tag, String& value);
  [[nodiscard]] bool EatUntilTagEnd();
  [[nodiscard]] bool EatHTMLComment();
  [[nodiscard]] bool FindText(std::string_view text, std::string_view shown);
  int GetAfterWhitespace();

  [[nodiscard]] bool ProcessContentType(const Tag& tag);
  [[nodiscard]] bool ProcessCommerceLib(const Tag& tag);
  [[nodiscard]] bool ProcessPackage(const Tag& tag);
  [[nodiscard]] bool ProcessVirtualHost(const Tag& tag);
  [[nodiscard]] const String* Required(const Tag& tag, std::string_view attribute);

  // Shows a syntax error at the line where the piece being read began. Always returns false.
  bool SyntaxError(std::string_view text);
  Scan UnexpectedEnd(const Tag& tag);

  ConfigReceiver& receiver_;
  UNIXConfig& config_;
  Buffer& source_;
  int line_ = 1;  // where the setting or tag being read began
};

}  // namespace vexa

#endif  // VEXA_CONFIG_CONFIG_PARSER_H_
