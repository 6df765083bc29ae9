// The tag scanner. FindNextTag and FindTag share ReadConstruct, which recognises what stands
// behind a `<`; the one executes what it finds, the other skips it.

#include "engine/parser.h"

#include <algorithm>
#include <vector>

#include "core/text.h"
#include "engine/text_scan.h"

namespace vexa {

namespace {

constexpr std::string_view kCommentTag = "VxCOMMENT";

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
  kept->Reserve(kept->size() + text.size());
  kept->cat(text);
}

}  // namespace

// --- Text ------------------------------------------------------------------------------------

// Delivers text and newlines up to the next `<`, which stays unread. End before a tag, EndOfFile,
// or what a delivery returned when it was not Done.
ScanResult Parser::ProcessTextUntilTag() {
  for (;;) {
    std::string_view run = source_.Run();
    if (run.empty()) return ScanResult::EndOfFile;
    ScanResult result = ScanResult::Done;
    if (CopiesPlainText()) {
      if (size_t plain = PlainLength(run); plain > 0) {
        source_.Take(plain);
        result = ProcessPlain(run.substr(0, plain));
        if (result != ScanResult::Done) return result;
        continue;
      }
    }
    size_t length = TextRunLength(run);
    if (length > 0) {
      source_.TakeWithinLine(length);
      result = ProcessText(run.substr(0, length));
    } else if (run[0] == '<') {
      return ScanResult::End;
    } else if (run[0] == '\n') {
      source_.Take(1);
      result = ProcessNewLine("\n");
    } else {
      String piece;
      bool newline = TakeTextPiece(piece);
      result = newline ? ProcessNewLine(piece) : ProcessText(piece);
    }
    if (result != ScanResult::Done) return result;
  }
}

bool Parser::CopiesPlainText() const { return false; }

ScanResult Parser::ProcessPlain(std::string_view text) { return ProcessText(text); }

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
    if (odd || IsLeadingPart(name, kCommentTag) || FindTemplate(name) != nullptr) return at;
    size_t end = TagEnd(run, name_end);
    if (end == std::string_view::npos) return at;
    at = end;
  }
}

// Takes a carriage return with the line feed that may follow, or a backslash with the byte that it
// keeps from starting a tag. Returns whether the piece is a newline.
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

