// Parser: the tag scanner. It splits a character source into text runs, newlines and tags, and
// hands each to what a derived class makes of it. It alone decides where a tag begins and ends,
// what its name and attributes are, what is skipped as a comment, and how scanning errors read.
//
// Text is delivered in pieces as long as the source's blocks allow, so a page of any size needs
// no more memory than one block. Lines are counted by the source.

#ifndef VEXA_ENGINE_PARSER_H_
#define VEXA_ENGINE_PARSER_H_

#include <memory>
#include <span>
#include <string_view>

#include "core/buffer.h"
#include "core/string.h"
#include "engine/tag.h"

namespace vexa {

// What a scanning operation came to.
enum class ScanResult : int {
  Failed = 0,  // an error was reported; stop
  Done = 1,
  More = 2,  // more to come
  End = 3,   // of a line: a tag follows; of a tag: its `>` was read; of processing: stop
  EndOfFile = 4,
};

// One tag that a forward skip looks for.
struct WantedTag {
  int id;
  int closing_id;  // not 0: opens a nested level; negative: counts on the outermost level only
};

class Parser {
 public:
  // `source` is borrowed.
  explicit Parser(Buffer& source) : source_(source) {}
  virtual ~Parser() = default;
  Parser(const Parser&) = delete;
  Parser& operator=(const Parser&) = delete;

  [[nodiscard]] int line() const { return source_.line(); }

  // Skips forward without output until a tag of `wanted` closes the current level. Done with
  // `*found` set, EndOfFile, or Failed with `*found` empty. Nested blocks are counted.
  [[nodiscard]] ScanResult FindTag(std::unique_ptr<Tag>& found, std::span<const WantedTag> wanted);

 protected:
  // The template of a tag name, letter case ignored, or null when it is not a tag of ours.
  [[nodiscard]] virtual const TagTemplate* FindTemplate(std::string_view name) const = 0;
  [[nodiscard]] virtual ScanResult ProcessKnownTag(Tag& tag) = 0;
  [[nodiscard]] virtual ScanResult ProcessUnknownTag(std::string_view raw) = 0;
  [[nodiscard]] virtual ScanResult ProcessText(std::string_view text) = 0;
  [[nodiscard]] virtual ScanResult ProcessNewLine(std::string_view newline) = 0;
  // A run of text ended at a tag, which is read next. Done, or what a delivery returned.
  [[nodiscard]] virtual ScanResult EndText() { return ScanResult::Done; }
  // Whether text, newlines and tags of other languages are all just copied to the output now, so
  // that a stretch of them may be delivered whole to ProcessPlain.
  [[nodiscard]] virtual bool CopiesPlainText() const;
  [[nodiscard]] virtual ScanResult ProcessPlain(std::string_view text);
  // Reports a scanning error at the current line. Always returns Failed.
  virtual ScanResult ReportSyntaxError(std::string_view message) = 0;

  // Reads the attributes of `tag` up to and including its `>`. End, or Failed.
  [[nodiscard]] virtual ScanResult GetNameValuePairs(Tag& tag);
  // Reads the value behind `name=`. More when attributes may follow, End at `>`, or Failed.
  [[nodiscard]] virtual ScanResult GetValue(Tag& tag, const String& name, String& value) = 0;
  // Gives the value of an attribute written without one: its own name. Done, or Failed.
  [[nodiscard]] virtual ScanResult ProcessEmptyValue(Tag& tag, const String& name, String& value);

  // Whether a tag that usually opens a block only ends one, going by its `body`.
  [[nodiscard]] virtual bool IsStopForm(const TagTemplate& form, std::string_view body) const;

  // Reads up to and including at most one known tag. More when there may be further ones.
  [[nodiscard]] ScanResult FindNextTag();
  // The attribute loop of ordinary tags.
  [[nodiscard]] ScanResult ReadAttributes(Tag& tag);
  // Checks required attributes and fills in defaults. Done, or Failed.
  [[nodiscard]] ScanResult ValidateTag(Tag& tag);

  // Reads to the tag's `>` (included) outside double quotes, appending what is read to `out`.
  [[nodiscard]] ScanResult EatUntilTagEnd(String& out) { return ReadUntilTagEnd(&out); }
  // The same without keeping what is read, however much it is.
  [[nodiscard]] ScanResult SkipUntilTagEnd() { return ReadUntilTagEnd(nullptr); }
  // Appends white space to `out`. Done before another byte, or EndOfFile.
  ScanResult EatWhitespace(String& out);
  // Skips white space; false at the end of the file.
  bool SkipWhitespace();

  [[nodiscard]] Buffer& source() { return source_; }
  [[nodiscard]] const Buffer& source() const { return source_; }

 private:
  // What stands behind a `<`.
  enum class Construct { Known, Unknown, Skipped, Comment, Failed, EndOfFile };

  ScanResult ProcessTextUntilTag();
  ScanResult SkipTextUntilTag();
  size_t PlainLength(std::string_view run) const;
  bool TakeTextPiece(String& piece);
  // What becomes of the text of comments and unknown tags.
  enum class RawText { Keep, Drop };

  ScanResult ReadUntilTagEnd(String* out);
  Construct ReadConstruct(const TagTemplate*& form, RawText raw);
  ScanResult ReadHTMLComment(String* out);
  ScanResult FindText(std::string_view text, std::string_view shown);
  ScanResult GetNextNameValuePair(Tag& tag);
  ScanResult SkipOpener(const TagTemplate& form, bool* opens);
  ScanResult UnexpectedEnd(const Tag& tag);
  ScanResult UnexpectedEndLookingFor(std::string_view shown);

  Buffer& source_;
  String raw_;   // the tag being scanned, as written
  String name_;  // its name
};

}  // namespace vexa

#endif  // VEXA_ENGINE_PARSER_H_
