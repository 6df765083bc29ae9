// MacroExpander: recognising references and delivering their values.
//
// There is one span that bytes are handed out from, [next_, limit_). While a value is delivered the
// span is the value, and the unread part of the file's block waits in file_next_, file_limit_; so
// the source itself reads no further before the value is used up or dropped:
//
//   watching_  the span is the file's, and macros are on: an '&' needs a look
//   counting_  the span is the file's: its line feeds count
//
// A value is delivered as text: references in it are not expanded. Looking at an '&' may read the
// next block to see the whole reference, and goes back when there is none.

#include "engine/macro_expander.h"

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <cstring>

#include "core/encoding.h"
#include "core/json_text.h"
#include "core/text.h"

namespace vexa {

namespace {

// What may stand between the '&' and the name. Editors that escape ampersands write the long one.
constexpr std::string_view kShortOpening = "[";
constexpr std::string_view kLongOpening = "amp;[";

// Whether one look at the '&' at `at` and the bytes before `limit` tells that no reference begins
// there. Most ampersands of a page begin an ordinary entity.
bool IsOrdinary(const char* at, const char* limit) {
  constexpr auto kLongest = static_cast<std::ptrdiff_t>(1 + kLongOpening.size());
  return limit - at >= kLongest && at[1] != '[' &&
         !EqualsIgnoreCase({at + 1, kLongOpening.size()}, kLongOpening);
}

// The encoding that `word` selects; none when it is none of the words. The younger ones are not
// abbreviated: what pages wrote before must not come to mean them.
std::optional<MacroEncoding> EncodingOf(std::string_view word) {
  if (word.empty()) return std::nullopt;
  if (IsLeadingPart(word, "attribute")) return MacroEncoding::Attribute;
  if (IsLeadingPart(word, "entities")) return MacroEncoding::Entities;
  if (IsLeadingPart(word, "none")) return MacroEncoding::None;
  if (EqualsIgnoreCase(word, "json")) return MacroEncoding::Json;
  if (EqualsIgnoreCase(word, "script")) return MacroEncoding::Script;
  return std::nullopt;
}

}  // namespace

MacroReference ReferenceOf(std::string_view content) {
  MacroReference reference;
  const size_t colon = content.find(':');
  reference.name = Stripped(content.substr(0, colon));
  if (colon != std::string_view::npos) {
    reference.encoding = EncodingOf(Stripped(content.substr(colon + 1)));
  }
  return reference;
}

size_t ReferenceOpening(std::string_view text) {
  if (!text.starts_with('&')) return 0;
  for (const std::string_view opening : {kShortOpening, kLongOpening}) {
    if (EqualsIgnoreCase(text.substr(1, opening.size()), opening)) return 1 + opening.size();
  }
  return 0;
}

MacroEncoding DefaultEncodingOf(std::string_view value) {
  // The empty value is no abbreviation.
  if (value.empty()) return MacroEncoding::None;
  value = Stripped(value);
  if (IsLeadingPart(value, "entities")) return MacroEncoding::Entities;
  if (IsLeadingPart(value, "attribute")) return MacroEncoding::Attribute;
  return MacroEncoding::None;
}

std::string_view MacroReference::Value(Vexa& host, String& room) const {
  Variables& variables = host.vars();
  Variable* found = variable ? variable.Find(variables) : variables.Find(name.view());
  return found == nullptr ? ValueOfNothing() : ValueOf(*found, host, room);
}

std::string_view MacroReference::ValueOfNothing() const {
  if (encoding == MacroEncoding::Json) return R"("")";
  return {};
}

std::string_view MacroReference::ValueOf(Variable& found, Vexa& host, String& room) const {
  const String& value = found.value();
  const MacroEncoding how = encoding.value_or(host.defaultmacroencoding());
  if (how == MacroEncoding::Json) return room = JsonText(value);
  // No other encoding changes a number.
  const bool number = found.plain() && found.plain_value().IsNumber();
  if (how == MacroEncoding::None || number) return value;
  if (how == MacroEncoding::Script) return room = ScriptText(value);
  room = value;
  if (how == MacroEncoding::Attribute) EncodeAttribute(room);
  if (how == MacroEncoding::Entities) EncodeEntities(room);
  return room;
}

void MacroExpander::SetExpandMacros(bool expand) {
  expand_ = expand;
  watching_ = expand_ && !expanding_;
}

SourcePlace MacroExpander::PlaceRead() const {
  if (!expanding_) return {FilePosition(next_), 0, line_};
  assert(span_begin_ <= next_ && next_ <= limit_);
  if (next_ == span_begin_) return reference_;
  if (next_ != limit_) return {reference_.position, static_cast<int>(next_ - span_begin_), line_};
  // Delivered to its end: the place is the one behind the reference.
  return {FilePosition(file_next_), 0, line_};
}

bool MacroExpander::ReturnTo(const SourcePlace& place) {
  DropExpansion();
  if (place.expansion_offset == 0) {
    ReturnLater(place);
    return true;
  }
  if (!Buffer::Return(place)) return false;
  char c;
  if (NextFileChar(&c)) --next_;
  if (StartMacro() == Reference::Started) {
    auto length = static_cast<int>(expansion_.size());
    next_ = span_begin_ + std::min(place.expansion_offset, length);
  }
  line_ = place.line;
  return true;
}

int MacroExpander::GetUncommonChar() {
  while (next_ != limit_ || NextSpan()) {
    if (*next_ == '&' && watching_ && !IsPlainAmpersand()) continue;
    if (*next_ == '\n') line_ += counting_;
    return static_cast<unsigned char>(*next_++);
  }
  return -1;
}

void MacroExpander::UnGetUncommonChar() {
  if (!expanding_) return Buffer::UnGetUncommonChar();
  // The expansion's first byte goes back, and the whole reference with it.
  bool nothing_read = next_ == span_begin_;
  SourcePlace reference = reference_;
  DropExpansion();
  Buffer::Return(reference);
  if (nothing_read) UnGetChar();
}

bool MacroExpander::NextSpan() {
  if (expanding_) {
    EndExpansion();
    if (next_ != limit_) return true;
  }
  return NextBlock();
}

size_t MacroExpander::RunLength() {
  auto length = static_cast<size_t>(limit_ - next_);
  if (!watching_) return length;
  const char* from = next_;
  if (*next_ == '&') {
    if (!IsPlainAmpersand()) return 0;
    // The check may have read on and gone back, so the span may be another one now.
    from = next_ + 1;
    length = static_cast<size_t>(limit_ - next_);
  }
  if (ampersand_ == nullptr || ampersand_ < from) {
    ampersand_ = from;
    do {
      const void* found = std::memchr(ampersand_, '&', static_cast<size_t>(limit_ - ampersand_));
      ampersand_ = found == nullptr ? limit_ : static_cast<const char*>(found);
    } while (IsOrdinary(ampersand_, limit_) && ++ampersand_ != limit_);
  }
  return std::min(length, static_cast<size_t>(ampersand_ - next_));
}

// Reads one byte of the file itself, whatever it is.
bool MacroExpander::NextFileChar(char* c) {
  if (next_ == limit_ && !NextBlock()) return false;
  *c = *next_++;
  if (*c == '\n') ++line_;
  return true;
}

// At an '&' of the file: whether it is still to be delivered and begins no reference. Looking may
// find that the file became shorter, and the '&' gone.
bool MacroExpander::IsPlainAmpersand() {
  return StartMacro() == Reference::None && next_ != limit_;
}

// At an '&' of the file. When no reference begins there nothing is consumed.
MacroExpander::Reference MacroExpander::StartMacro() {
  if (next_ == limit_ || *next_ != '&') return Reference::None;
  if (IsOrdinary(next_, limit_)) return Reference::None;
  SourcePlace start = {FilePosition(next_), 0, line_};
  if (!ReadOpening()) {
    Buffer::Return(start);
    return Reference::None;
  }
  String content;
  bool closed = ReadName(content);
  expansion_.clear();
  MacroReference reference;
  if (closed) reference = ReferenceOf(content);
  if (closed && !(vanish_ && noted_ != nullptr)) {
    String room;
    expansion_ = reference.Value(host_, room);
  }
  if (noted_ != nullptr) {
    reference.variable = Variables::Scope(reference.name);
    reference.place = start;
    reference.end = closed ? FilePosition(next_) : -1;
    noted_->push_back(std::move(reference));
  }
  if (expansion_.empty()) return Reference::Empty;
  reference_ = start;
  BeginExpansion();
  return Reference::Started;
}

// Consumes the '&' and what opens a reference behind it; false when it is something else.
bool MacroExpander::ReadOpening() {
  ++next_;
  char c;
  if (!NextFileChar(&c)) return false;
  if (c == kShortOpening[0]) return true;
  for (size_t i = 0; i < kLongOpening.size(); ++i) {
    if (ToLower(c) != kLongOpening[i]) return false;
    if (i + 1 < kLongOpening.size() && !NextFileChar(&c)) return false;
  }
  return true;
}

// Reads what stands between the brackets, and the ";" behind them. False when the file ends first:
// an unfinished reference vanishes.
bool MacroExpander::ReadName(String& name) {
  char c;
  while (NextFileChar(&c)) {
    if (c != ']') {
      name.Accumulate(c);
      continue;
    }
    if ((next_ != limit_ || NextBlock()) && *next_ == ';') ++next_;
    return true;
  }
  return false;
}

void MacroExpander::BeginExpansion() {
  assert(!expanding_ && !expansion_.empty());
  assert(span_begin_ <= next_ && next_ <= limit_);
  file_begin_ = span_begin_;
  file_next_ = next_;
  file_limit_ = limit_;
  span_begin_ = next_ = expansion_.data();
  limit_ = next_ + expansion_.size();
  expanding_ = true;
  watching_ = false;
  counting_ = 0;
}

void MacroExpander::EndExpansion() {
  assert(expanding_ && counting_ == 0);
  assert(file_begin_ <= file_next_ && file_next_ <= file_limit_);
  span_begin_ = file_begin_;
  next_ = file_next_;
  limit_ = file_limit_;
  expanding_ = false;
  watching_ = expand_;
  counting_ = 1;
  expansion_.clear();
}

void MacroExpander::DropExpansion() {
  if (expanding_) EndExpansion();
}

}  // namespace vexa
