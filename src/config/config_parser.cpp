// UNIXConfigParser: what settings, tags and sections of the configuration file mean.

#include "config/config_parser.h"

#include <algorithm>
#include <cassert>
#include <utility>

#include "config/config_receiver.h"
#include "config/unix_config.h"
#include "config/virtual_host.h"
#include "core/encoding.h"
#include "core/error.h"
#include "core/text.h"

namespace vexa {

namespace {

enum TagNumber : int { kVirtualHost, kVirtualHostEnd, kContentType, kCommerceLib, kPackage };

constexpr TagRow kTags[] = {
    {.name = "VIRTUALHOST", .id = kVirtualHost},  {.name = "/VIRTUALHOST", .id = kVirtualHostEnd},
    {.name = "CONTENT-TYPE", .id = kContentType}, {.name = "COMMERCE-LIB", .id = kCommerceLib},
    {.name = "PACKAGE", .id = kPackage},
};

const TagRow* FindTagRow(std::string_view name) {
  for (const TagRow& row : kTags) {
    if (EqualsIgnoreCase(row.name, name)) return &row;
  }
  return nullptr;
}

constexpr TagSet kConfigTags = {kTags, FindTagRow};

// The attributes of PACKAGE that must be there, in the order in which they are asked for.
constexpr std::pair<std::string_view, String PackageInfo::*> kPackageAttributes[] = {
    {"CODE", &PackageInfo::code},
    {"NAME", &PackageInfo::name},
    {"DESCRIPTION", &PackageInfo::description},
    {"VERSION", &PackageInfo::version},
    {"PATH", &PackageInfo::path},
};

}  // namespace

UNIXConfigParser::UNIXConfigParser(ConfigReceiver& receiver, UNIXConfig& config, Buffer& source)
    : SettingsReader(source, kConfigTags, "NAME"), receiver_(receiver), config_(config) {}

bool UNIXConfigParser::Read() {
  if (!Parse()) return false;
  for (const ConfigSetting& setting : section_settings_) {
    const int refused = config_.SetConfigValue(setting.key, setting.value);
    assert(refused == 0);
    (void)refused;
  }
  for (const Tag& tag : section_tags_) CarryOut(tag);
  return true;
}

void UNIXConfigParser::ShowError(int line, std::string_view text) {
  receiver_.Error(ConfigurationSyntaxError(config_.settings(), line, text));
}

// --- Settings --------------------------------------------------------------------------------

// The sections go by one variable, whose name must be known before the first of them.
Progress UNIXConfigParser::ProcessSetting(std::string_view key, std::string_view value) {
  const String text(value);
  if (sections_begun_ && EqualsIgnoreCase(key, "virtualhostvariable")) {
    ReportSyntaxError(in_section()
                          ? "'virtualhostvariable' cannot be set in a &lt;VIRTUALHOST&gt; section"
                          : "'virtualhostvariable' must stand before the first "
                            "&lt;VIRTUALHOST&gt; section");
    return Progress::Failed;
  }
  const size_t macro = value.find('&');
  if (config_.serversafemode() && macro != value.npos) {
    // The environment is that of whoever started the program.
    std::string_view name = value.substr(std::min(macro + 2, value.size()));
    name = Stripped(name.substr(0, name.find(']')));
    ReportSyntaxError(
        String::Concat({"'&amp;[", EntityEncoded(name), "]' is not known in safe mode"}));
    return Progress::Failed;
  }
  const int refused =
      in_section() ? config_.CheckConfigValue(key, text) : config_.SetConfigValue(key, text);
  if (refused != 0) {
    ReportSyntaxError(String::Concat({"'", value, "' is not a valid value for ", key}));
    return Progress::Failed;
  }
  if (in_section()) section_settings_.push_back({String(key), text});
  // What is wrong behind this line is shown as the line says, also in a section.
  if (EqualsIgnoreCase(key, "showerrors")) (void)config_.SetConfigValue(key, text);
  return Progress::More;
}

// --- Sections --------------------------------------------------------------------------------

SettingsReader::Section UNIXConfigParser::OpenSection(std::string_view names) {
  if (!sections_begun_) {
    sections_begun_ = true;
    host_ = HostOfRequest(receiver_.SystemVariable(config_.settings().virtualhostvariable));
  }
  std::string_view fitting;
  if (!FindName(names, fitting)) return Section::Failed;
  if (chosen_ || fitting.empty()) return Section::Skip;
  chosen_ = true;
  config_.SetVirtualHost(IsHostPattern(fitting) ? host_ : String(fitting));
  return Section::Read;
}

bool UNIXConfigParser::FindName(std::string_view names, std::string_view& fitting) {
  bool named = false;
  for (PieceReader pieces(names, ","); pieces.Next();) {
    const std::string_view name = Stripped(pieces.piece());
    if (name.empty()) continue;
    named = true;
    if (!IsHostName(name)) return RefuseName(name);
    if (fitting.empty() && HostFits(host_, name)) fitting = name;
  }
  return named || RefuseName(names);
}

bool UNIXConfigParser::RefuseName(std::string_view name) {
  ReportSyntaxError(String::Concat({"'", name, "' is not a valid host name"}));
  return false;
}

// --- Tags ------------------------------------------------------------------------------------

Progress UNIXConfigParser::ProcessTag(const Tag& tag) {
  if (!IsWhole(tag)) return Progress::Failed;
  if (in_section()) {
    section_tags_.push_back(tag);
  } else {
    CarryOut(tag);
  }
  return Progress::More;
}

bool UNIXConfigParser::IsWhole(const Tag& tag) {
  switch (tag.id()) {
    case kContentType:
      return Required(tag, "MIMETYPE") != nullptr &&
             (tag.Has("DEFAULT") || Required(tag, "EXTS") != nullptr);
    case kCommerceLib:
      return Required(tag, "METHOD") != nullptr && Required(tag, "LIBRARY") != nullptr;
    default:
      assert(tag.id() == kPackage);
      for (const auto& [attribute, field] : kPackageAttributes) {
        if (Required(tag, attribute) == nullptr) return false;
      }
      return true;
  }
}

void UNIXConfigParser::CarryOut(const Tag& tag) {
  switch (tag.id()) {
    case kContentType:
      if (tag.Has("DEFAULT")) config_.SetDefaultMimeType(tag.Value("MIMETYPE"));
      if (tag.Has("EXTS")) config_.AddContentType(tag.Value("EXTS"), tag.Value("MIMETYPE"));
      return;
    case kCommerceLib:
      receiver_.AddCommerceHandler(
          {tag.Value("METHOD"), tag.Value("LIBRARY"), tag.Value("METAMETHOD")});
      return;
    default:
      RegisterPackage(tag);
  }
}

void UNIXConfigParser::RegisterPackage(const Tag& tag) {
  PackageInfo package;
  for (const auto& [attribute, field] : kPackageAttributes) package.*field = tag.Value(attribute);
  package.defaultpath = tag.Value("DEFAULTPATH");
  receiver_.AddPackage(std::move(package));
}

}  // namespace vexa
