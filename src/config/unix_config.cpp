// UNIXConfig: reading and checking the configuration; macros; content types.

#include "config/unix_config.h"

#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <memory>
#include <utility>

#include "config/auth_file.h"
#include "config/config_parser.h"
#include "config/config_receiver.h"
#include "config/site_variables.h"
#include "core/buffer.h"
#include "core/encoding.h"
#include "core/error.h"
#include "core/text.h"
#include "files/trusted_file.h"

namespace vexa {

namespace {

constexpr int kConfigurationBuffer = 8192;

}  // namespace

String WorkingDirectory() {
  char directory[PATH_MAX];
  return getcwd(directory, sizeof directory) == nullptr ? String() : String(directory);
}

UNIXConfig::UNIXConfig(ConfigReceiver& receiver, ServerSafeMode mode, const String& workdir)
    : receiver_(&receiver), mode_(mode), workdir_(workdir) {
  settings_.stdmodedatadir = workdir_;
  settings_.path = workdir_;
}

int UNIXConfig::ReadConfiguration(const String& path) {
  path_ = path;
  Buffer file(receiver_->filemanager(), kConfigurationBuffer);
  if (!OpenConfiguration(file, path)) return 1;
  if (!UNIXConfigParser(*receiver_, *this, file).Read()) return 1;
  if (virtualhost_.empty()) {
    virtualhost_ = receiver_->SystemVariable(settings_.virtualhostvariable);
  }
  return 0;
}

// In server safe mode the file decides what root does, and its place follows from a name that
// others gave the program: nobody but root may have had a hand in either.
bool UNIXConfig::OpenConfiguration(Buffer& file, const String& path) {
  if (serversafemode()) {
    TrustedFile trusted(0);
    if (trusted.CheckAsWritten(path) && trusted.OpenIn(file, path)) return true;
    if (!trusted.unreachable()) {
      receiver_->Error(
          FatalError("The configuration file is not trusted: " + EntityEncoded(trusted.reason())));
      return false;
    }
  } else if (file.Open(path, path)) {
    return true;
  }
  receiver_->Error(ConfigurationError(settings_, "Cannot open configuration file"));
  return false;
}

ConfigurationReading UNIXConfig::reading() const {
  return {settings_, virtualhost_, defaultmimetype_, content_types_};
}

void UNIXConfig::TakeOver(const String& path, const ConfigurationReading& reading) {
  path_ = path;
  settings_ = reading.settings;
  virtualhost_ = reading.virtualhost;
  defaultmimetype_ = reading.defaultmimetype;
  content_types_ = reading.content_types;
}

ConfigReceiver& UNIXConfig::SwitchReceiver(ConfigReceiver& receiver) {
  return *std::exchange(receiver_, &receiver);
}

int UNIXConfig::ValidateConfiguration() {
  if (settings_.quorbelroot.empty()) {
    receiver_->Error(ConfigurationError(settings_, "vexaroot is not defined"));
    return 1;
  }
  settings_.quorbelroot = Absolute(settings_.quorbelroot);
  if (serversafemode() && settings_.authfile.empty() && settings_.authuserdir.empty()) {
    receiver_->Error(ConfigurationError(settings_,
                                        "Vexa is running in server safe mode but no authfile or "
                                        "authuserdir are defined"));
    return 1;
  }
  if (!settings_.stdmodedatadir.empty()) {
    settings_.stdmodedatadir = Absolute(settings_.stdmodedatadir);
  }
  return 0;
}

// `path` below the working directory unless it begins at the root.
String UNIXConfig::Absolute(std::string_view path) const {
  return path.front() == '/' ? String(path) : String::Concat({workdir_, "/", path});
}

int UNIXConfig::ReadSiteVars() {
  if (settings_.sitevars.empty()) return 0;
  const SiteVarsRule rule = serversafemode() ? SiteVarsRule::OfRoot : SiteVarsRule::MustExist;
  return ReadSiteVarsFile(*receiver_, settings_, settings_.sitevars, rule);
}

int UNIXConfig::ReadUserSiteVars() {
  if (settings_.usersitevars.empty()) return 0;
  String path, message;
  if (receiver_->ResolvePath(settings_.usersitevars, path, PathType::DataPath, message) == 0) {
    receiver_->Error(ConfigurationError(settings_, message));
    return 1;
  }
  return ReadSiteVarsFile(*receiver_, settings_, path, SiteVarsRule::MayBeMissing);
}

uid_t UNIXConfig::TrustedOwner() const {
  struct stat status;
  return !serversafemode() && ::stat(path_.c_str(), &status) == 0 ? status.st_uid : 0;
}

int UNIXConfig::ReadAuthFile(uid_t uid, gid_t gid, const String& name, const String& home,
                             String& data_directory) {
  const String& path = settings_.authfile;
  TrustedFile trusted(TrustedOwner());
  Buffer file(receiver_->filemanager(), kConfigurationBuffer);
  if (path[0] != '/') {
    receiver_->Error(ConfigurationError(settings_, "authfile must be an absolute path"));
  } else if (trusted.Check(path) && trusted.OpenIn(file, path)) {
    const UserEntry owner{uid, gid, name, home};
    return AuthFileReader(*receiver_, *this, file, &owner).Read(data_directory) ? 0 : 1;
  } else if (trusted.unreachable()) {
    receiver_->Error(ConfigurationError(settings_, "Cannot open authorization file"));
  } else {
    receiver_->Error(ConfigurationError(
        settings_, "The authorization file is not trusted: " + EntityEncoded(trusted.reason())));
  }
  return 1;
}

// Who owns pages there is not who owns the setting: its password would be everybody's.
int UNIXConfig::SetConfigValue(std::string_view key, const String& value) {
  if (serversafemode() && EqualsIgnoreCase(key, "postgresql")) return 0;
  return Config::SetConfigValue(key, ProcessMacros(value));
}

int UNIXConfig::CheckConfigValue(std::string_view key, const String& value) const {
  return Config::CheckConfigValue(key, ProcessMacros(value));
}

// "&[NAME]" becomes the value of an environment variable. Every "&" begins a macro, on purpose:
// the byte behind it is dropped whatever it is, and a missing "]" ends the macro with the value.
String UNIXConfig::ProcessMacros(std::string_view value) const {
  String result;
  while (!value.empty()) {
    size_t ampersand = value.find('&');
    result.cat(value.substr(0, ampersand));
    if (ampersand == value.npos) break;
    value.remove_prefix(ampersand + 1);
    if (!value.empty()) value.remove_prefix(1);
    size_t bracket = value.find(']');
    result.cat(receiver_->EnvironmentValue(Stripped(value.substr(0, bracket))));
    value.remove_prefix(bracket == value.npos ? value.size() : bracket + 1);
  }
  return result;
}

void UNIXConfig::AddContentType(std::string_view extensions, const String& type) {
  if (content_types_ == nullptr) content_types_ = std::make_shared<SplayTree<MimeType>>();
  for (PieceReader pieces(extensions, ","); pieces.Next();) {
    std::string_view extension = Stripped(pieces.piece());
    if (!extension.empty() && extension.front() == '.') extension.remove_prefix(1);
    content_types_->Insert(std::make_unique<MimeType>(String(extension), type));
  }
}

const String& UNIXConfig::GetContentType(std::string_view extension) {
  const String* type = FindContentType(extension);
  return type == nullptr ? defaultmimetype_ : *type;
}

const String* UNIXConfig::FindContentType(std::string_view extension) {
  const MimeType* type = content_types_ == nullptr ? nullptr : content_types_->Find(extension);
  return type == nullptr ? nullptr : &type->type();
}

}  // namespace vexa
