// Making plain text from HTML, tag by tag. Nothing is repaired: a tag opens or closes what its name
// says.

#include "net/html_text.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <optional>
#include <string_view>
#include <utility>

#include "core/name_table.h"
#include "core/text.h"
#include "net/tag_walker.h"

namespace vexa {

namespace {

// What a tag does to the text around it. Tags that are not listed do nothing.
enum class Effect {
  Line,       // stands on lines of its own
  Paragraph,  // the same, with a blank line around it
  Item,
  Break,
  Cell,
  Hidden,  // its content is not shown
  Link,
  AsWritten,  // white space counts
};

struct TagEffect {
  RowName<10> name;
  Effect effect;
};

constexpr TagEffect kEffects[] = {
    {"a", Effect::Link},
    {"address", Effect::Line},
    {"article", Effect::Line},
    {"aside", Effect::Line},
    {"blockquote", Effect::Paragraph},
    {"body", Effect::Line},
    {"br", Effect::Break},
    {"caption", Effect::Line},
    {"center", Effect::Line},
    {"dd", Effect::Line},
    {"div", Effect::Line},
    {"dl", Effect::Paragraph},
    {"dt", Effect::Line},
    {"fieldset", Effect::Line},
    {"figure", Effect::Line},
    {"footer", Effect::Line},
    {"form", Effect::Line},
    {"h1", Effect::Paragraph},
    {"h2", Effect::Paragraph},
    {"h3", Effect::Paragraph},
    {"h4", Effect::Paragraph},
    {"h5", Effect::Paragraph},
    {"h6", Effect::Paragraph},
    {"header", Effect::Line},
    {"hr", Effect::Line},
    {"li", Effect::Item},
    {"main", Effect::Line},
    {"nav", Effect::Line},
    {"ol", Effect::Line},
    {"option", Effect::Line},
    {"p", Effect::Paragraph},
    {"pre", Effect::AsWritten},
    {"script", Effect::Hidden},
    {"section", Effect::Line},
    {"style", Effect::Hidden},
    {"table", Effect::Line},
    {"td", Effect::Cell},
    {"th", Effect::Cell},
    {"title", Effect::Hidden},
    {"tr", Effect::Line},
    {"ul", Effect::Line},
};

static_assert(std::is_sorted(std::begin(kEffects), std::end(kEffects),
                             [](const TagEffect& a, const TagEffect& b) {
                               return std::string_view(a.name) < b.name;
                             }));

std::optional<Effect> EffectOf(std::string_view name) {
  const auto* found = std::lower_bound(std::begin(kEffects), std::end(kEffects), name,
                                       [](const TagEffect& tag, std::string_view wanted) {
                                         return std::string_view(tag.name) < wanted;
                                       });
  if (found == std::end(kEffects) || std::string_view(found->name) != name) return std::nullopt;
  return found->effect;
}

class Writer {
 public:
  // Adds text, its white space drawn together.
  void Add(std::string_view text);
  // Adds text as it is written.
  void AddAsWritten(std::string_view text);
  // Begins a line, with up to `blank` blank lines before it.
  void BeginLine(int blank) {
    breaks_ = std::max(breaks_, blank + 1);
    space_ = false;
  }
  // Ends the line, which may be empty.
  void Break() {
    breaks_ = std::min(breaks_ + 1, 2);
    space_ = false;
  }
  void Space() { space_ = true; }
  // What stands before the next text of the line. Nothing of it is shown without text.
  void SetMark(std::string_view mark) { mark_ = mark; }
  // All text that is added from here on.
  void NoteStart() { start_ = kNotYet; }
  [[nodiscard]] std::string_view SinceStart() const {
    return start_ == kNotYet ? std::string_view() : out_.view().substr(start_);
  }
  [[nodiscard]] String Take() {
    if (!out_.empty()) out_.Append("\n");
    return std::move(out_);
  }

 private:
  static constexpr size_t kNotYet = ~size_t{0};

  void Prepare();

