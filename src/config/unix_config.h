// UNIXConfig: the settings of one request as the configuration file gives them, with what the
// machine adds: working directory, host name, and the table from extensions to content types.
//
// The configuration readers return 0 for success and non-zero for failure, after the error was
// shown; so it is throughout the configuration, the reverse of the request phases.

#ifndef VEXA_CONFIG_UNIX_CONFIG_H_
#define VEXA_CONFIG_UNIX_CONFIG_H_

#include <sys/types.h>

#include <memory>
#include <string_view>
#include <utility>

#include "config/config.h"
#include "core/splay_tree.h"
#include "core/string.h"

namespace vexa {

class Buffer;
class ConfigReceiver;

// The content type of the scripts with one extension.
class MimeType {
 public:
  MimeType(String extension, String type)
      : extension_(std::move(extension)), type_(std::move(type)) {}
  [[nodiscard]] std::string_view name() const { return extension_; }
  [[nodiscard]] const String& type() const { return type_; }

 private:
  String extension_;
  String type_;
};

// What reading the configuration came to.
struct ConfigurationReading {
  Settings settings;
  String virtualhost;
  String defaultmimetype;
  std::shared_ptr<SplayTree<MimeType>> content_types;
};

// The working directory of the process; empty when it has none.
[[nodiscard]] String WorkingDirectory();

// Whether the program runs with the identity of root by its set-user-ID bit.
enum class ServerSafeMode { Off, On };

class UNIXConfig final : public Config {
 public:
  // `receiver` is borrowed. Directories are taken from `workdir`.
  UNIXConfig(ConfigReceiver& receiver, ServerSafeMode mode, const String& workdir);

  // Reads the file at `path`. The settings read before an error keep their values.
  [[nodiscard]] int ReadConfiguration(const String& path);
  // What was read, and taking it over in the place of reading: the content types are shared.
  [[nodiscard]] ConfigurationReading reading() const;
  void TakeOver(const String& path, const ConfigurationReading& reading);
  // Has another receiver from here on; returns the former one. Borrowed.
  ConfigReceiver& SwitchReceiver(ConfigReceiver& receiver);
  // Checks what must be set and makes relative directories absolute.
  [[nodiscard]] int ValidateConfiguration();
  // Defines the variables of the site, and those of the user's data directory.
  [[nodiscard]] int ReadSiteVars();
  [[nodiscard]] int ReadUserSiteVars();
  // Reads the authorization file for the owner of a script: sets, leaves or clears the data
  // directory and replaces limits of this configuration.
  [[nodiscard]] int ReadAuthFile(uid_t uid, gid_t gid, const String& name, const String& home,
                                 String& data_directory);

  // Replace macros in `value`, then do as the base does.
  [[nodiscard]] int SetConfigValue(std::string_view key, const String& value) override;
  [[nodiscard]] int CheckConfigValue(std::string_view key, const String& value) const override;

  // Gives every extension of a comma-separated list a content type, in place of any former one.
  void AddContentType(std::string_view extensions, const String& type);
  void SetDefaultMimeType(const String& type) { defaultmimetype_ = type; }
  // The content type of an extension, in any letter case; the default one when it has none.
  [[nodiscard]] const String& GetContentType(std::string_view extension);
  // The same without the default: null when it has none.
  [[nodiscard]] const String* FindContentType(std::string_view extension);

  // Who may own, besides root, the files that the program obeys: the owner of the configuration
  // file; in server safe mode nobody.
  [[nodiscard]] uid_t TrustedOwner() const;
  // For a file that is read by somebody else than ReadConfiguration: where it is.
  void SetPath(const String& path) { path_ = path; }
  // The host that the request is for: the name of the section that fits it, or what the request
  // says.
  [[nodiscard]] const String& virtualhost() const { return virtualhost_; }
  void SetVirtualHost(const String& name) { virtualhost_ = name; }
  [[nodiscard]] const String& defaultmimetype() const { return defaultmimetype_; }
  [[nodiscard]] bool serversafemode() const { return mode_ == ServerSafeMode::On; }

 private:
  [[nodiscard]] bool OpenConfiguration(Buffer& file, const String& path);
  [[nodiscard]] String ProcessMacros(std::string_view value) const;
  [[nodiscard]] String Absolute(std::string_view path) const;

  ConfigReceiver* receiver_;
  ServerSafeMode mode_;
  String path_;
  String virtualhost_;
  String workdir_;
  String defaultmimetype_ = "text/html";
  std::shared_ptr<SplayTree<MimeType>> content_types_;  // null: none
};

}  // namespace vexa

#endif  // VEXA_CONFIG_UNIX_CONFIG_H_
