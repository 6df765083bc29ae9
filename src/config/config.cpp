// Config: the table of the settings' names, and what a value of each type looks like.

#include "config/config.h"

#include <algorithm>
#include <iterator>

#include "core/encoding.h"
#include "core/name_table.h"
#include "core/number.h"
#include "core/text.h"

namespace vexa {

namespace {

enum class SettingType : uint8_t { Text, Integer, Boolean, Encoding, Errors };

// The words that a setting may have, separated by ","; its number is the place of its word in the
// list, from 0. Empty for the types that are no words.
constexpr std::string_view WordsOf(SettingType type) {
  if (type == SettingType::Errors) return "page,brief";
  return type == SettingType::Encoding ? "none,attribute,entities" : "";
}
static_assert(static_cast<int>(ShownErrors::Page) == 0 &&
              static_cast<int>(ShownErrors::Brief) == 1);
static_assert(static_cast<int>(MacroEncoding::None) == 0 &&
              static_cast<int>(MacroEncoding::Attribute) == 1 &&
              static_cast<int>(MacroEncoding::Entities) == 2);

struct SettingName {
  using Key = RowName<20>;

  consteval SettingName(Key name, String Settings::*field)
      : key(name), type(SettingType::Text), text(field) {}
  consteval SettingName(Key name, int Settings::*field,
                        SettingType value_type = SettingType::Integer)
      : key(name), type(value_type), number(field) {}
  consteval SettingName(Key name, int64_t Settings::*field)
      : key(name), type(SettingType::Integer), large(field) {}

