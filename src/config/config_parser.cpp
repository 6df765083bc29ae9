// UNIXConfigParser: lines, settings and tags of the configuration file.
//
//   Parse ─▶ GetNextLine   the next text, without comments and escapes ─▶ ProcessText: one setting
//         └▶ a "<"         the scanner of scripts reads what stands there ─▶ ProcessKnownTag
//
// The scanner gives tags, comments and skipped constructs as it does for scripts; here are only the
// rows of the tags that mean something in this file, and what they do. Errors carry the line on
// which the setting or tag began, not the one where the fault was noticed.

#include "config/config_parser.h"

#include <cassert>
#include <iterator>
#include <utility>

#include "config/config_receiver.h"
#include "config/unix_config.h"
#include "core/buffer.h"
#include "core/error.h"
#include "core/text.h"

namespace vexa {

namespace {

constexpr TagRow kTags[] = {
    {.name = "VIRTUALHOST", .id = 0},  {.name = "/VIRTUALHOST", .id = 1},
    {.name = "CONTENT-TYPE", .id = 2}, {.name = "COMMERCE-LIB", .id = 3},
    {.name = "PACKAGE", .id = 4},
};

const TagRow* FindTagRow(std::string_view name) {
  for (const TagRow& row : kTags) {
    if (EqualsIgnoreCase(row.name, name)) return &row;
  }
  return nullptr;
}

constexpr TagSet kConfigTags = {kTags, FindTagRow};

}  // namespace

constexpr UNIXConfigParser::Handler UNIXConfigParser::kHandlers[] = {
    &UNIXConfigParser::ProcessVirtualHost, &UNIXConfigParser::ProcessVirtualHost,
    &UNIXConfigParser::ProcessContentType, &UNIXConfigParser::ProcessCommerceLib,
    &UNIXConfigParser::ProcessPackage,
};

UNIXConfigParser::UNIXConfigParser(ConfigReceiver& receiver, UNIXConfig& config, Buffer& source)
    : Parser(source, kConfigTags), receiver_(receiver), config_(config) {
  static_assert(std::size(kHandlers) == std::size(kTags));
}

bool UNIXConfigParser::Parse() {
  String text;
  for (;;) {
    text.clear();
    LineEnd end = GetNextLine(text);
    if (ProcessText(Stripped(text)) == Progress::Failed) return false;
    if (end == LineEnd::File) return true;
    if (end == LineEnd::Line) continue;
    bool known = false;
    line_ = line();
    if (ProcessConstruct(known) == Progress::Failed) return false;
  }
}

void UNIXConfigParser::ReportSyntaxError(std::string_view text) {
  receiver_.Error(ConfigurationSyntaxError(config_.settings(), line_, text));
}

// --- Lines -----------------------------------------------------------------------------------

// Collects the next text that is not empty, up to the end of its line, a tag, or the end of the
// file. The "<" of a tag stays unread.
UNIXConfigParser::LineEnd UNIXConfigParser::GetNextLine(String& text) {
  for (;;) {
    if (text.empty()) line_ = source().line();
    int c = source().GetNextChar();
    switch (c) {
      case -1:
        return LineEnd::File;
      case '<':
        source().UnGetChar();
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
  int c = source().GetNextChar();
  while (c != -1 && c != '\r' && c != '\n') c = source().GetNextChar();
  if (c != -1) source().UnGetChar();
}

// What a backslash and the character after it stand for.
void UNIXConfigParser::CatEscaped(String& text) {
  int c = source().GetNextChar();
  if (c != '#' && c != '<' && c != '\\' && c != '\r' && c != '\n') text.Accumulate('\\');
  if (c == -1) return;
  text.Accumulate(static_cast<char>(c));
  if (c != '\r') return;
  // CR and LF together are one line end.
  c = source().GetNextChar();
  if (c == '\n') {
    text.Accumulate('\n');
  } else if (c != -1) {
    source().UnGetChar();
  }
}

Progress UNIXConfigParser::ProcessText(std::string_view text) {
  if (text.empty()) return Progress::More;
  size_t equals = text.find('=');
  if (equals == text.npos) {
    ReportSyntaxError("Missing =");
    return Progress::Failed;
  }
  String key(Stripped(text.substr(0, equals)));
  String value(Stripped(text.substr(equals + 1)));
  if (config_.SetConfigValue(key, value) == 0) return Progress::More;
  ReportSyntaxError(String::Concat({"'", value, "' is not a valid value for ", key}));
  return Progress::Failed;
}

// --- Tags ------------------------------------------------------------------------------------

AttributeEnd UNIXConfigParser::GetValue(Tag& tag, const String& name, ScriptValue& value) {
  AttributeEnd end = Parser::GetValue(tag, name, value);
  // Its last character goes whatever it is.
  String& text = value.MutableText();
  if (text[0] == '"') text = text.length() < 2 ? String() : text.at(1, text.length() - 1);
  return end;
}

Progress UNIXConfigParser::ProcessKnownTag(Tag& tag) {
  assert(&tag.row() == &kTags[tag.id()]);
  bool done = (this->*kHandlers[tag.id()])(tag);
  return done ? Progress::More : Progress::Failed;
}

// --- What the tags do ------------------------------------------------------------------------

const String* UNIXConfigParser::Required(const Tag& tag, std::string_view attribute) {
  if (const NameValuePair* pair = tag.Find(attribute)) return &pair->value.text();
  ReportSyntaxError(String::Concat(
      {"&lt;", tag.name(), "&gt; requires the ", attribute, " attribute to be specified"}));
  return nullptr;
}

bool UNIXConfigParser::ProcessContentType(const Tag& tag) {
  const String* type = Required(tag, "MIMETYPE");
  if (type == nullptr) return false;
  if (tag.Has("DEFAULT")) {
    config_.SetDefaultMimeType(*type);
  } else if (Required(tag, "EXTS") == nullptr) {
    return false;
  }
  if (tag.Has("EXTS")) config_.AddContentType(tag.Value("EXTS"), *type);
  return true;
}

bool UNIXConfigParser::ProcessCommerceLib(const Tag& tag) {
  const String* method = Required(tag, "METHOD");
  const String* library = method == nullptr ? nullptr : Required(tag, "LIBRARY");
  if (library == nullptr) return false;
  receiver_.AddCommerceHandler({*method, *library, tag.Value("METAMETHOD")});
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
  package.defaultpath = tag.Value("DEFAULTPATH");
  receiver_.AddPackage(std::move(package));
  return true;
}

// Settings of one virtual host must not silently become those of all: such sections are refused.
bool UNIXConfigParser::ProcessVirtualHost(const Tag& tag) {
  ReportSyntaxError(String::Concat({"&lt;", tag.name(), "&gt; is not supported by this build"}));
  return false;
}

}  // namespace vexa
