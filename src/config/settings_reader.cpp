// SettingsReader: lines, settings, tags and sections.
//
//   Parse ─▶ GetNextLine   the next text, without comments and escapes ─▶ ProcessText: one setting
//         └▶ a "<"         the scanner of scripts reads what stands there ─▶ ProcessKnownTag
//                                an opening tag that nobody wants ─▶ SkipSection
//
// Errors carry the line on which the setting or tag began, not the one where the fault was noticed.

#include "config/settings_reader.h"

#include <cassert>
#include <utility>

#include "core/buffer.h"
#include "core/encoding.h"
#include "core/find_byte.h"
#include "core/number.h"
#include "core/text.h"

namespace vexa {

namespace {

// The numbers of the section's tags.
constexpr int kOpening = 0;
constexpr int kClosing = 1;

// Takes what follows the "<" of a closing tag that has nothing but its name, and lies in the source
// in one piece. False, and nothing taken, when what comes next is anything else.
bool TakePlainClosing(Buffer& source, std::string_view name) {
  const std::string_view run = source.Run();
  if (run.size() <= name.size() || run[name.size()] != '>' ||
      !EqualsIgnoreCase(run.substr(0, name.size()), name)) {
    return false;
  }
  source.TakeWithinLine(name.size() + 1);
  return true;
}

}  // namespace

SettingsReader::SettingsReader(Buffer& source, const TagSet& tags, std::string_view list)
    : Parser(source, tags), list_(list) {
  assert(tags.rows.size() > kClosing && tags.rows[kOpening].id == kOpening);
  assert(tags.rows[kClosing].name.substr(1) == tags.rows[kOpening].name);
}

bool SettingsReader::Parse() {
  String text;
  for (;;) {
    text.clear();
    const LineEnd end = GetNextLine(text);
    if (ProcessText(Stripped(text)) == Progress::Failed && !checking()) return false;
    if (end == LineEnd::Line) continue;
    if (end == LineEnd::File) return !in_section() || UnexpectedEnd();
    line_ = source().line();
    const Progress progress = ProcessTagOrComment();
    if (progress == Progress::More) continue;
    if (!checking()) return progress != Progress::Failed;
    // What is left of a tag that could not be read must not be taken for settings.
    EatComment();
  }
}

void SettingsReader::ReportSyntaxError(std::string_view text) { Report(line_, text); }

void SettingsReader::Report(int line, std::string_view text) {
  if (checking()) {
    findings_->push_back({line, Finding::Kind::Error, String(text)});
  } else {
    ShowError(line, text);
  }
}

// --- Lines -----------------------------------------------------------------------------------

// Collects the next text that is not empty, up to the end of its line, a tag, or the end of the
// file. The "<" of a tag stays unread.
SettingsReader::LineEnd SettingsReader::GetNextLine(String& text) {
  for (;;) {
    if (text.empty()) line_ = source().line();
    int c = source().GetNextChar();
    switch (c) {
      case -1:
        return LineEnd::File;
      case '<':
        source().UnGetChar();
        return LineEnd::Tag;
      case '#':
        EatComment();
        break;
      case '\\':
        CatEscaped(text);
        break;
      case '\r':
      case '\n':
        if (!text.empty()) return LineEnd::Line;
        break;
      default:
        if (!text.empty() || !IsWhitespace(static_cast<char>(c)))
          text.Accumulate(static_cast<char>(c));
    }
  }
}

// Drops a comment; the line end behind it still ends the text before it.
void SettingsReader::EatComment() {
  for (;;) {
    const std::string_view run = source().Run();
    const size_t length = FindByte<'\r', '\n'>(run);
    source().TakeWithinLine(length);
    if (run.empty() || length < run.size()) return;
  }
}

// What a backslash and the character after it stand for.
void SettingsReader::CatEscaped(String& text) {
  int c = source().GetNextChar();
  if (c != '#' && c != '<' && c != '\\' && c != '\r' && c != '\n') text.Accumulate('\\');
  if (c == -1) return;
  text.Accumulate(static_cast<char>(c));
  if (c != '\r') return;
  // CR and LF together are one line end.
  c = source().GetNextChar();
  if (c == '\n') {
    text.Accumulate('\n');
  } else if (c != -1) {
    source().UnGetChar();
  }
}

Progress SettingsReader::ProcessText(std::string_view text) {
  if (text.empty()) return Progress::More;
  const size_t equals = text.find('=');
  if (equals == text.npos) {
    ReportSyntaxError("Missing =");
    return Progress::Failed;
  }
  return ProcessSetting(Stripped(text.substr(0, equals)), Stripped(text.substr(equals + 1)));
}

// --- Tags ------------------------------------------------------------------------------------

// A tag of the section that may not stand here is told before its attributes are looked at, as it
// is in a section that is passed over.
bool SettingsReader::GetNameValuePairs(Tag& tag) {
  if (tag.id() == kOpening && in_section()) {
    ReportSyntaxError(
        String::Concat({"Nested &lt;", tag.name(), "&gt; sections are not supported"}));
    return false;
  }
  if (tag.id() == kClosing && !in_section()) {
    ReportSyntaxError(String::Concat({"Unexpected &lt;", tag.name(), "&gt;"}));
    return false;
  }
  return Parser::GetNameValuePairs(tag);
}

AttributeEnd SettingsReader::GetValue(Tag& tag, const String& name, ScriptValue& value) {
  AttributeEnd end = Parser::GetValue(tag, name, value);
  // Its last character goes whatever it is.
  String& text = value.MutableText();
  if (text[0] == '"') text = text.length() < 2 ? String() : text.at(1, text.length() - 1);
  return end;
}

Progress SettingsReader::ProcessKnownTag(Tag& tag) {
  if (tag.id() == kOpening) {
    const String* list = RequiredAlone(tag);
    return BeginSection(list == nullptr ? Section::Failed : OpenSection(*list));
  }
  if (tag.id() != kClosing) return Outcome(ProcessTag(tag));
  if (checking()) CompareEnds();
  section_line_ = 0;
  return Outcome(CloseSection());
}

Progress SettingsReader::ProcessUnknownTag(std::string_view raw) {
  const std::string_view tag = Stripped(raw.substr(1, raw.size() - 2));
  if (tag.starts_with("!--")) return Progress::More;
  return Outcome(ProcessForeignTag(tag.substr(0, tag.find_first_of(" \t\r\n"))));
}

// A check goes on behind a whole tag, whatever was wrong with it.
Progress SettingsReader::Outcome(Progress of_tag) const {
  return checking() ? Progress::More : of_tag;
}

const String* SettingsReader::Required(const Tag& tag, std::string_view attribute) {
  if (const NameValuePair* pair = tag.Find(attribute)) return &pair->value.text();
  ReportSyntaxError(String::Concat(
      {"&lt;", tag.name(), "&gt; requires the ", attribute, " attribute to be specified"}));
  return nullptr;
}

// The list of an opening tag, which must have a value and nothing beside it: what stands behind a
// list without quotes would be left out of it without a word. Null after an error was reported.
const String* SettingsReader::RequiredAlone(const Tag& tag) {
  const String* list = Required(tag, list_);
  if (list == nullptr || tag.attributes().size() == 1) return list;
  const bool first = &tag.attributes()[0].value.text() == list;
  ReportSyntaxError(
      String::Concat({"Unexpected attribute '", EntityEncoded(tag.attributes()[first ? 1 : 0].name),
                      "' in &lt;", tag.name(), "&gt;"}));
  return nullptr;
}

// --- Sections -------------------------------------------------------------------------------

// The scanner's reading of what begins with the "<" that comes next. Most tags of a large file open
// sections that nobody wants, and are written in the same way: those are read at once.
Progress SettingsReader::ProcessTagOrComment() {
  std::string_view list;
  if (!in_section() && TakePlainOpening(list)) return BeginSection(OpenSection(list));
  bool known = false;
  return ProcessConstruct(known);
}

// Takes a tag <SECTION LIST="..."> that lies in the source in one piece. False, and nothing taken,
// when what comes next is anything else.
bool SettingsReader::TakePlainOpening(std::string_view& list) {
  if (plain_opening_.empty()) {
    plain_opening_ = String::Concat({"<", tags().rows[kOpening].name, " ", list_, "=\""});
  }
  const std::string_view run = source().Run();
  const size_t at = plain_opening_.size();
  if (!EqualsIgnoreCase(run.substr(0, at), plain_opening_)) return false;
  const size_t end = FindByte<'"'>(run, at);
  if (run.substr(end, 2) != "\">") return false;
  list = run.substr(at, end - at);
  source().Take(end + 2);
  return true;
}

Progress SettingsReader::BeginSection(Section section) {
  if (section == Section::Failed && !checking()) return Progress::Failed;
  section_line_ = line_;
  if (checking()) FindSkippedEnd();
  const bool skip = section == Section::Skip && !checking();
  return !skip || SkipSection() ? Progress::More : Progress::Failed;
}

// --- Sections that nobody wants --------------------------------------------------------------

// Passes over the section up to and including its closing tag.
bool SettingsReader::SkipSection() {
  for (;;) {
    const std::string_view run = source().Run();
    if (run.empty()) return UnexpectedEnd();
    const size_t length = FindByte<'<', '#', '\\'>(run);
    source().SetLine(source().line() + CountByte<'\n'>(run.substr(0, length)));
    source().TakeWithinLine(length);
    if (length == run.size()) continue;
    line_ = source().line();
    const int c = source().GetNextChar();
    if (c == '#') EatComment();
    if (c == '\\') (void)source().GetNextChar();
    if (c != '<') continue;
    if (TakePlainClosing(source(), tags().rows[kClosing].name)) {
      section_line_ = 0;
      return true;
    }
    if (const TagRow* row = ReadSectionTagName()) {
      Tag tag(*row);
      if (!GetNameValuePairs(tag)) return false;
      section_line_ = 0;
      return true;
    }
  }
}

// Reads what follows a "<". The row of the section's tag whose name that is, with white space or
// ">" behind it, which stays unread; null, and nothing but letters and a "/" read, when it is none.
const TagRow* SettingsReader::ReadSectionTagName() {
  int c = source().GetNextChar();
  const TagRow& row = tags().rows[c == '/' ? kClosing : kOpening];
  for (const char expected : row.name) {
    if (c < 0) return nullptr;
    if (ToUpper(static_cast<char>(c)) != expected) {
      source().UnGetChar();
      return nullptr;
    }
    c = source().GetNextChar();
  }
  if (c < 0) return nullptr;
  source().UnGetChar();
  return c == '>' || IsWhitespace(static_cast<char>(c)) ? &row : nullptr;
}

bool SettingsReader::UnexpectedEnd() {
  Report(section_line_, String::Concat({"Unexpected end of file looking for &lt;",
                                        tags().rows[kClosing].name, "&gt;"}));
  return false;
}

// --- Checks ----------------------------------------------------------------------------------

void SettingsReader::Warn(int line, std::string_view text) {
  if (checking()) findings_->push_back({line, Finding::Kind::Warning, String(text)});
}

// What is wrong when the section is passed over is wrong for every reader whom it does not concern,
// and told like all else; then the section is read.
void SettingsReader::FindSkippedEnd() {
  const SourcePlace start = source().Place();
  const int line = line_;
  skips_ = SkipSection();
  if (skips_) skipped_end_ = source().Place();
  section_line_ = line_ = line;
  (void)source().Return(start);
}

void SettingsReader::CompareEnds() {
  const SourcePlace end = source().Place();
  if (!skips_ || end == skipped_end_) return;
  Warn(section_line_, String::Concat({"passed over unread, the section ends in line ",
                                      PrintInteger(skipped_end_.line), "; read, it ends in line ",
                                      PrintInteger(end.line)}));
}

}  // namespace vexa
