// Reading the authorization file.

#include "config/auth_file.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include "config/config.h"
#include "config/config_receiver.h"
#include "core/encoding.h"
#include "core/error.h"
#include "core/number.h"
#include "core/text.h"

namespace vexa {

namespace {

constexpr TagRow kTags[] = {{.name = "USER", .id = 0}, {.name = "/USER", .id = 1}};

const TagRow* FindTagRow(std::string_view name) {
  for (const TagRow& row : kTags) {
    if (EqualsIgnoreCase(row.name, name)) return &row;
  }
  return nullptr;
}

constexpr TagSet kUserTags = {kTags, FindTagRow};

enum class KeyKind { Access, Place, Limit };

struct Key {
  std::string_view name;
  KeyKind kind;
};

// Limits are settings of the same name.
constexpr Key kKeys[] = {
    {"access", KeyKind::Access},     {"datadir", KeyKind::Place},
    {"sitekey", KeyKind::Place},     {"globaltimeout", KeyKind::Limit},
    {"mailtimeout", KeyKind::Limit}, {"calltimeout", KeyKind::Limit},
    {"maxcpu", KeyKind::Limit},      {"maxdata", KeyKind::Limit},
    {"maxstack", KeyKind::Limit},    {"maxmemory", KeyKind::Limit},
    {"maxfiles", KeyKind::Limit},    {"maxfunctiondepth", KeyKind::Limit},
    {"nice", KeyKind::Limit},
};

const Key* FindKey(std::string_view name) {
  const Key* key =
      std::ranges::find_if(kKeys, [=](const Key& row) { return EqualsIgnoreCase(row.name, name); });
  return key == std::end(kKeys) ? nullptr : key;
}

constexpr uint64_t kLargestID = UINT32_MAX;

// A number of a user. False for anything but digits, and for what no user can have.
bool ReadID(std::string_view text, uint64_t& id) {
  id = 0;
  for (const char digit : text) {
    if (!IsDigit(digit)) return false;
    id = id * 10 + static_cast<uint64_t>(digit - '0');
    if (id > kLargestID) return false;
  }
  return !text.empty();
}

// What a byte is in a name of a user or group.
enum ByteClass : uint8_t { kOrdinary = 1, kDigit = 2, kStrange = 4 };

constexpr std::array<uint8_t, 256> kByteClasses = [] {
  std::array<uint8_t, 256> classes{};
  classes.fill(kOrdinary);
  std::fill_n(classes.begin(), ' ' + 1, kStrange);
  for (char c = '0'; c <= '9'; ++c) classes[static_cast<size_t>(c)] = kDigit;
  for (const char c : std::string_view("*:;/|&<>\"'\x7F"))
    classes[static_cast<size_t>(c)] = kStrange;
  return classes;
}();

// Whether a user or group may have that name. Digits alone are a number that lacks its "#", and
// strange bytes separate what was meant to be two.
bool IsName(std::string_view text) {
  unsigned classes = 0;
  for (const char c : text) classes |= kByteClasses[static_cast<unsigned char>(c)];
  return (classes & (kOrdinary | kStrange)) == kOrdinary;
}

}  // namespace

// One of those that a section is for.
struct AuthFileReader::Item {
  enum class Kind { Everybody, User, Group, Range };

