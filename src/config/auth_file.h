// AuthFileReader: the reader of the authorization file, which says whose pages run, with which data
// directory and within which limits.
//
//   <USER NAMES="anna, #1007, #2000-2999, @students">
//     datadir = /srv/data/&[user]
//     maxcpu  = 5
//   </USER>
//   <USER NAMES="*">
//     access = deny
//   </USER>
//
// The first section with an item that fits the owner of the script decides, and the rest of the
// file is not read. Owner 0 fits nothing. What cannot be understood or looked up ends the reading
// with an error: it might be a denial.

#ifndef VEXA_CONFIG_AUTH_FILE_H_
#define VEXA_CONFIG_AUTH_FILE_H_

#include <string_view>
#include <vector>

#include "config/settings_reader.h"
#include "core/string.h"
#include "core/user_database.h"

namespace vexa {

class Config;
class ConfigReceiver;

class AuthFileReader final : public SettingsReader {
 public:
  // All are borrowed; `source` is open and stands at its start. What the section that decides sets
  // goes to `config`. Without an owner (null) the file can only be checked.
  AuthFileReader(ConfigReceiver& receiver, Config& config, Buffer& source, const UserEntry* owner);

  // Reads for the owner: `data_directory` is replaced, left as it is, or cleared when the owner's
  // pages are not to run. False after an error was shown.
  [[nodiscard]] bool Read(String& data_directory);
  // Reads everything, for nobody, and adds what is wrong to `findings`.
  void CheckAll(std::vector<Finding>& findings);

 protected:
  [[nodiscard]] Progress ProcessSetting(std::string_view key, std::string_view value) override;
  [[nodiscard]] Section OpenSection(std::string_view items) override;
  [[nodiscard]] Progress CloseSection() override;
  [[nodiscard]] Progress ProcessForeignTag(std::string_view name) override;
  void ShowError(int line, std::string_view text) override;

 private:
  struct Item;

  // Whether a piece of the list is an item, which is then taken apart.
  [[nodiscard]] static bool ReadItem(std::string_view text, Item& item);
  // Whether an item fits the owner. False after an error was shown.
  [[nodiscard]] bool Compare(const Item& item, bool& fits);
  // Replaces the macros of a value. False after an error was reported.
  [[nodiscard]] bool ExpandMacros(std::string_view value, String& text);
  [[nodiscard]] const String* Macro(std::string_view name) const;
  [[nodiscard]] bool SetAccess(const String& value);
  [[nodiscard]] bool SetPlace(std::string_view key, const String& path);
  [[nodiscard]] Progress Refuse(std::string_view text);

  ConfigReceiver& receiver_;
  Config& config_;
  const UserEntry* owner_;
  String uid_;  // of the owner, in decimal
  // What the section that decides says, once it has been read.
  bool decided_ = false;
  bool allowed_ = true;
  String directory_;
};

}  // namespace vexa

#endif  // VEXA_CONFIG_AUTH_FILE_H_
