// UNIXConfigParser: reads the configuration file, one setting a line, with a few tags among them.
//
//   # a comment, to the end of the line
//   vexaroot = /srv/site
//   <CONTENT-TYPE EXTS="txt, text" MIMETYPE="text/plain">
//
// A backslash before "#", "<", a line end or a backslash is dropped and keeps that character as
// part of the text; any other backslash stays. Tags are read by the scanner of scripts, but their
// values are plain words or quoted texts. HTML comments, "<## ... ##>" and comment blocks are
// skipped, and so are tags that mean nothing here.
//
// Errors carry the line on which the setting or the tag begins. The first one ends the reading.

#ifndef VEXA_CONFIG_CONFIG_PARSER_H_
#define VEXA_CONFIG_CONFIG_PARSER_H_

#include <string_view>

#include "core/string.h"
#include "engine/parser.h"
#include "engine/tag.h"

namespace vexa {

class ConfigReceiver;
class UNIXConfig;

class UNIXConfigParser final : public Parser {
 public:
  // Everything is borrowed; `source` is open and stands at its start.
  UNIXConfigParser(ConfigReceiver& receiver, UNIXConfig& config, Buffer& source);

  // Reads the whole file into the configuration. False after the error was shown.
  [[nodiscard]] bool Parse();

 protected:
  // One setting. An unknown key is accepted in silence, so that one file can serve several
  // versions.
  [[nodiscard]] Progress ProcessText(std::string_view text) override;
  [[nodiscard]] Progress ProcessKnownTag(Tag& tag) override;
  [[nodiscard]] Progress ProcessUnknownTag(std::string_view) override { return Progress::More; }
  [[nodiscard]] Progress ProcessNewLine(std::string_view) override { return Progress::More; }
  // Shows a syntax error at the line where the piece being read began.
  void ReportSyntaxError(std::string_view text) override;
  // A quoted value comes without its quotes.
  [[nodiscard]] AttributeEnd GetValue(Tag& tag, const String& name, ScriptValue& value) override;

 private:
  enum class LineEnd { Line, Tag, File };

  LineEnd GetNextLine(String& text);
  void EatComment();
  void CatEscaped(String& text);

  // What the tags do. False after an error was shown.
  using Handler = bool (UNIXConfigParser::*)(const Tag& tag);
  static const Handler kHandlers[];  // by the numbers of the tags
  [[nodiscard]] bool ProcessContentType(const Tag& tag);
  [[nodiscard]] bool ProcessCommerceLib(const Tag& tag);
  [[nodiscard]] bool ProcessPackage(const Tag& tag);
  [[nodiscard]] bool ProcessVirtualHost(const Tag& tag);
  // The value of an attribute, or null after an error was shown.
  [[nodiscard]] const String* Required(const Tag& tag, std::string_view attribute);

  ConfigReceiver& receiver_;
  UNIXConfig& config_;
  int line_ = 1;  // where the setting or tag being read began
};

}  // namespace vexa

#endif  // VEXA_CONFIG_CONFIG_PARSER_H_
