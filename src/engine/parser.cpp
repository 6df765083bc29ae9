// The tag scanner. Its parts, from the byte up:
//
//   FindByte, TagEnd        look ahead in what the source holds in one piece
//   ProcessTextUntilTag     delivers text and line ends; SkipTextUntilTag drops them
//   ReadConstruct           recognises what stands behind a `<`
//   ProcessConstruct        delivers it: FindNextTag is text, then one construct after another
//   FindTag                 skips constructs, counting blocks, to the tag that closes one
//   GetNextNameValuePair    one attribute; how its value is read is the derived class's affair
//
// The source counts lines as bytes are consumed, so a message carries the line where the scanner
// stands. What is taken from a run of the source is delivered before the source is asked again: a
// delivery may go elsewhere in the script.

#include "engine/parser.h"

#include <algorithm>
#include <cassert>
#include <vector>

#include "core/find_byte.h"
#include "core/text.h"

namespace vexa {

namespace {

// --- The inner loops of every page: the next byte that matters ---------------------------------

// The offset of the first byte of `text` that ends a text run or escapes the next byte; its size
// when there is none.
size_t TextRunLength(std::string_view text) { return FindByte<'<', '\n', '\r', '\\'>(text); }

// The offset just behind the `>` that ends a tag whose attributes begin at `from`, going by the
// rule that double quotes hide it; npos when `text` ends first.
size_t TagEnd(std::string_view text, size_t from) {
  for (size_t i = from;; ++i) {
    i = FindByte<'>', '"'>(text, i);
    if (i < text.size() && text[i] == '>') return i + 1;
    if (i < text.size()) i = FindByte<'"'>(text, i + 1);
    if (i >= text.size()) return std::string_view::npos;
  }
}

// ---------------------------------------------------------------------------------------------

constexpr std::string_view kCommentTag = "VxCOMMENT";

// Any leading part of the name opens a comment block, on purpose: also the empty name of `<>`.
bool IsCommentTag(std::string_view name) {
  return name.empty() || (ToUpper(name[0]) == 'V' && IsLeadingPart(name, kCommentTag));
}

// Where the search for `text` stands after a mismatch: the longest tail of what was read that can
// still begin `text`, for every number of characters matched so far.
std::vector<size_t> RestartPoints(std::string_view text) {
  std::vector<size_t> points(text.size() + 1, 0);
  size_t matched = 0;
  for (size_t i = 1; i < text.size(); ++i) {
    while (matched > 0 && ToUpper(text[i]) != ToUpper(text[matched])) matched = points[matched];
    if (ToUpper(text[i]) == ToUpper(text[matched])) ++matched;
    points[i + 1] = matched;
  }
  return points;
}

// Appends to what is kept, if anything is.
void Keep(String* kept, std::string_view text) {
  if (kept == nullptr) return;
  kept->Append(text);
}

}  // namespace

// --- Text ------------------------------------------------------------------------------------

// Delivers text and newlines up to the next `<`, which stays unread. More before a tag, EndOfFile,
// or what a delivery returned when it was not More.
Progress Parser::ProcessTextUntilTag() {
  for (;;) {
    std::string_view run = source_.Run();
    if (run.empty()) return Progress::EndOfFile;
    Progress result = Progress::More;
    if (CopiesPlainText()) {
      if (size_t plain = PlainLength(run); plain > 0) {
        source_.Take(plain);
        result = ProcessPlain(run.substr(0, plain));
        if (result != Progress::More) return result;
        continue;
      }
    }
    size_t length = TextRunLength(run);
    if (length > 0) {
      source_.TakeWithinLine(length);
      result = ProcessText(run.substr(0, length));
    } else if (run[0] == '<') {
      return Progress::More;
    } else if (run[0] == '\n') {
      source_.Take(1);
      result = ProcessNewLine("\n");
    } else {
      String piece;
      bool newline = TakeTextPiece(piece);
      result = newline ? ProcessNewLine(piece) : ProcessText(piece);
    }
    if (result != Progress::More) return result;
  }
}

// How much of `run` is text and whole tags that are not ours, so that it can be copied at once.
// Whatever needs a closer look ends it: our tags, comments, odd constructs, what is cut off.
size_t Parser::PlainLength(std::string_view run) const {
  for (size_t at = 0;;) {
    at = FindByte<'<', '\\'>(run, at);
    if (at == run.size() || run[at] == '\\') return at;
    size_t name_end = at + 1;
    while (name_end < run.size() && run[name_end] != '>' && !IsWhitespace(run[name_end])) {
      ++name_end;
    }
    std::string_view name = run.substr(at + 1, name_end - at - 1);
    bool odd = name_end == run.size() || name.empty() || name[0] == '#' || name[0] == '!';
    if (odd || IsCommentTag(name) || tags_.Find(name) != nullptr) return at;
    size_t end = TagEnd(run, name_end);
    if (end == std::string_view::npos) return at;
    at = end;
  }
}

bool Parser::TakeTextPiece(String& piece) {
  int c = source_.GetNextChar();
  piece.assign(static_cast<char>(c));
  int next = source_.GetNextChar();
  if (c == '\r') {
    if (next == '\n') {
      piece.cat('\n');
    } else if (next >= 0) {
      source_.UnGetChar();
    }
    return true;
  }
  if (next >= 0) piece.cat(static_cast<char>(next));
  return false;
}

// False at the end of the file.
bool Parser::SkipTextUntilTag() {
  for (;;) {
    std::string_view run = source_.Run();
    if (run.empty()) return false;
    if (run[0] == '<') return true;
    size_t length = TextRunLength(run);
    if (length > 0) {
      source_.TakeWithinLine(length);
    } else if (run[0] == '\n') {
      source_.Take(1);
    } else {
      String piece;
      TakeTextPiece(piece);
    }
  }
}

bool Parser::SkipWhitespace() {
  for (int c = source_.GetNextChar(); c >= 0; c = source_.GetNextChar()) {
    if (IsWhitespace(static_cast<char>(c))) continue;
    source_.UnGetChar();
    return true;
  }
  return false;
}

bool Parser::ReadUntilTagEnd(String* out) {
  bool quoted = false;
  for (;;) {
    std::string_view run = source_.Run();
    if (run.empty()) return UnexpectedEndLookingFor("&gt;");
    for (size_t i = FindByte<'>', '"'>(run); i < run.size(); i = FindByte<'>', '"'>(run, i + 1)) {
      if (run[i] == '"') quoted = !quoted;
      if (run[i] == '"' || quoted) continue;
      Keep(out, run.substr(0, i + 1));
      source_.Take(i + 1);
      return true;
    }
    Keep(out, run);
    source_.Take(run.size());
  }
}

// A `>` ends the comment once two dashes in a row were read; one that comes too early leaves the
// count as it is, on purpose, so that `->->` ends a comment too.
bool Parser::ReadHTMLComment(String* out) {
  int dashes = 0;
  for (int c = source_.GetNextChar(); c >= 0; c = source_.GetNextChar()) {
    char byte = static_cast<char>(c);
    Keep(out, {&byte, 1});
    if (c == '-') {
      ++dashes;
    } else if (c != '>') {
      dashes = 0;
    } else if (dashes >= 2) {
      return true;
    }
  }
  return UnexpectedEndLookingFor("--&gt;");
}

bool Parser::FindText(std::string_view text, std::string_view shown) {
  const std::vector<size_t> restart = RestartPoints(text);
  size_t matched = 0;
  for (int c = source_.GetNextChar(); c >= 0; c = source_.GetNextChar()) {
    char upper = ToUpper(static_cast<char>(c));
    while (matched > 0 && upper != ToUpper(text[matched])) matched = restart[matched];
    if (upper == ToUpper(text[matched])) ++matched;
    if (matched == text.size()) return true;
  }
  return UnexpectedEndLookingFor(shown);
}

// --- Tags ------------------------------------------------------------------------------------

// `raw_` then holds what was read of a Comment or Unknown tag.
Parser::Construct Parser::ReadConstruct(const TagRow*& row, RawText raw) {
  source_.GetNextChar();
  raw_ = "<";
  name_.clear();
  int c = source_.GetNextChar();
  for (; c >= 0 && IsWhitespace(static_cast<char>(c)); c = source_.GetNextChar()) {
    raw_.Accumulate(static_cast<char>(c));
  }
  if (c < 0) return Construct::EndOfFile;
  for (; c != '>' && !IsWhitespace(static_cast<char>(c)); c = source_.GetNextChar()) {
    if (c < 0) {
      ReportSyntaxError("Unexpected end of file in tag");
      return Construct::Failed;
    }
    name_.Accumulate(static_cast<char>(c));
  }
  raw_.cat(name_.view());
  if (name_.view().starts_with("##")) {
    if (c == '>') return Construct::Skipped;
    source_.UnGetChar();
    return FindText("##>", "##&gt;") ? Construct::Skipped : Construct::Failed;
  }
  if (name_.view().starts_with("!--")) {
    if (c == '>') {
      raw_.cat('>');
      return Construct::Comment;
    }
    source_.UnGetChar();
    return ReadHTMLComment(raw == RawText::Keep ? &raw_ : nullptr) ? Construct::Comment
                                                                   : Construct::Failed;
  }
  source_.UnGetChar();
  if (IsCommentTag(name_)) {
    return FindText("</VxCOMMENT>", "&lt;/VxCOMMENT&gt;") ? Construct::Skipped : Construct::Failed;
  }
  row = tags_.Find(name_);
  return row != nullptr ? Construct::Known : Construct::Unknown;
}

Progress Parser::FindNextTag() {
  for (;;) {
    Progress progress = ProcessTextUntilTag();
    if (progress != Progress::More) return progress;
    progress = EndText();
    if (progress != Progress::More) return progress;
    bool known = false;
    progress = ProcessConstruct(known);
    if (known || progress != Progress::More) return progress;
  }
}

Progress Parser::ProcessConstruct(bool& known) {
  const TagRow* row = nullptr;
  switch (ReadConstruct(row, RawText::Keep)) {
    case Construct::Failed:
      return Progress::Failed;
    case Construct::EndOfFile:
    case Construct::Skipped:
      return Progress::More;
    case Construct::Unknown:
      if (!EatUntilTagEnd(raw_)) return Progress::Failed;
      [[fallthrough]];
    case Construct::Comment:
      return ProcessUnknownTag(raw_);
    case Construct::Known:
      break;
  }
  known = true;
  Tag tag(*row);
  return GetNameValuePairs(tag) ? ProcessReadTag(tag) : Progress::Failed;
}

Scanned Parser::FindTag(std::unique_ptr<Tag>& found, std::span<const WantedTag> wanted) {
  found.reset();
  for (int64_t depth = 0;;) {
    if (!SkipTextUntilTag()) return Scanned::EndOfFile;
    const TagRow* row = nullptr;
    Construct construct = ReadConstruct(row, RawText::Drop);
    if (construct == Construct::Failed) return Scanned::Failed;
    if (construct == Construct::EndOfFile) return Scanned::EndOfFile;
    if (construct == Construct::Skipped || construct == Construct::Comment) continue;
    auto match = construct == Construct::Unknown
                     ? wanted.end()
                     : std::find_if(wanted.begin(), wanted.end(),
                                    [row](const WantedTag& w) { return w.id == row->id; });
    if (match == wanted.end() || (match->closing_id < 0 && depth > 0)) {
      if (!SkipUntilTagEnd()) return Scanned::Failed;
      continue;
    }
    if (match->closing_id > 0) {
      bool opens = true;
      if (!SkipOpener(*row, &opens)) return Scanned::Failed;
      if (opens) ++depth;
      continue;
    }
    if (depth > 0) {
      --depth;
      if (!SkipUntilTagEnd()) return Scanned::Failed;
      continue;
    }
    auto tag = std::make_unique<Tag>(*row);
    if (!GetNameValuePairs(*tag)) return Scanned::Failed;
    found = std::move(tag);
    return Scanned::Done;
  }
}

// Skips the rest of a block's opening tag.
bool Parser::SkipOpener(const TagRow& row, bool* opens) {
  assert(row.closing_id != 0);
  raw_.clear();
  if (!EatUntilTagEnd(raw_)) return false;
  std::string_view body = raw_;
  body.remove_suffix(1);
  *opens = !row.IsStopBody(body);
  return true;
}

// --- Attributes ------------------------------------------------------------------------------

bool Parser::GetNameValuePairs(Tag& tag) {
  AttributeEnd end;
  do {
    end = GetNextNameValuePair(tag);
  } while (end == AttributeEnd::More);
  return end == AttributeEnd::TagEnd;
}

AttributeEnd Parser::GetNextNameValuePair(Tag& tag) {
  if (!SkipWhitespace()) return UnexpectedEnd(tag);
  int c = source_.GetNextChar();
  if (c == '>') return AttributeEnd::TagEnd;
  String name;
  do {
    name.Accumulate(static_cast<char>(c));
    c = source_.GetNextChar();
  } while (c >= 0 && c != '=' && c != '>' && !IsWhitespace(static_cast<char>(c)));
  if (c >= 0 && IsWhitespace(static_cast<char>(c))) {
    if (!SkipWhitespace()) return UnexpectedEnd(tag);
    c = source_.GetNextChar();
  }
  if (!IsAlpha(name[0]) && name[0] != '_') {
    ReportSyntaxError("Attribute '" + name + "' begins with a non-alpha character");
    return AttributeEnd::Failed;
  }
  if (c < 0) return UnexpectedEnd(tag);
  ScriptValue value;
  AttributeEnd end = c == '>' ? AttributeEnd::TagEnd : AttributeEnd::More;
  if (c == '=') {
    if (!SkipWhitespace()) return UnexpectedEnd(tag);
    end = GetValue(tag, name, value);
    if (end == AttributeEnd::Failed) return end;
  } else {
    if (!ProcessEmptyValue(tag, name, value)) return AttributeEnd::Failed;
    if (c != '>') source_.UnGetChar();
  }
  tag.AddNameValuePair(name, std::move(value));
  return end;
}

// The first byte belongs to the value whatever it is; behind that, white space, `>` and `/` outside
// double quotes end it.
AttributeEnd Parser::GetValue(Tag& tag, const String&, ScriptValue& value) {
  String& text = value.MutableText();
  int c = source_.GetNextChar();
  if (c < 0) return UnexpectedEnd(tag);
  text.Accumulate(static_cast<char>(c));
  for (bool quoted = c == '"';;) {
    const std::string_view run = source_.Run();
    if (run.empty()) return UnexpectedEnd(tag);
    const size_t length =
        quoted ? FindByte<'"'>(run) : FindByte<'"', '>', '/', ' ', '\t', '\r', '\n'>(run);
    const bool quote = length < run.size() && run[length] == '"';
    const size_t taken = length + (quote ? 1 : 0);
    text.Append(run.substr(0, taken));
    source_.Take(taken);
    if (quote) quoted = !quoted;
    if (!quote && length < run.size()) break;
  }
  c = source_.GetNextChar();
  if (c == '>') return AttributeEnd::TagEnd;
  if (c != '/') return AttributeEnd::More;
  // Behind "/>" the attributes go on, on purpose: it does not close a tag.
  c = source_.GetNextChar();
  if (c < 0) return UnexpectedEnd(tag);
  if (c == '>') return AttributeEnd::More;
  const char found = static_cast<char>(c);
  ReportSyntaxError(String::Concat({"Expected &gt;, found '", std::string_view(&found, 1), "'"}));
  return AttributeEnd::Failed;
}

bool Parser::ProcessEmptyValue(Tag&, const String& name, ScriptValue& value) {
  value = name;
  return true;
}

bool Parser::ValidateTag(Tag& tag) {
  for (const AttributeRow& attribute : tag.row().attributes) {
    if (attribute.presence == Presence::Required && !tag.Has(attribute.name)) {
      ReportSyntaxError(String::Concat(
          {tag.name(), " requires the ", attribute.name, " attribute to be specified"}));
      return false;
    }
    if (attribute.presence == Presence::Default && !tag.Has(attribute.name)) {
      tag.AddNameValuePair(attribute.name, String(attribute.fallback));
    }
  }
  return true;
}

AttributeEnd Parser::UnexpectedEnd(const Tag& tag) {
  ReportSyntaxError(String::Concat({"Unexpected end of file in &lt;", tag.name(), "&gt;"}));
  return AttributeEnd::Failed;
}

bool Parser::UnexpectedEndLookingFor(std::string_view shown) {
  ReportSyntaxError(String::Concat({"Unexpected end of file while looking for '", shown, "'"}));
  return false;
}

}  // namespace vexa
