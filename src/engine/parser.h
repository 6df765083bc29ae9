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

// What a search or a skip came to.
enum class Scanned { Failed, Done, EndOfFile };  // Failed: an error was reported

// How far a script has come with a piece of it.
enum class Progress {
  Failed,  // an error was reported; stop
  More,    // go on
  Stop,    // the script is to end here
  EndOfFile,
};

// How the reading of an attribute ended.
enum class AttributeEnd {
  Failed,  // an error was reported
  More,    // attributes may follow
  TagEnd,  // the tag's `>` was read
};

// One tag that a forward skip looks for.
struct WantedTag {
  int id;
  int closing_id;  // not 0: opens a nested level; negative: counts on the outermost level only
};

// What a skip looks for, with a number for the set: 16 bits suffice for the few sets that can be
// wanted at one place. Constant data where the tags are. Borrows them.
struct WantedTags {
  template <size_t kCount>
  constexpr WantedTags(const WantedTag (&wanted)[kCount]) : tags(wanted), key(KeyOf(wanted)) {}

  std::span<const WantedTag> tags;
  uint16_t key;

 private:
  static constexpr uint16_t KeyOf(std::span<const WantedTag> wanted) {
    uint64_t key = 0;
    for (const WantedTag& tag : wanted) {
      key = key * 193 + static_cast<uint64_t>(tag.id * 3 + (tag.closing_id > 0) + 1);
    }
    return static_cast<uint16_t>(key);
  }
};

class Parser {
 public:
  // Both are borrowed.
  Parser(Buffer& source, const TagSet& tags) : source_(source), tags_(tags) {}
  virtual ~Parser() = default;
  Parser(const Parser&) = delete;
  Parser& operator=(const Parser&) = delete;

  [[nodiscard]] int line() const { return source_.line(); }
  [[nodiscard]] const TagSet& tags() const { return tags_; }

  // Skips forward without output until a tag of `wanted` closes the current level. Done with
  // `*found` set, EndOfFile, or Failed with `*found` empty. Nested blocks are counted.
  [[nodiscard]] Scanned FindTag(std::unique_ptr<Tag>& found, std::span<const WantedTag> wanted);

 protected:
  // The deliveries. More, or what else became of the script.
  [[nodiscard]] virtual Progress ProcessKnownTag(Tag& tag) = 0;
  [[nodiscard]] virtual Progress ProcessUnknownTag(std::string_view raw) = 0;
  [[nodiscard]] virtual Progress ProcessText(std::string_view text) = 0;
  [[nodiscard]] virtual Progress ProcessNewLine(std::string_view newline) = 0;
  // A run of text ended at a tag, which is read next.
  [[nodiscard]] virtual Progress EndText() { return Progress::More; }
  // Whether text, newlines and tags of other languages are all just copied to the output now, so
  // that a stretch of them may be delivered whole to ProcessPlain.
  [[nodiscard]] virtual bool CopiesPlainText() const { return false; }
  [[nodiscard]] virtual Progress ProcessPlain(std::string_view text) { return ProcessText(text); }
  // Reports a scanning error at the current line.
  virtual void ReportSyntaxError(std::string_view message) = 0;

  // Reads the attributes of `tag` up to and including its `>`. False after an error.
  [[nodiscard]] virtual bool GetNameValuePairs(Tag& tag);
  // Reads the value behind `name=`: here a plain word, or a text with its double quotes.
  [[nodiscard]] virtual AttributeEnd GetValue(Tag& tag, const String& name, ScriptValue& value);
  // Gives the value of an attribute written without one: its own name. False after an error.
  [[nodiscard]] virtual bool ProcessEmptyValue(Tag& tag, const String& name, ScriptValue& value);

  // Reads up to and including at most one known tag.
  [[nodiscard]] Progress FindNextTag();
  // The rest of FindNextTag for a tag that was read.
  [[nodiscard]] Progress ProcessReadTag(Tag& tag) {
    return ValidateTag(tag) ? ProcessKnownTag(tag) : Progress::Failed;
  }
  // Reads what begins with the `<` that comes next, and delivers it; `known` is set to true when
  // that was a tag of the set.
  [[nodiscard]] Progress ProcessConstruct(bool& known);
  // Reads the next attribute into `tag`.
  [[nodiscard]] AttributeEnd GetNextNameValuePair(Tag& tag);
  // Checks required attributes and fills in defaults. False after an error.
  [[nodiscard]] bool ValidateTag(Tag& tag);

  // Reads to the tag's `>` (included) outside double quotes, appending what is read to `out`.
  // False after an error.
  [[nodiscard]] bool EatUntilTagEnd(String& out) { return ReadUntilTagEnd(&out); }
  // The same without keeping what is read, however much it is.
  [[nodiscard]] bool SkipUntilTagEnd() { return ReadUntilTagEnd(nullptr); }
  // Skips white space; false at the end of the file.
  bool SkipWhitespace();

  [[nodiscard]] Buffer& source() { return source_; }
  [[nodiscard]] const Buffer& source() const { return source_; }

  // What stands behind a `<`.
  enum class Construct { Known, Unknown, Skipped, Comment, Failed, EndOfFile };
  // What becomes of the text of comments and unknown tags.
  enum class RawText { Keep, Drop };
  // Reads what stands behind a `<` that comes next: up to the end of a comment or skipped
  // construct, or just the name of a tag, whose row is set when it is known.
  virtual Construct ReadConstruct(const TagRow*& row, RawText raw);
  // Takes a carriage return with the line feed that may follow, or a backslash with the byte that
  // it keeps from starting a tag. Returns whether the piece is a newline.
  virtual bool TakeTextPiece(String& piece);

 private:
  Progress ProcessTextUntilTag();
  bool SkipTextUntilTag();
  size_t PlainLength(std::string_view run) const;

  bool ReadUntilTagEnd(String* out);
  bool ReadHTMLComment(String* out);
  bool FindText(std::string_view text, std::string_view shown);
  bool SkipOpener(const TagRow& row, bool* opens);
  AttributeEnd UnexpectedEnd(const Tag& tag);
  bool UnexpectedEndLookingFor(std::string_view shown);

  Buffer& source_;
  const TagSet& tags_;
  String raw_;   // the tag being scanned, as written
  String name_;  // its name
};

}  // namespace vexa

#endif  // VEXA_ENGINE_PARSER_H_
