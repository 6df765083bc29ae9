// Every operation here moves forward, and what looks for an end that is not there takes the whole
// rest with it: so the work is linear in the text, whatever it holds.

#include "net/tag_walker.h"

#include <algorithm>
#include <initializer_list>
#include <utility>

#include "core/text.h"

namespace vexa {

namespace {

constexpr auto kNone = std::string_view::npos;

bool EndsName(char c) { return IsWhitespace(c) || c == '\f' || c == '/' || c == '>'; }

size_t SkipSpace(std::string_view text, size_t at) {
  while (at < text.size() && (IsWhitespace(text[at]) || text[at] == '\f')) ++at;
  return at;
}

bool IsOneOf(std::string_view name, std::initializer_list<std::string_view> names) {
  return std::ranges::find(names, name) != names.end();
}

bool IsBlank(std::string_view text) { return std::ranges::all_of(text, IsWhitespace); }

// The value behind `key` and "=" in a list such as `text/html; charset="x"`.
std::string_view ValueBehind(std::string_view text, std::string_view key) {
  for (size_t at = 0; at + key.size() < text.size(); ++at) {
    if (!EqualsIgnoreCase(text.substr(at, key.size()), key)) continue;
    size_t start = SkipSpace(text, at + key.size());
    if (start == text.size() || text[start] != '=') continue;
    start = SkipSpace(text, start + 1);
    if (start == text.size()) return {};
    const char quote = text[start];
    if (quote == '"' || quote == '\'') {
      return text.substr(start + 1, text.find(quote, start + 1) - start - 1);
    }
    return text.substr(start, text.find_first_of(" \t\r\n;\"'", start) - start);
  }
  return {};
}

}  // namespace

String VariablePart(std::string_view name) {
  if (name.size() > kLongestPart) return {};
  String part;
  for (const char c : name) part.cat(IsAlpha(c) || IsDigit(c) ? c : '_');
  return part;
}

Markup DetectMarkup(std::string_view type, std::string_view text) {
  const bool xml = type.ends_with("/xml") || type.ends_with("+xml") || text.starts_with("<?xml");
  return xml ? Markup::Xml : Markup::Html;
}

String NamedCharset(std::string_view text) {
  constexpr size_t kNamedWithin = 1024;
  text = text.substr(0, kNamedWithin);
  std::string_view charset;
  if (text.starts_with("<?xml")) {
    charset = ValueBehind(text.substr(0, text.find("?>")), "encoding");
  }
  TagWalker walker(text, Markup::Html);
  String named(charset);
  while (named.empty() && walker.Next()) {
    if (walker.name() != "meta") continue;
    named = walker.Value("charset");
    if (named.empty()) named = String(ValueBehind(walker.Value("content"), "charset"));
  }
  // In two or four bytes a character the name could not have been read.
  return EqualsIgnoreCase(named.view().substr(0, 3), "UTF") ? String("UTF-8") : named;
}

bool TagWalker::Next() {
  attributes_.clear();
  raw_ = {};
  if (!started_) {
    started_ = true;
    ReadText();
    if (!IsBlank(text_)) return true;
  }
  if (closes_itself_) {
    closes_itself_ = false;
    name_.prepend('/');
    ReadText();
    return true;
  }
  if (position_ == source_.size()) return false;
  ReadTag();
  if (raw_.empty()) return false;
  if (closes_itself_) {
    text_.clear();
  } else {
    ReadElementText();
  }
  return true;
}

String TagWalker::Value(std::string_view attribute) const {
  for (const Attribute& a : attributes_) {
    if (EqualsIgnoreCase(a.name, attribute)) return Decoded(a.value);
  }
  return {};
}

String TagWalker::Decoded(std::string_view written) const {
  String decoded;
  AppendDecoded(written, markup_, decoded);
  return decoded;
}

bool TagWalker::BeginsName(char c) const {
  if (IsAlpha(c)) return true;
  return markup_ == Markup::Xml && (c == '_' || c == ':' || static_cast<unsigned char>(c) > 127);
}

TagWalker::Kind TagWalker::KindAt(size_t start) const {
  constexpr std::string_view kCharacterData = "<![CDATA[";
  const char next = At(start + 1);
  if (BeginsName(next)) return Kind::Tag;
  if (next == '/') return BeginsName(At(start + 2)) ? Kind::Tag : Kind::Nothing;
  if (source_.substr(start, kCharacterData.size()) == kCharacterData) return Kind::CharacterData;
  return next == '!' || next == '?' ? Kind::Nothing : Kind::Text;
}

// The place behind the next `end`, or the end of the text.
size_t TagWalker::Behind(std::string_view end, size_t from) const {
  const size_t found = source_.find(end, from);
  return found == kNone ? source_.size() : found + end.size();
}

size_t TagWalker::BehindNothing(size_t start) const {
  const std::string_view here = source_.substr(start, 4);
  // In HTML "<!-->" is a whole comment.
  if (here == "<!--") return Behind("-->", start + (markup_ == Markup::Html ? 2 : 4));
  if (here.starts_with("<!")) return BehindDeclaration(start);
  const bool instruction = here.starts_with("<?") && markup_ == Markup::Xml;
  return instruction ? Behind("?>", start) : Behind(">", start);
}

// A declaration may hold further ones in brackets, and there comments and, in XML, quoted texts.
size_t TagWalker::BehindDeclaration(size_t start) const {
  int depth = 0;
  for (size_t at = start + 2; at < source_.size();) {
    const char c = source_[at];
    if (c == '>' && depth <= 0) return at + 1;
    if (depth > 0 && source_.substr(at, 4) == "<!--") {
      at = Behind("-->", at + 4);
    } else if (depth > 0 && markup_ == Markup::Xml && (c == '"' || c == '\'')) {
      at = Behind(source_.substr(at, 1), at + 1);
    } else {
      depth += c == '[' ? 1 : c == ']' ? -1 : 0;
      ++at;
    }
  }
  return source_.size();
}

// Reads the tag at the present position; raw_ stays empty when the end cuts it off.
void TagWalker::ReadTag() {
  const size_t start = position_;
  const size_t name_start = start + 1;
  size_t at = name_start + 1;
  while (at < source_.size() && !EndsName(source_[at])) ++at;
  const bool complete = ReadAttributes(at);
  if (!complete) {
    position_ = source_.size();
    return;
  }
  name_ = source_.substr(name_start, at - name_start);
  if (markup_ == Markup::Html) name_.lowcase();
  raw_ = source_.substr(start, position_ - start);
}

// Reads from behind the tag's name to behind its ">". False when there is none.
bool TagWalker::ReadAttributes(size_t at) {
  closes_itself_ = false;
  for (;;) {
    at = SkipSpace(source_, at);
    if (at >= source_.size()) return false;
    if (source_[at] == '>') break;
    if (source_[at] == '/') {
      ++at;
      closes_itself_ = markup_ == Markup::Xml && At(at) == '>' && At(position_ + 1) != '/';
      continue;
    }
    const size_t start = at++;  // A name may begin with "=".
    while (at < source_.size() && source_[at] != '=' && !EndsName(source_[at])) ++at;
    const std::string_view name = source_.substr(start, at - start);
    const size_t sign = SkipSpace(source_, at);
    std::string_view value;
    if (sign < source_.size() && source_[sign] == '=') {
      at = SkipSpace(source_, sign + 1);
      value = ReadAttributeValue(at);
    }
    AddAttribute(name, value);
  }
  position_ = at + 1;
  return true;
}

std::string_view TagWalker::ReadAttributeValue(size_t& at) const {
  const char quote = At(at);
  const size_t start = at;
  if (quote == '"' || quote == '\'') {
    at = Behind(source_.substr(at, 1), at + 1);
    return source_.substr(start + 1, at - start - 2);
  }
  while (at < source_.size() && !IsWhitespace(source_[at]) && source_[at] != '>') {
    if (markup_ == Markup::Xml && source_[at] == '/' && At(at + 1) == '>') break;
    ++at;
  }
  return source_.substr(start, at - start);
}

void TagWalker::AddAttribute(std::string_view name, std::string_view value) {
  if (attributes_.size() == kMostParts) return;
  String part = VariablePart(name);
  if (part.empty()) return;
  if (markup_ == Markup::Html) part.lowcase();
  for (const Attribute& a : attributes_) {
    if (EqualsIgnoreCase(a.name, part)) return;
  }
  attributes_.push_back({std::move(part), value});
}

// Reads the text up to the next tag, at which the position then is.
void TagWalker::ReadText() {
  text_.clear();
  while (position_ < source_.size()) {
    const size_t start = position_;
    position_ = source_[start] == '<' ? start : std::min(source_.find('<', start), source_.size());
    if (position_ > start) {
      AppendDecoded(source_.substr(start, position_ - start), markup_, text_);
      continue;
    }
    switch (KindAt(start)) {
      case Kind::Tag:
        return;
      case Kind::Text:
        text_.Accumulate('<');
        ++position_;
        break;
      case Kind::CharacterData: {
        const size_t data = start + 9;
        const size_t end = std::min(source_.find("]]>", data), source_.size());
        text_.Append(source_.substr(data, end - data));
        position_ = std::min(end + 3, source_.size());
        break;
      }
      case Kind::Nothing:
        position_ = BehindNothing(start);
        break;
    }
  }
}

// Reads the text behind the present tag, which in HTML may be of a kind that holds no tags.
void TagWalker::ReadElementText() {
  const bool as_it_stands = IsOneOf(name_, {"script", "style"});
  if (markup_ == Markup::Xml || !(as_it_stands || IsOneOf(name_, {"title", "textarea"}))) {
    ReadText();
    return;
  }
  size_t end = position_;
  for (;; end += 2) {
    end = source_.find("</", end);
    if (end == kNone) break;
    const size_t behind = end + 2 + name_.size();
    const bool whole = behind >= source_.size() || EndsName(source_[behind]);
    if (whole && EqualsIgnoreCase(source_.substr(end + 2, name_.size()), name_)) break;
  }
  end = std::min(end, source_.size());
  const std::string_view content = source_.substr(position_, end - position_);
  text_.clear();
  if (as_it_stands) {
    text_ = content;
  } else {
    AppendDecoded(content, markup_, text_);
  }
  position_ = end;
}

}  // namespace vexa
