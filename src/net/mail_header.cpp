// Folding header lines, encoded words, and parameters.

#include "net/mail_header.h"

#include <algorithm>
#include <cstddef>
#include <vector>

#include "core/base64.h"
#include "core/number.h"
#include "core/text.h"
#include "core/utf8.h"
#include "net/mail_text.h"

namespace vexa {

namespace {

constexpr size_t kLongestLine = 76;         // bytes, where a line can be folded
constexpr size_t kLongestWord = 900;        // bytes without a space that may stand unencoded
constexpr size_t kMostBlanks = 40;          // between two words that may stand unencoded
constexpr size_t kLeastRoom = 12;           // bytes for which an encoded word begins on a line
constexpr size_t kLongestQuotedName = 200;  // bytes of a name in quotes
constexpr size_t kLongestParameter = 50;    // bytes of a value in quotes, or of a piece of one
constexpr std::string_view kFrameOfQ = "=?utf-8?Q?";
constexpr std::string_view kFrameOfB = "=?utf-8?B?";
constexpr std::string_view kFrameEnd = "?=";
constexpr char kHexDigits[] = "0123456789ABCDEF";

bool IsPlain(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; });
}

// Control characters, which nobody can show, become spaces.
String WithoutControls(std::string_view text) {
  String shown;
  for (char c : text) {
    shown.Accumulate(static_cast<unsigned char>(c) < ' ' || c == '\x7F' ? ' ' : c);
  }
  return shown;
}

// Puts words on lines: a word that does not fit is put on the next line.
class LineFolder {
 public:
  LineFolder(String& out, std::string_view name) : out_(out) {
    out_.Append(name);
    out_.Append(":");
    column_ = name.size() + 1;
  }
  // `blanks` is the white space before the word.
  void Add(std::string_view blanks, std::string_view word) {
    if (column_ + blanks.size() + word.size() > kLongestLine && !first_) {
      out_.Append("\r\n");
      column_ = 0;
    }
    out_.Append(blanks);
    out_.Append(word);
    column_ += blanks.size() + word.size();
    first_ = false;
  }
  void End() { out_.Append("\r\n"); }
  // Begins a line, also behind the name, when there is no room for an encoded word on this one.
  // Returns the bytes that the next encoded word may hold.
  [[nodiscard]] size_t MakeRoom(std::string_view blanks) {
    const size_t frame = blanks.size() + kFrameOfQ.size() + kFrameEnd.size();
    if (column_ + frame + kLeastRoom > kLongestLine) {
      out_.Append("\r\n");
      column_ = 0;
    }
    return kLongestLine - column_ - frame;
  }

 private:
  String& out_;
  size_t column_;
  bool first_ = true;  // a name is not left alone on its line
};

// What an encoded word of the kind Q holds of a byte, in every place where one may stand.
void AppendQ(String& out, char c) {
  const auto byte = static_cast<unsigned char>(c);
  if (c == ' ') {
    out.Accumulate('_');
  } else if (IsAlpha(c) || IsDigit(c) || c == '-' || c == '/' || c == '!' || c == '*') {
    out.Accumulate(c);
  } else {
    const char code[] = {'=', kHexDigits[byte >> 4], kHexDigits[byte & 15]};
    out.Append({code, sizeof code});
  }
}

size_t SizeAsQ(std::string_view text) {
  String word;
  for (char c : text) AppendQ(word, c);
  return word.size();
}

// Adds `text` as encoded words of the shorter kind, cut between characters only. `first` is the
// white space before it.
void AddEncoded(LineFolder& folder, std::string_view first, std::string_view text) {
  const bool as_q = SizeAsQ(text) <= Base64Size(text.size());
  const auto size = [&](size_t length) {
    return as_q ? SizeAsQ(text.substr(0, length)) : Base64Size(length);
  };
  for (std::string_view blanks = first; !text.empty(); blanks = " ") {
    const size_t room = folder.MakeRoom(blanks);
    size_t length = 0;
    for (size_t next = 0; next <= text.size() && size(next) <= room;) {
      length = next;
      if (next == text.size()) break;
      next += std::max<size_t>(Utf8Length(text.substr(next)), 1);
    }
    String word(as_q ? kFrameOfQ : kFrameOfB);
    if (as_q) {
      for (char c : text.substr(0, length)) AppendQ(word, c);
    } else {
      AppendBase64(word, text.substr(0, length), 0);
    }
    word.Append(kFrameEnd);
    folder.Add(blanks, word);
    text.remove_prefix(length);
  }
}

// Whether a word of a text cannot stand as it is.
bool NeedsEncoding(std::string_view word) {
  return !IsPlain(word) || word.size() > kLongestWord || word.find("=?") != std::string_view::npos;
}

