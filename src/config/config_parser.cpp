// UNIXConfigParser: lines, settings and tags of the configuration file.

#include "config/config_parser.h"

#include <algorithm>
#include <string>
#include <utility>

#include "config/config_receiver.h"
#include "config/unix_config.h"
#include "core/buffer.h"
#include "core/error.h"
#include "core/text.h"

namespace vexa {

constexpr UNIXConfigParser::TagRow UNIXConfigParser::kTags[] = {
    {"VIRTUALHOST", &UNIXConfigParser::ProcessVirtualHost},
    {"/VIRTUALHOST", &UNIXConfigParser::ProcessVirtualHost},
    {"CONTENT-TYPE", &UNIXConfigParser::ProcessContentType},
    {"COMMERCE-LIB", &UNIXConfigParser::ProcessCommerceLib},
    {"PACKAGE", &UNIXConfigParser::ProcessPackage},
};

const String* UNIXConfigParser::Tag::Find(std::string_view attribute) const {
  auto found = std::find_if(
      attributes.begin(), attributes.end(),
      [attribute](const Attribute& pair) { return EqualsIgnoreCase(pair.name, attribute); });
  return found == attributes.end() ? nullptr : &found->value;
}

bool UNIXConfigParser::Parse() {
  String text;
  for (;;) {
    text.clear();
    LineEnd end = GetNextLine(text);
    if (!ProcessText(Stripped(text))) return false;
    if (end == LineEnd::File) return true;
    if (end == LineEnd::Tag && !GetTag()) return false;
  }
}

bool UNIXConfigParser::SyntaxError(std::string_view text) {
  receiver_.Error(ConfigurationSyntaxError(config_.settings(), line_, text));
  return false;
}

// --- Lines -----------------------------------------------------------------------------------

// Collects the next text that is not empty, up to the end of its line, a tag, or the end of the
// file. The "<" of a tag is consumed.
UNIXConfigParser::LineEnd UNIXConfigParser::GetNextLine(String& text) {
  for (;;) {
    if (text.empty()) line_ = source_.line();
    int c = source_.GetNextChar();
    switch (c) {
      case -1:
        return LineEnd::File;
      case '<':
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
void UNIXConfigParser::EatComment() {
  int c = source_.GetNextChar();
  while (c != -1 && c != '\r' && c != '\n') c = source_.GetNextChar();
  if (c != -1) source_.UnGetChar();
}

// What a backslash and the character after it stand for.
void UNIXConfigParser::CatEscaped(String& text) {
  int c = source_.GetNextChar();
  if (c != '#' && c != '<' && c != '\\' && c != '\r' && c != '\n') text.Accumulate('\\');
  if (c == -1) return;
  text.Accumulate(static_cast<char>(c));
  if (c != '\r') return;
  // CR and LF together are one line end.
  c = source_.GetNextChar();
  if (c == '\n') {
    text.Accumulate('\n');
  } else if (c != -1) {
    source_.UnGetChar();
  }
}

// One setting. An unknown key is accepted in silence, so that one file can serve several versions.
bool UNIXConfigParser::ProcessText(std::string_view text) {
  if (text.empty()) return true;
  size_t equals = text.find('=');
  if (equals == text.npos) return SyntaxError("Missing =");
  String key(Stripped(text.substr(0, equals)));
  String value(Stripped(text.substr(equals + 1)));
  if (config_.SetConfigValue(key, value) == 0) return true;
  return SyntaxError(String::Concat({"'", value, "' is not a valid value for ", key}));
}

// --- Tags ------------------------------------------------------------------------------------

// Reads what follows a "<" and does what it says.
bool UNIXConfigParser::GetTag() {
  line_ = source_.line();
  int c = GetAfterWhitespace();
  if (c == -1) return true;  // The file simply ends.
  String name;
  for (; c != '>' && !IsWhitespace(static_cast<char>(c)); c = source_.GetNextChar()) {
    if (c == -1) return SyntaxError("Unexpected end of file in tag");
    name.Accumulate(static_cast<char>(c));
  }
  if (name.view().starts_with("##")) return c == '>' || FindText("##>", "##&gt;");
  if (name.view().starts_with("!--")) return c == '>' || EatHTMLComment();
  source_.UnGetChar();
  if (IsLeadingPart(name, "VxCOMMENT")) return FindText("</VxCOMMENT>", "&lt;/VxCOMMENT&gt;");
  const TagRow* row = std::find_if(std::begin(kTags), std::end(kTags), [&name](const TagRow& tag) {
    return EqualsIgnoreCase(tag.name, name);
  });
  return row == std::end(kTags) ? EatUntilTagEnd() : GetKnownTag(*row);
}

bool UNIXConfigParser::GetKnownTag(const TagRow& row) {
  Tag tag{row.name, {}};
  Scan scan = Scan::More;
  while (scan == Scan::More) scan = GetNextNameValuePair(tag);
  return scan == Scan::TagEnd && (this->*row.handler)(tag);
}

UNIXConfigParser::Scan UNIXConfigParser::UnexpectedEnd(const Tag& tag) {
  SyntaxError(String::Concat({"Unexpected end of file in &lt;", tag.name, "&gt;"}));
  return Scan::Failed;
}

// Skips white space; returns the byte behind it, or -1.
int UNIXConfigParser::GetAfterWhitespace() {
  int c = source_.GetNextChar();
  while (c != -1 && IsWhitespace(static_cast<char>(c))) c = source_.GetNextChar();
  return c;
}

UNIXConfigParser::Scan UNIXConfigParser::GetNextNameValuePair(Tag& tag) {
  int c = GetAfterWhitespace();
  if (c == '>') return Scan::TagEnd;
  Attribute pair;
  while (c != -1) {
    pair.name.Accumulate(static_cast<char>(c));
    c = source_.GetNextChar();
    if (c == '=' || c == '>' || (c != -1 && IsWhitespace(static_cast<char>(c)))) break;
  }
  if (c != -1 && IsWhitespace(static_cast<char>(c))) c = GetAfterWhitespace();
  if (c == -1) return UnexpectedEnd(tag);
  if (!IsAlpha(pair.name[0]) && pair.name[0] != '_') {
    SyntaxError(String::Concat({"Attribute '", pair.name, "' begins with a non-alpha character"}));
    return Scan::Failed;
  }
  Scan scan = Scan::TagEnd;
  if (c == '=') {
    scan = GetValue(tag, pair.value);
    if (scan == Scan::Failed) return scan;
  } else {
    pair.value = pair.name;  // An attribute without a value is its own value.
    if (c != '>') {
      source_.UnGetChar();
      scan = Scan::More;
    }
  }
  tag.attributes.push_back(std::move(pair));
  return scan;
}

// A value runs to white space, ">" or "/" outside double quotes. Its first byte belongs to it
// whatever it is.
UNIXConfigParser::Scan UNIXConfigParser::GetValue(const Tag& tag, String& value) {
  int c = GetAfterWhitespace();
  bool quoted = false;
  do {
    if (c == -1) return UnexpectedEnd(tag);
    if (c == '"') quoted = !quoted;
    value.Accumulate(static_cast<char>(c));
    c = source_.GetNextChar();
  } while (quoted || (c != '>' && c != '/' && !IsWhitespace(static_cast<char>(c))));
  // A quoted value loses its first and its last character.
  if (value[0] == '"') value = value.length() < 2 ? String() : value.at(1, value.length() - 1);
  if (c == '>') return Scan::TagEnd;
  if (c != '/') return Scan::More;
  // Behind "/>" the attributes go on, on purpose: it does not close these tags.
  c = source_.GetNextChar();
  if (c == -1) return UnexpectedEnd(tag);
  if (c == '>') return Scan::More;
  char found = static_cast<char>(c);
  SyntaxError(String::Concat({"Expected &gt;, found '", std::string_view(&found, 1), "'"}));
  return Scan::Failed;
}

bool UNIXConfigParser::EatUntilTagEnd() {
  bool quoted = false;
  for (int c = source_.GetNextChar(); c != -1; c = source_.GetNextChar()) {
    if (c == '"') quoted = !quoted;
    if (c == '>' && !quoted) return true;
  }
  return SyntaxError("Unexpected end of file while looking for '&gt;'");
}

// A ">" that ends nothing leaves the count of dashes as it is, on purpose: so it is in scripts.
bool UNIXConfigParser::EatHTMLComment() {
  int dashes = 0;
  for (int c = source_.GetNextChar(); c != -1; c = source_.GetNextChar()) {
    if (c == '>' && dashes >= 2) return true;
    if (c == '-') {
      ++dashes;
    } else if (c != '>') {
      dashes = 0;
    }
  }
  return SyntaxError("Unexpected end of file while looking for '--&gt;'");
}

// Skips everything up to and including `text`, letter case ignored.
bool UNIXConfigParser::FindText(std::string_view text, std::string_view shown) {
  std::string tail;  // the last bytes read, at most as many as `text` has
  for (int c = source_.GetNextChar(); c != -1; c = source_.GetNextChar()) {
    if (tail.size() == text.size()) tail.erase(0, 1);
    tail.push_back(static_cast<char>(c));
    if (EqualsIgnoreCase(tail, text)) return true;
  }
  return SyntaxError(String::Concat({"Unexpected end of file while looking for '", shown, "'"}));
}

// --- What the tags do ------------------------------------------------------------------------

// The value of an attribute, or null after an error was shown.
const String* UNIXConfigParser::Required(const Tag& tag, std::string_view attribute) {
  const String* value = tag.Find(attribute);
  if (value == nullptr) {
    SyntaxError(String::Concat(
        {"&lt;", tag.name, "&gt; requires the ", attribute, " attribute to be specified"}));
  }
  return value;
}

bool UNIXConfigParser::ProcessContentType(const Tag& tag) {
  const String* type = Required(tag, "MIMETYPE");
  if (type == nullptr) return false;
  const String* extensions = tag.Find("EXTS");
  if (tag.Find("DEFAULT") != nullptr) {
    config_.SetDefaultMimeType(*type);
  } else {
    extensions = Required(tag, "EXTS");
    if (extensions == nullptr) return false;
  }
  if (extensions != nullptr) config_.AddContentType(*extensions, *type);
  return true;
}

bool UNIXConfigParser::ProcessCommerceLib(const Tag& tag) {
  const String* method = Required(tag, "METHOD");
  const String* library = method == nullptr ? nullptr : Required(tag, "LIBRARY");
  if (library == nullptr) return false;
  const String* metamethod = tag.Find("METAMETHOD");
  receiver_.AddCommerceHandler({*method, *library, metamethod == nullptr ? String() : *metamethod});
  return true;
}

bool UNIXConfigParser::ProcessPackage(const Tag& tag) {
  static constexpr std::pair<std::string_view, String PackageInfo::*> kAttributes[] = {
      {"CODE", &PackageInfo::code},
      {"NAME", &PackageInfo::name},
      {"DESCRIPTION", &PackageInfo::description},
      {"VERSION", &PackageInfo::version},
      {"PATH", &PackageInfo::path},
  };
  PackageInfo package;
  for (const auto& [attribute, field] : kAttributes) {
    const String* value = Required(tag, attribute);
    if (value == nullptr) return false;
    package.*field = *value;
  }
  if (const String* path = tag.Find("DEFAULTPATH")) package.defaultpath = *path;
  receiver_.AddPackage(std::move(package));
  return true;
}

// Settings of one virtual host must not silently become those of all: such sections are refused.
bool UNIXConfigParser::ProcessVirtualHost(const Tag& tag) {
  return SyntaxError(String::Concat({"&lt;", tag.name, "&gt; is not supported by this build"}));
}

}  // namespace vexa
