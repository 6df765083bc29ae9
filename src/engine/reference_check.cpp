// The check of references; see reference_check.h.

#include "engine/reference_check.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "core/find_byte.h"
#include "core/text.h"
#include "engine/macro_expander.h"

namespace vexa {

namespace {

constexpr std::string_view kScriptEnd = "</script";
// Of a value: white space and "javascript:".
constexpr size_t kFarEnough = 64;

// The offset of `word` in `text`, letter case ignored; npos when it is not there.
size_t FindWord(std::string_view text, std::string_view word) {
  const auto same = [](char a, char b) { return ToLower(a) == ToLower(b); };
  const auto found = std::search(text.begin(), text.end(), word.begin(), word.end(), same);
  return found == text.end() ? std::string_view::npos : static_cast<size_t>(found - text.begin());
}

bool BeginsWith(std::string_view text, std::string_view word) {
  return EqualsIgnoreCase(text.substr(0, word.size()), word);
}

// Whether a browser takes what begins with "<" as a tag. A reference there becomes the name of one.
bool IsTag(std::string_view raw) {
  return raw.size() > 1 && (IsAlpha(raw[1]) || raw[1] == '/' || raw[1] == '&');
}

// The name of such a tag.
std::string_view TagName(std::string_view raw) {
  return raw.substr(1, raw.find_first_of(" \t\r\n/>", 1) - 1);
}

// Whether an attribute of HTML is a program or a style, in which entities are decoded before single
// quotes get their meaning.
bool IsCode(std::string_view name, std::string_view value) {
  return BeginsWith(name, "on") || EqualsIgnoreCase(name, "style") ||
         BeginsWith(Stripped(value), "javascript:");
}

}  // namespace

// A reference as it stands in a text.
struct ReferenceCheck::Written {
  size_t begin;
  size_t end;                // behind it
  std::string_view content;  // between the brackets
  std::optional<MacroEncoding> encoding;

  // The first one in `text` at or behind `from`.
  static std::optional<Written> Next(std::string_view text, size_t from) {
    for (;; ++from) {
      from = FindByte<'&'>(text, from);
      if (from >= text.size()) return std::nullopt;
      const size_t opening = ReferenceOpening(text.substr(from));
      if (opening == 0) continue;
      const size_t close = text.find(']', from + opening);
      if (close == std::string_view::npos) return std::nullopt;
      const std::string_view content = text.substr(from + opening, close - from - opening);
      return Written{from, close + 1, content, ReferenceOf(content).encoding};
    }
  }
};

// --- Pieces ----------------------------------------------------------------------------------

void ReferenceCheck::AddText(std::string_view piece, int line) {
  if (text_.empty()) text_line_ = line - CountByte<'\n'>(piece);
  text_.Append(piece);
}

void ReferenceCheck::EndText() {
  const String text = std::exchange(text_, String());
  CheckPiece(text, text_line_);
}

void ReferenceCheck::AddForeignTag(std::string_view raw, int line) {
  EndText();
  line -= CountByte<'\n'>(raw);
  if (in_script_ || !IsTag(raw)) {
    CheckPiece(raw, line);
    return;
  }
  CheckAttributes(raw, line);
  in_script_ = EqualsIgnoreCase(TagName(raw), "script");
}

// Only those in text constants of expressions: elsewhere pages make names of variables and fields
// so, and mean it. A value there can be more than a name, too, as the manual says.
void ReferenceCheck::AddTag(std::string_view raw, int line, const std::vector<String>& constants) {
  std::vector<std::string_view> in_constants;
  for (const String& constant : constants) {
    for (auto found = Written::Next(constant, 0); found;
         found = Written::Next(constant, found->end)) {
      in_constants.push_back(found->content);
    }
  }
  size_t counted = 0;
  for (auto found = Written::Next(raw, 0); found; found = Written::Next(raw, found->end)) {
    line += CountByte<'\n'>(raw.substr(counted, found->begin - counted));
    counted = found->begin;
    const bool inside =
        std::find(in_constants.begin(), in_constants.end(), found->content) != in_constants.end();
    Check(*found, inside ? Where::Constant : Where::Text, line);
  }
}

void ReferenceCheck::CheckPiece(std::string_view text, int line) {
  const size_t script_end = in_script_ ? FindWord(text, kScriptEnd) : 0;
  size_t counted = 0;
  for (auto found = Written::Next(text, 0); found; found = Written::Next(text, found->end)) {
    line += CountByte<'\n'>(text.substr(counted, found->begin - counted));
    counted = found->begin;
    Check(*found, found->begin < script_end ? Where::Script : Where::Text, line);
  }
  if (script_end != std::string_view::npos) in_script_ = false;
}

// Goes by the quotes of HTML, not by those that end a tag for us: it is the browser that the value
// is to be kept from.
void ReferenceCheck::CheckAttributes(std::string_view raw, int line) {
  char quote = 0;            // that the value stands in
  bool value_next = false;   // behind a "="
  bool code = false;         // the value is a program or a style
  bool code_quoted = false;  // an odd number of single quotes stands in it so far
  bool word_ended = true;    // outside of quotes
  size_t word = 0;           // where the last word there begins
  std::string_view name;     // of the attribute
  auto reference = Written::Next(raw, 0);
  for (size_t i = 0; i < raw.size(); ++i) {
    if (reference && i == reference->begin) {
      const bool single = quote == '\'' || (code && code_quoted);
      Check(*reference,
            quote == 0 ? Where::Unquoted
            : single   ? Where::SingleQuoted
                       : Where::Quoted,
            line);
      line += CountByte<'\n'>(raw.substr(i, reference->end - i));
      i = reference->end - 1;
      value_next = false;
      reference = Written::Next(raw, reference->end);
      continue;
    }
    const char c = raw[i];
    if (c == '\n') ++line;
    if (quote != 0) {
      if (c == '\'') code_quoted = !code_quoted;
      if (c == quote) quote = 0;
      word_ended = true;
    } else if (IsWhitespace(c)) {
      word_ended = true;
    } else if (value_next && (c == '"' || c == '\'')) {
      quote = c;
      value_next = code_quoted = false;
      code = IsCode(name, raw.substr(i + 1, kFarEnough));
    } else if (c == '=') {
      value_next = true;
      name = Stripped(raw.substr(word, i - word));
    } else {
      if (word_ended) word = i;
      word_ended = value_next = false;
    }
  }
}

// --- Findings --------------------------------------------------------------------------------

void ReferenceCheck::Check(const Written& written, Where where, int line) {
  if (!expands_) return;
  const MacroEncoding encoding = written.encoding.value_or(default_);
  const bool entities = encoding == MacroEncoding::Entities;
  if (where == Where::Constant) {
    Tell(line, written, "stands in a text constant, which its value can end: name the variable");
  } else if (where == Where::Script) {
    if (encoding == MacroEncoding::Json || encoding == MacroEncoding::Script) return;
    Tell(line, written, "stands in a script, where only the words json and script are safe");
  } else if (!written.encoding && default_ == MacroEncoding::None) {
    Tell(line, written, "has no word that encodes it, and no default is set before it");
  } else if (where == Where::SingleQuoted && entities) {
    Tell(line, written, "stands between single quotes, which entities leave as they are");
  } else if (where == Where::Unquoted && entities) {
    Tell(line, written, "stands outside quotes, and entities leave spaces as they are");
  }
}

void ReferenceCheck::Tell(int line, const Written& written, std::string_view problem) {
  report_(line, String::Concat({"&amp;[", ShownInMessage(written.content), "] ", problem}));
}

}  // namespace vexa