// A word and the white space before it.
struct Word {
  size_t blanks_begin;
  size_t begin;
  size_t end;
};

// The next word of `text` from `from` on; an empty one at its end.
Word NextWord(std::string_view text, size_t from) {
  const size_t begin = std::min(text.find_first_not_of(' ', from), text.size());
  return {from, begin, std::min(text.find(' ', begin), text.size())};
}

// Adds text for people. What lies between two words that need it is encoded too, so that white
// space between them is kept.
void AddText(LineFolder& folder, std::string_view text) {
  size_t first = std::string_view::npos;
  size_t last = 0;
  size_t former = 0;
  for (Word word = NextWord(text, 0); word.begin < text.size(); word = NextWord(text, word.end)) {
    const bool far_apart = word.begin - word.blanks_begin > kMostBlanks;
    if (far_apart || NeedsEncoding(text.substr(word.begin, word.end - word.begin))) {
      first = std::min(first, far_apart ? former : word.begin);
      last = word.end;
    }
    former = word.begin;
  }
  for (Word word = NextWord(text, 0); word.begin < text.size(); word = NextWord(text, word.end)) {
    // Behind the name of the header one space stands, whatever the text begins with.
    const std::string_view blanks =
        word.blanks_begin == 0 ? " "
                               : text.substr(word.blanks_begin, word.begin - word.blanks_begin);
    if (word.begin == first) {
      AddEncoded(folder, blanks, text.substr(first, last - first));
      word.end = last;
    } else {
      folder.Add(blanks, text.substr(word.begin, word.end - word.begin));
    }
  }
}

bool IsPhrase(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) {
    return IsAlpha(c) || IsDigit(c) ||
           std::string_view(" !#$%&'*+-/^_`{|}~").find(c) != std::string_view::npos;
  });
}

void AddAddress(LineFolder& folder, const MailAddress& address, std::string_view separator) {
  const String shown = WithoutControls(address.name);
  const std::string_view name = Stripped(shown);
  if (name.empty()) {
    folder.Add(" ", String::Concat({address.address, separator}));
    return;
  }
  if (name.size() > kLongestQuotedName || NeedsEncoding(name)) {
    AddEncoded(folder, " ", name);
  } else {
    folder.Add(" ", IsPhrase(name) ? String(name) : QuotedString(name));
  }
  folder.Add(" ", String::Concat({"<", address.address, ">", separator}));
}

bool IsParameterByte(char c) {
  return IsAlpha(c) || IsDigit(c) ||
         std::string_view("!#$&+-.^_`{|}~").find(c) != std::string_view::npos;
}

// A parameter that is any text: name*=utf-8''..., or in pieces name*0*=utf-8''...; name*1*=...
void AddExtended(LineFolder& folder, std::string_view parameter, std::string_view text) {
  std::vector<String> pieces = {"utf-8''"};
  for (char c : text) {
    if (pieces.back().size() > kLongestParameter) pieces.emplace_back();
    const auto byte = static_cast<unsigned char>(c);
    const char code[] = {'%', kHexDigits[byte >> 4], kHexDigits[byte & 15]};
    pieces.back().Append(IsParameterByte(c) ? std::string_view(&c, 1)
                                            : std::string_view(code, sizeof code));
  }
  for (size_t i = 0; i < pieces.size(); ++i) {
    const String number = pieces.size() == 1 ? String() : "*" + PrintInteger(static_cast<int>(i));
    const std::string_view separator = i + 1 < pieces.size() ? ";" : "";
    folder.Add(" ", String::Concat({parameter, number, "*=", pieces[i], separator}));
  }
}

}  // namespace

void AppendTextHeader(String& out, std::string_view name, std::string_view value) {
  LineFolder folder(out, name);
  const String shown = WithoutControls(value);
  AddText(folder, Stripped(shown));
  folder.End();
}

void AppendAddressHeader(String& out, std::string_view name,
                         std::span<const MailAddress> addresses) {
  LineFolder folder(out, name);
  for (size_t i = 0; i < addresses.size(); ++i) {
    AddAddress(folder, addresses[i], i + 1 < addresses.size() ? "," : "");
  }
  folder.End();
}

void AppendParameterHeader(String& out, std::string_view name, std::string_view value,
                           std::string_view parameter, std::string_view text) {
  LineFolder folder(out, name);
  folder.Add(" ", String::Concat({value, ";"}));
  if (text.size() <= kLongestParameter && IsPlain(text) &&
      text.find("=?") == std::string_view::npos) {
    folder.Add(" ", String::Concat({parameter, "=", QuotedString(text)}));
  } else {
    AddExtended(folder, parameter, text);
  }
  folder.End();
}

}  // namespace vexa