ScanResult Parser::SkipTextUntilTag() {
  for (;;) {
    std::string_view run = source_.Run();
    if (run.empty()) return ScanResult::EndOfFile;
    if (run[0] == '<') return ScanResult::End;
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

ScanResult Parser::EatWhitespace(String& out) {
  for (int c = source_.GetNextChar(); c >= 0; c = source_.GetNextChar()) {
    if (!IsWhitespace(static_cast<char>(c))) {
      source_.UnGetChar();
      return ScanResult::Done;
    }
    out.Accumulate(static_cast<char>(c));
  }
  return ScanResult::EndOfFile;
}

bool Parser::SkipWhitespace() {
  for (int c = source_.GetNextChar(); c >= 0; c = source_.GetNextChar()) {
    if (IsWhitespace(static_cast<char>(c))) continue;
    source_.UnGetChar();
    return true;
  }
  return false;
}

ScanResult Parser::ReadUntilTagEnd(String* out) {
  bool quoted = false;
  for (;;) {
    std::string_view run = source_.Run();
    if (run.empty()) return UnexpectedEndLookingFor("&gt;");
    for (size_t i = FindByte<'>', '"'>(run); i < run.size(); i = FindByte<'>', '"'>(run, i + 1)) {
      if (run[i] == '"') quoted = !quoted;
      if (run[i] == '"' || quoted) continue;
      Keep(out, run.substr(0, i + 1));
      source_.Take(i + 1);
      return ScanResult::Done;
    }
    Keep(out, run);
    source_.Take(run.size());
  }
}

// A `>` ends the comment once two dashes in a row were read; one that comes too early leaves the
// count as it is, on purpose, so that `->->` ends a comment too.
ScanResult Parser::ReadHTMLComment(String* out) {
  int dashes = 0;
  for (int c = source_.GetNextChar(); c >= 0; c = source_.GetNextChar()) {
    char byte = static_cast<char>(c);
    Keep(out, {&byte, 1});
    if (c == '-') {
      ++dashes;
    } else if (c != '>') {
      dashes = 0;
    } else if (dashes >= 2) {
      return ScanResult::Done;
    }
  }
  return UnexpectedEndLookingFor("--&gt;");
}

ScanResult Parser::FindText(std::string_view text, std::string_view shown) {
  const std::vector<size_t> restart = RestartPoints(text);
  size_t matched = 0;
  for (int c = source_.GetNextChar(); c >= 0; c = source_.GetNextChar()) {
    char upper = ToUpper(static_cast<char>(c));
    while (matched > 0 && upper != ToUpper(text[matched])) matched = restart[matched];
    if (upper == ToUpper(text[matched])) ++matched;
    if (matched == text.size()) return ScanResult::Done;
  }
  return UnexpectedEndLookingFor(shown);
}

// --- Tags ------------------------------------------------------------------------------------

// Reads what stands behind a `<` that comes next: up to the end of a comment or skipped construct,
// or just the name of a tag. `raw_` then holds what was read of a Comment or Unknown tag.
Parser::Construct Parser::ReadConstruct(const TagTemplate*& form, RawText raw) {
  source_.GetNextChar();
  raw_ = "<";
  name_.clear();
  if (EatWhitespace(raw_) == ScanResult::EndOfFile) return Construct::EndOfFile;
  int ending;
  for (;;) {
    ending = source_.GetNextChar();
    if (ending < 0) {
      ReportSyntaxError("Unexpected end of file in tag");
      return Construct::Failed;
    }
    if (ending == '>' || IsWhitespace(static_cast<char>(ending))) break;
    name_.Accumulate(static_cast<char>(ending));
  }
  raw_.cat(name_.view());
  if (name_.view().starts_with("##")) {
    if (ending == '>') return Construct::Skipped;
    source_.UnGetChar();
    return FindText("##>", "##&gt;") == ScanResult::Done ? Construct::Skipped : Construct::Failed;
  }
  if (name_.view().starts_with("!--")) {
    if (ending == '>') {
      raw_.cat('>');
      return Construct::Comment;
    }
    source_.UnGetChar();
    ScanResult read = ReadHTMLComment(raw == RawText::Keep ? &raw_ : nullptr);
    return read == ScanResult::Done ? Construct::Comment : Construct::Failed;
  }
  source_.UnGetChar();
  // Any leading part of the name opens a comment block, on purpose: also the empty name of `<>`.
  if (IsLeadingPart(name_, kCommentTag)) {
    return FindText("</VxCOMMENT>", "&lt;/VxCOMMENT&gt;") == ScanResult::Done ? Construct::Skipped
                                                                              : Construct::Failed;
  }
  form = FindTemplate(name_);
  return form != nullptr ? Construct::Known : Construct::Unknown;
}

ScanResult Parser::FindNextTag() {
  for (;;) {
    ScanResult text = ProcessTextUntilTag();
    if (text != ScanResult::End) return text;
    text = EndText();
    if (text != ScanResult::Done) return text;
    const TagTemplate* form = nullptr;
    switch (ReadConstruct(form, RawText::Keep)) {
      case Construct::Failed:
        return ScanResult::Failed;
      case Construct::EndOfFile:
      case Construct::Skipped:
        continue;
      case Construct::Unknown:
        if (EatUntilTagEnd(raw_) == ScanResult::Failed) return ScanResult::Failed;
        [[fallthrough]];
      case Construct::Comment: {
        ScanResult result = ProcessUnknownTag(raw_);
        if (result != ScanResult::Done) return result;
        continue;
      }
      case Construct::Known:
        break;
    }
    Tag tag(*form);
    if (GetNameValuePairs(tag) == ScanResult::Failed) return ScanResult::Failed;
    if (ValidateTag(tag) == ScanResult::Failed) return ScanResult::Failed;
    ScanResult result = ProcessKnownTag(tag);
    if (result == ScanResult::Failed || result == ScanResult::End) return result;
    return ScanResult::More;
  }
}

ScanResult Parser::FindTag(std::unique_ptr<Tag>& found, std::span<const WantedTag> wanted) {
  found.reset();
  for (int64_t depth = 0;;) {
    if (SkipTextUntilTag() == ScanResult::EndOfFile) return ScanResult::EndOfFile;
    const TagTemplate* form = nullptr;
    Construct construct = ReadConstruct(form, RawText::Drop);
    if (construct == Construct::Failed) return ScanResult::Failed;
    if (construct == Construct::EndOfFile) return ScanResult::EndOfFile;
    if (construct == Construct::Skipped || construct == Construct::Comment) continue;
    auto match = construct == Construct::Unknown
                     ? wanted.end()
                     : std::find_if(wanted.begin(), wanted.end(),
                                    [form](const WantedTag& w) { return w.id == form->id; });
    if (match == wanted.end() || (match->closing_id < 0 && depth > 0)) {
      if (SkipUntilTagEnd() == ScanResult::Failed) return ScanResult::Failed;
      continue;
    }
    if (match->closing_id > 0) {
      bool opens = true;
      if (SkipOpener(*form, &opens) == ScanResult::Failed) return ScanResult::Failed;
      if (opens) ++depth;
      continue;
    }
    if (depth > 0) {
      --depth;
      if (SkipUntilTagEnd() == ScanResult::Failed) return ScanResult::Failed;
      continue;
    }
    auto tag = std::make_unique<Tag>(*form);
    if (GetNameValuePairs(*tag) == ScanResult::Failed) return ScanResult::Failed;
    found = std::move(tag);
    return ScanResult::Done;
  }
}

bool Parser::IsStopForm(const TagTemplate&, std::string_view) const { return false; }

// Skips the rest of a block's opening tag.
ScanResult Parser::SkipOpener(const TagTemplate& form, bool* opens) {
  raw_.clear();
  if (EatUntilTagEnd(raw_) == ScanResult::Failed) return ScanResult::Failed;
  std::string_view body = raw_;
  body.remove_suffix(1);
  *opens = !IsStopForm(form, body);
  return ScanResult::Done;
}

// --- Attributes ------------------------------------------------------------------------------

ScanResult Parser::GetNameValuePairs(Tag& tag) { return ReadAttributes(tag); }

ScanResult Parser::ReadAttributes(Tag& tag) {
  ScanResult result;
  do {
    result = GetNextNameValuePair(tag);
  } while (result == ScanResult::More);
  return result;
}

ScanResult Parser::GetNextNameValuePair(Tag& tag) {
  if (!SkipWhitespace()) return UnexpectedEnd(tag);
  int c = source_.GetNextChar();
  if (c == '>') return ScanResult::End;
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
    return ReportSyntaxError("Attribute '" + name + "' begins with a non-alpha character");
  }
  if (c < 0) return UnexpectedEnd(tag);
  String value;
  if (c == '=') {
    if (!SkipWhitespace()) return UnexpectedEnd(tag);
    ScanResult result = GetValue(tag, name, value);
    if (result != ScanResult::Failed) tag.AddNameValuePair(name, std::move(value));
    return result;
  }
  if (ProcessEmptyValue(tag, name, value) == ScanResult::Failed) return ScanResult::Failed;
  tag.AddNameValuePair(name, std::move(value));
  if (c == '>') return ScanResult::End;
  source_.UnGetChar();
  return ScanResult::More;
}

ScanResult Parser::ProcessEmptyValue(Tag&, const String& name, String& value) {
  value = name;
  return ScanResult::Done;
}

ScanResult Parser::ValidateTag(Tag& tag) {
  for (const AttributeTemplate& attribute : tag.form().attributes) {
    if (attribute.kind == AttributeKind::Optional || tag.Has(attribute.name)) continue;
    if (attribute.kind == AttributeKind::Required) {
      return ReportSyntaxError(String::Concat(
          {tag.name(), " requires the ", attribute.name, " attribute to be specified"}));
    }
    tag.AddNameValuePair(attribute.name, attribute.value);
  }
  return ScanResult::Done;
}

ScanResult Parser::UnexpectedEnd(const Tag& tag) {
  return ReportSyntaxError(String::Concat({"Unexpected end of file in &lt;", tag.name(), "&gt;"}));
}

ScanResult Parser::UnexpectedEndLookingFor(std::string_view shown) {
  return ReportSyntaxError(
      String::Concat({"Unexpected end of file while looking for '", shown, "'"}));
}

}  // namespace vexa