  Key key;
  SettingType type;
  // The one of them that is set is the field.
  String Settings::*text = nullptr;    // of a Text setting
  int Settings::*number = nullptr;     // of any other
  int64_t Settings::*large = nullptr;  // of an Integer setting with 64 bits
};

constexpr SettingName kSettingNames[] = {
    {"quorbelroot", &Settings::quorbelroot},
    {"vexaroot", &Settings::quorbelroot},
    {"teskroot", &Settings::quorbelroot},
    {"userdir", &Settings::userdir},
    {"usersitevars", &Settings::usersitevars},
    {"authfile", &Settings::authfile},
    {"authuserdir", &Settings::authuserdir},
    {"stdmodedatadir", &Settings::stdmodedatadir},
    {"quorbeldefault", &Settings::quorbeldefault},
    {"vexadefault", &Settings::quorbeldefault},
    {"teskdefault", &Settings::quorbeldefault},
    {"sitevars", &Settings::sitevars},
    {"commercedir", &Settings::commercedir},
    {"path", &Settings::path},
    {"tempdir", &Settings::tempdir},
    {"loglevel", &Settings::loglevel},
    {"securityoptions", &Settings::securityoptions},
    {"workdir", &Settings::workdir},
    {"logfile", &Settings::logfile},
    {"globaltimeout", &Settings::globaltimeout},
    {"mailtimeout", &Settings::mailtimeout},
    {"calltimeout", &Settings::calltimeout},
    {"callmaxsize", &Settings::callmaxsize},
    {"mailmaxsize", &Settings::mailmaxsize},
    {"callallow", &Settings::callallow},
    {"cafile", &Settings::cafile},
    {"serveradmin", &Settings::serveradmin},
    {"usecookies", &Settings::usecookies, SettingType::Boolean},
    {"sendstatus", &Settings::sendstatus, SettingType::Boolean},
    {"showerrors", &Settings::showerrors, SettingType::Errors},
    {"nice", &Settings::nice},
    {"maxcpu", &Settings::maxcpu},
    {"maxdata", &Settings::maxdata},
    {"maxstack", &Settings::maxstack},
    {"maxfunctiondepth", &Settings::maxfunctiondepth},
    {"importbuffersize", &Settings::importbuffersize},
    {"templatebuffersize", &Settings::templatebuffersize},
    {"callbuffersize", &Settings::callbuffersize},
    {"smtpbuffersize", &Settings::smtpbuffersize},
    {"contentbuffersize", &Settings::contentbuffersize},
    {"outputbuffersize", &Settings::outputbuffersize},
    {"virtualhostvariable", &Settings::virtualhostvariable},
    {"dnslookup", &Settings::dnslookup, SettingType::Boolean},
    {"redirectonly", &Settings::redirectonly, SettingType::Boolean},
    {"serveruserid", &Settings::serveruserid},
    {"validextensions", &Settings::validextensions},
    {"packages", &Settings::packages},
    {"maxfiles", &Settings::maxfiles},
    {"lockexpiration", &Settings::lockexpiration},
    {"durable", &Settings::durable},
    {"lockhostname", &Settings::lockhostname},
    {"maxbody", &Settings::maxbody},
    {"maxupload", &Settings::maxupload},
    {"maxfields", &Settings::maxfields},
    {"maxmemory", &Settings::maxmemory},
    {"strictinput", &Settings::strictinput, SettingType::Boolean},
    {"sessiontime", &Settings::sessiontime},
    {"sitekey", &Settings::sitekey},
    {"postgresql", &Settings::postgresql},
    {"defaultmacroencoding", &Settings::defaultmacroencoding, SettingType::Encoding},
};
constexpr NameTable kSettings(kSettingNames,
                              [](const SettingName& row) -> std::string_view { return row.key; });

// An optional minus sign, then nothing but digits. The empty value is one and reads as 0.
bool IsInteger(std::string_view value) {
  if (!value.empty() && value.front() == '-') value.remove_prefix(1);
  return std::all_of(value.begin(), value.end(), IsDigit);
}

// 1 or 0 for the words that mean so, -1 for all others.
int BooleanValue(std::string_view value) {
  for (std::string_view word : {"on", "yes", "true", "1"}) {
    if (EqualsIgnoreCase(value, word)) return 1;
  }
  for (std::string_view word : {"off", "no", "false", "0"}) {
    if (EqualsIgnoreCase(value, word)) return 0;
  }
  return -1;
}

// The place of a whole word in a list, from 0; -1 when it is not there.
int WordValue(std::string_view words, std::string_view value) {
  int place = 0;
  for (PieceReader pieces(words, ","); pieces.Next(); ++place) {
    if (EqualsIgnoreCase(pieces.piece(), value)) return place;
  }
  return -1;
}

bool IsValue(SettingType type, std::string_view value) {
  switch (type) {
    case SettingType::Text:
      return true;
    case SettingType::Integer:
      return IsInteger(value);
    case SettingType::Boolean:
      return BooleanValue(value) >= 0;
    default:
      return WordValue(WordsOf(type), value) >= 0;
  }
}

// REQUIRES: it is a value of the type, which is no text.
int NumberOf(SettingType type, std::string_view value) {
  if (type == SettingType::Integer) return ReadInteger(value);
  return type == SettingType::Boolean ? BooleanValue(value) : WordValue(WordsOf(type), value);
}

}  // namespace

int Config::CheckConfigValue(std::string_view key, const String& value) const {
  const int row = kSettings.Find(kSettingNames, key);
  return row < 0 || IsValue(kSettingNames[row].type, value) ? 0 : 1;
}

int Config::SetConfigValue(std::string_view key, const String& value) {
  const int row = kSettings.Find(kSettingNames, key);
  if (row < 0) return 0;
  const SettingName& setting = kSettingNames[row];
  if (!IsValue(setting.type, value)) return 1;
  if (setting.type == SettingType::Text) {
    settings_.*setting.text = value;
  } else if (setting.large != nullptr) {
    settings_.*setting.large = ReadInteger64(value);
  } else {
    settings_.*setting.number = NumberOf(setting.type, value);
  }
  return 0;
}

std::string_view Config::KeyOfSetting(size_t number) {
  return number < std::size(kSettingNames) ? std::string_view(kSettingNames[number].key) : "";
}

String Config::ValueOfSetting(size_t number) const {
  const SettingName& setting = kSettingNames[number];
  if (setting.text != nullptr) return settings_.*setting.text;
  if (setting.large != nullptr) return PrintInteger(settings_.*setting.large);
  const int value = settings_.*setting.number;
  PieceReader words(WordsOf(setting.type), ",");
  for (int place = 0; words.Next(); ++place) {
    if (place == value) return words.piece();
  }
  return PrintInteger(value);
}

bool Config::IsValidExtension(std::string_view extension) const {
  if (settings_.validextensions.empty()) return true;
  for (PieceReader pieces(settings_.validextensions, ","); pieces.Next();) {
    std::string_view entry = Stripped(pieces.piece());
    if (!entry.empty() && entry.front() == '.') entry.remove_prefix(1);
    if (EqualsIgnoreCase(entry, extension)) return true;
  }
  return false;
}

}  // namespace vexa