  String out_;
  size_t start_ = 0;  // of what was noted; kNotYet while it has no text
  int breaks_ = 0;    // line ends before the next text
  bool space_ = false;
  std::string_view mark_;
};

void Writer::Prepare() {
  if (out_.empty()) {
    space_ = false;
  } else if (breaks_ > 0) {
    out_.Append(breaks_ == 1 ? "\n" : "\n\n");
    space_ = false;
  }
  breaks_ = 0;
  if (space_) out_.Append(" ");
  space_ = false;
  out_.Append(mark_);
  mark_ = {};
  if (start_ == kNotYet) start_ = out_.size();
}

void Writer::Add(std::string_view text) {
  for (size_t i = 0; i < text.size();) {
    if (IsWhitespace(text[i])) {
      space_ = space_ || breaks_ == 0;
      ++i;
      continue;
    }
    Prepare();
    const size_t end = std::min(text.find_first_of(" \t\r\n", i), text.size());
    out_.Append(text.substr(i, end - i));
    i = end;
  }
}

void Writer::AddAsWritten(std::string_view text) {
  for (size_t i = 0; i < text.size();) {
    const size_t end = text.find('\n', i);
    std::string_view line = text.substr(i, end == std::string_view::npos ? end : end - i);
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (!line.empty()) {
      Prepare();
      out_.Append(line);
    }
    if (end == std::string_view::npos) return;
    Break();
    i = end + 1;
  }
}

class Converter {
 public:
  explicit Converter(std::string_view html) : walker_(html, Markup::Html) {}
  String Convert();

 private:
  void Open(Effect effect);
  void Close(Effect effect);
  void CloseLink();

  TagWalker walker_;
  Writer out_;
  int as_written_ = 0;
  bool in_link_ = false;
  String address_;
};

void Converter::Open(Effect effect) {
  switch (effect) {
    case Effect::Line:
      return out_.BeginLine(0);
    case Effect::Paragraph:
      return out_.BeginLine(1);
    case Effect::Item:
      out_.BeginLine(0);
      return out_.SetMark("- ");
    case Effect::Break:
      return out_.Break();
    case Effect::Cell:
      return out_.Space();
    case Effect::Hidden:
      return;
    case Effect::AsWritten:
      as_written_ = 1;
      return out_.BeginLine(1);
    case Effect::Link:
      CloseLink();
      in_link_ = true;
      address_ = walker_.Value("href");
      out_.NoteStart();
      return;
  }
}

void Converter::Close(Effect effect) {
  switch (effect) {
    case Effect::Paragraph:
      return out_.BeginLine(1);
    case Effect::AsWritten:
      as_written_ = 0;
      return out_.BeginLine(1);
    case Effect::Line:
    case Effect::Item:
      return out_.BeginLine(0);
    case Effect::Link:
      return CloseLink();
    case Effect::Break:
    case Effect::Cell:
    case Effect::Hidden:
      return;
  }
}

void Converter::CloseLink() {
  if (!in_link_) return;
  in_link_ = false;
  std::string_view address = Stripped(address_);
  const std::string_view text = Stripped(out_.SinceStart());
  const bool told = address.empty() || text == address ||
                    (address.starts_with("mailto:") && text == address.substr(7));
  if (told) return;
  if (!text.empty()) out_.Space();
  out_.Add("(");
  out_.Add(address);
  out_.Add(")");
}

String Converter::Convert() {
  while (walker_.Next()) {
    const std::string_view tag = walker_.name();
    const bool closes = tag.starts_with('/');
    const std::string_view name = closes ? tag.substr(1) : tag;
    const std::optional<Effect> effect = EffectOf(name);
    if (effect) closes ? Close(*effect) : Open(*effect);
    if (effect == Effect::Hidden && !closes) continue;
    as_written_ != 0 ? out_.AddAsWritten(walker_.text()) : out_.Add(walker_.text());
  }
  CloseLink();
  return out_.Take();
}

}  // namespace

String TextOfHtml(std::string_view html) { return Converter(html).Convert(); }

}  // namespace vexa
