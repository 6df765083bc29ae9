// SettingsReader: reads a file of settings, one a line, with tags and sections among them. It is
// the base of the readers of such files, which say what settings, tags and sections mean.
//
//   # a comment, to the end of the line
//   key = value
//   <SECTION NAMES="a, b">    one attribute lists whom the section is for
//     key = value
//   </SECTION>
//
// A backslash before "#", "<", a line end or a backslash is dropped and keeps that character as
// part of the text; any other backslash stays. Tags are read by the scanner of scripts, but their
// values are plain words or quoted texts. HTML comments, "<## ... ##>" and comment blocks are
// skipped.
//
// Sections do not nest. One that nobody wants is passed over at the speed of a search: to the next
// closing tag that stands neither in a comment nor behind a backslash (which here hides whatever
// byte follows). Its text is not looked into, so what is wrong there is no error; an opening tag
// is, because a lost closing tag must not hide the section behind it.
//
// Errors carry the line on which the setting or the tag begins. The first one ends the reading,
// unless the file is only checked: then all sections are read, and the reading goes on behind
// errors.

#ifndef VEXA_CONFIG_SETTINGS_READER_H_
#define VEXA_CONFIG_SETTINGS_READER_H_

#include <string_view>
#include <vector>

#include "core/string.h"
#include "engine/parser.h"
#include "engine/tag.h"

namespace vexa {

// What a check found.
struct Finding {
  enum class Kind { Error, Warning };

  int line;
  Kind kind;
  String text;
};

class SettingsReader : public Parser {
 public:
  // From here on the file is only checked; what is found goes to `findings`, which is borrowed.
  // A section then counts as one that is read, whatever OpenSection says.
  void CheckInto(std::vector<Finding>& findings) { findings_ = &findings; }

 protected:
  // What becomes of a section whose opening tag was read.
  enum class Section { Failed, Read, Skip };  // Failed: an error was reported

  // All are borrowed; `source` is open and stands at its start. The first two rows of `tags` open
  // and close a section: the name of the second is that of the first, in capitals, behind a "/".
  // `list` is the attribute of the opening tag, which must be there.
  SettingsReader(Buffer& source, const TagSet& tags, std::string_view list);

  // Reads the whole file, or up to where a derived class ended the reading. False after an error
  // was shown.
  [[nodiscard]] bool Parse();

  // One setting, its key and value stripped. More, or Failed after an error was reported.
  [[nodiscard]] virtual Progress ProcessSetting(std::string_view key, std::string_view value) = 0;
  // A section begins; `list` is the value of its attribute, until the source is asked again.
  [[nodiscard]] virtual Section OpenSection(std::string_view list) = 0;
  // A section that was read ends. Stop: the rest of the file is left unread.
  [[nodiscard]] virtual Progress CloseSection() { return Progress::More; }
  // Another tag of the set.
  [[nodiscard]] virtual Progress ProcessTag(const Tag&) { return Progress::More; }
  // A tag that is not of the set, and was read to its end.
  [[nodiscard]] virtual Progress ProcessForeignTag(std::string_view) { return Progress::More; }
  // Shows a syntax error of that line.
  virtual void ShowError(int line, std::string_view text) = 0;

  // Reports an error at the line where the setting or tag being read began.
  void ReportSyntaxError(std::string_view text) final;
  // In a check: tells of what may not be meant so.
  void Warn(int line, std::string_view text);
  // Where the setting or tag being read began.
  [[nodiscard]] int item_line() const { return line_; }
  // Whether what is being read stands in a section.
  [[nodiscard]] bool in_section() const { return section_line_ != 0; }
  // The value of an attribute, or null after it was reported as missing.
  [[nodiscard]] const String* Required(const Tag& tag, std::string_view attribute);

 private:
  enum class LineEnd { Line, Tag, File };

  // The scanner's deliveries.
  [[nodiscard]] Progress ProcessText(std::string_view text) final;
  [[nodiscard]] Progress ProcessKnownTag(Tag& tag) final;
  [[nodiscard]] Progress ProcessUnknownTag(std::string_view raw) final;
  [[nodiscard]] Progress ProcessNewLine(std::string_view) final { return Progress::More; }
  [[nodiscard]] bool GetNameValuePairs(Tag& tag) final;
  // A quoted value comes without its quotes.
  [[nodiscard]] AttributeEnd GetValue(Tag& tag, const String& name, ScriptValue& value) final;
  // The name of a list alone is no list.
  [[nodiscard]] bool ProcessEmptyValue(Tag& tag, const String& name, ScriptValue& value) final {
    return tag.id() == tags().rows[0].id || Parser::ProcessEmptyValue(tag, name, value);
  }

  [[nodiscard]] Progress ProcessTagOrComment();
  [[nodiscard]] const String* RequiredAlone(const Tag& tag);
  [[nodiscard]] bool TakePlainOpening(std::string_view& list);
  [[nodiscard]] Progress BeginSection(Section section);

  LineEnd GetNextLine(String& text);
  void EatComment();
  void CatEscaped(String& text);

  [[nodiscard]] bool SkipSection();
  [[nodiscard]] const TagRow* ReadSectionTagName();
  [[nodiscard]] bool UnexpectedEnd();

  [[nodiscard]] Progress Outcome(Progress of_tag) const;
  [[nodiscard]] bool checking() const { return findings_ != nullptr; }
  void Report(int line, std::string_view text);
  void FindSkippedEnd();
  void CompareEnds();

  const std::string_view list_;
  String plain_opening_;  // what opening tags begin with in their usual form, once it is asked for
  int line_ = 1;          // where the setting or tag being read began
  int section_line_ = 0;  // where the open section began; 0: none is open
  std::vector<Finding>* findings_ = nullptr;  // null: this is no check
  // In a check: whether the open section can be passed over, and where it then ends.
  bool skips_ = false;
  SourcePlace skipped_end_;
};

}  // namespace vexa

#endif  // VEXA_CONFIG_SETTINGS_READER_H_