  Kind kind = Kind::Everybody;
  std::string_view text;  // as it was written
  std::string_view name;
  uint64_t first = 0;  // of a range, both included
  uint64_t last = 0;
};

AuthFileReader::AuthFileReader(ConfigReceiver& receiver, Config& config, Buffer& source,
                               const UserEntry* owner)
    : SettingsReader(source, kUserTags, "NAMES"),
      receiver_(receiver),
      config_(config),
      owner_(owner) {
  if (owner != nullptr) uid_ = PrintInteger(owner->uid);
}

bool AuthFileReader::Read(String& data_directory) {
  if (!Parse()) return false;
  if (!decided_ || !allowed_) {
    data_directory.clear();
  } else if (!directory_.empty()) {
    data_directory = directory_;
  }
  return true;
}

void AuthFileReader::CheckAll(std::vector<Finding>& findings) {
  CheckInto(findings);
  (void)Parse();
}

// What the scanner complains of stands in its messages as it was written.
void AuthFileReader::ShowError(int line, std::string_view text) {
  String shown(text);
  shown.gsub("<", "&lt;");
  shown.gsub(">", "&gt;");
  receiver_.Error(AuthorizationSyntaxError(config_.settings(), line, shown));
}

Progress AuthFileReader::Refuse(std::string_view text) {
  ReportSyntaxError(text);
  return Progress::Failed;
}

Progress AuthFileReader::ProcessForeignTag(std::string_view name) {
  return Refuse(String::Concat({"Unknown tag &lt;", EntityEncoded(name), "&gt;"}));
}

// --- Whom a section is for -------------------------------------------------------------------

SettingsReader::Section AuthFileReader::OpenSection(std::string_view items) {
  bool fits = false;
  bool listed = false;
  const auto refuse = [this](std::string_view text) {
    ReportSyntaxError(String::Concat({"'", EntityEncoded(text), "' is not a valid user"}));
    return Section::Failed;
  };
  for (std::string_view rest = items; !rest.empty();) {
    const size_t comma = rest.find(',');
    const std::string_view piece = Stripped(rest.substr(0, comma));
    rest.remove_prefix(comma == rest.npos ? rest.size() : comma + 1);
    if (piece.empty()) continue;
    listed = true;
    Item item;
    if (!ReadItem(piece, item)) return refuse(piece);
    if (!fits && owner_ != nullptr && owner_->uid != 0 && !Compare(item, fits)) {
      return Section::Failed;
    }
  }
  if (!listed) return refuse(items);
  return fits ? Section::Read : Section::Skip;
}

Progress AuthFileReader::CloseSection() {
  decided_ = true;
  return owner_ == nullptr ? Progress::More : Progress::Stop;
}

bool AuthFileReader::ReadItem(std::string_view text, Item& item) {
  item.text = text;
  if (text == "*") return true;
  item.name = text.substr(1);
  if (text.front() == '@') {
    item.kind = Item::Kind::Group;
    return IsName(item.name);
  }
  if (text.front() == '#') {
    item.kind = Item::Kind::Range;
    const size_t dash = item.name.find('-');
    if (!ReadID(item.name.substr(0, dash), item.first)) return false;
    item.last = item.first;
    return dash == item.name.npos ||
           (ReadID(item.name.substr(dash + 1), item.last) && item.first <= item.last);
  }
  item.kind = Item::Kind::User;
  item.name = text;
  return IsName(item.name);
}

bool AuthFileReader::Compare(const Item& item, bool& fits) {
  switch (item.kind) {
    case Item::Kind::Everybody:
      fits = true;
      return true;
    case Item::Kind::User:
      fits = owner_->name == item.name;
      return true;
    case Item::Kind::Range:
      fits = item.first <= owner_->uid && owner_->uid <= item.last;
      return true;
    case Item::Kind::Group:
      break;
  }
  if (FindMember(String(item.name), *owner_, fits) != LookUp::Failed) return true;
  const std::string_view reason = std::strerror(errno);
  receiver_.Error(ConfigurationError(
      config_.settings(),
      String::Concat({"Cannot look up '", EntityEncoded(item.text), "': ", reason})));
  return false;
}

// --- What it says ----------------------------------------------------------------------------

Progress AuthFileReader::ProcessSetting(std::string_view key, std::string_view value) {
  if (!in_section()) return Refuse("Settings must stand in a &lt;USER&gt; section");
  const String shown = EntityEncoded(key);
  const Key* known = FindKey(key);
  if (known == nullptr) {
    return Refuse(String::Concat({"'", shown, "' is not a setting of a user"}));
  }
  String text;
  if (!ExpandMacros(value, text)) return Progress::Failed;
  bool taken = false;
  switch (known->kind) {
    case KeyKind::Access:
      taken = SetAccess(text);
      break;
    case KeyKind::Place:
      taken = SetPlace(known->name, text);
      break;
    case KeyKind::Limit:
      // The macros of the configuration file are others.
      taken = owner_ == nullptr ? config_.Config::CheckConfigValue(known->name, text) == 0
                                : config_.Config::SetConfigValue(known->name, text) == 0;
      break;
  }
  if (taken) return Progress::More;
  return Refuse(String::Concat({"'", EntityEncoded(text), "' is not a valid value for ", shown}));
}

bool AuthFileReader::SetAccess(const String& value) {
  allowed_ = EqualsIgnoreCase(value, "allow");
  return allowed_ || EqualsIgnoreCase(value, "deny");
}

// A path that names nothing would be the whole home directory.
bool AuthFileReader::SetPlace(std::string_view key, const String& path) {
  if (path.empty() || owner_ == nullptr) return !path.empty();
  String place = path[0] == '/' ? path : String::Concat({owner_->home, "/", path});
  if (key != "datadir") return config_.Config::SetConfigValue(key, place) == 0;
  directory_ = std::move(place);
  return true;
}

const String* AuthFileReader::Macro(std::string_view name) const {
  static const String of_nobody = "-";  // for checks
  if (name == "user") return owner_ == nullptr ? &of_nobody : &owner_->name;
  if (name == "uid") return owner_ == nullptr ? &of_nobody : &uid_;
  if (name == "home") return owner_ == nullptr ? &of_nobody : &owner_->home;
  return nullptr;
}

bool AuthFileReader::ExpandMacros(std::string_view value, String& text) {
  for (;;) {
    const size_t macro = value.find("&[");
    text.cat(value.substr(0, macro));
    if (macro == value.npos) return true;
    value.remove_prefix(macro + 2);
    const size_t end = value.find(']');
    const std::string_view name = Stripped(value.substr(0, end));
    const String* known = Macro(name);
    if (known == nullptr) {
      ReportSyntaxError(
          String::Concat({"'&amp;[", EntityEncoded(name), "]' is not known in this file"}));
      return false;
    }
    text.cat(known->view());
    value.remove_prefix(end == value.npos ? value.size() : end + 1);
  }
}

}  // namespace vexa
