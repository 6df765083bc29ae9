// Host: which script the request names, and whether it may run. Every name that is shown came
// from the request, so its markup characters are shown as entities.

#include <sys/stat.h>

#include "core/encoding.h"
#include "core/error.h"
#include "core/user_database.h"
#include "files/path_descent.h"
#include "host/host.h"

namespace vexa {

namespace {

// The text after the last "."; all of it when there is none.
std::string_view Extension(std::string_view path) { return path.substr(path.rfind('.') + 1); }

String Quoted(std::string_view name) { return String::Concat({"'", EntityEncoded(name), "'"}); }

// What a result of FollowPath means, as the end of a sentence.
std::string_view LinkProblem(int result) {
  switch (result) {
    case 0:
      return {};
    case 1:
      return " references a symbolic link";
    case 2:
      return " references a symbolic link to a directory or file owned by a different user";
    default:
      return " references a symbolic link to a directory or file that does not exist";
  }
}

}  // namespace

int Host::GetScriptInformation(String& script, String& name) {
  String requested = RequestedName();
  name = requested;
  if (requested.empty()) {
    name = config().quorbeldefault;
    script_directory_ = config().quorbelroot;
    script = String::Concat(
        {script_directory_, script_directory_.view().ends_with('/') ? "" : "/", name});
  } else if (requested[0] != '~') {
    LocateScript(requested, script);
  } else if (mode_ == RunMode::StandardMode) {
    Error(FatalError("~user is not supported in standard mode", kRefused));
    return 0;
  } else {
    LocateUserScript(requested, script);
  }
  if (!requested.empty() && IsDirectory(script)) {
    if (!script.view().ends_with('/')) script.cat('/');
    name = config().quorbeldefault;
    script.cat(name.view());
  }
  return CheckScriptDirectory() && CheckScriptPath(script, name) && CheckScriptFile(script, name);
}

// What was seen is what will be there, when the path has no links to replace.
bool Host::IsDirectory(const String& path) {
  seen_path_ = path;
  if (stat(path.c_str(), &seen_) != 0) seen_ = {};
  return S_ISDIR(seen_.st_mode);
}

// The name as the request gives it, without a leading slash and without backslashes.
String Host::RequestedName() {
  String name;
  if (const String& path = request_.path_info(); !path.empty()) {
    name = path.from(path[0] == '/' ? 1 : 0);
  } else if (request_.arguments().empty()) {
    name = SystemVariable("QUERY_STRING").before("+");
  } else {
    name = request_.arguments().front();
  }
  name.gsub("\\", "");
  return name;
}

void Host::LocateScript(const String& requested, String& script) {
  const String& root = config().quorbelroot;
  bool joined = root.view().ends_with('/') || requested[0] == '/';
  script_directory_ = String::Concat({root, joined ? "" : "/"});
  script = script_directory_ + requested;
}

// "~user/rest". Of an unknown user nothing is known; the check of the directory then fails.
void Host::LocateUserScript(const String& requested, String& script) {
  owner_.name = requested.before("/").from(1);
  UserEntry user;
  script = requested;
  if (FindUser(owner_.name, user) != LookUp::Found) return;
  script_directory_ = String::Concat({user.home, "/", config().userdir, "/"});
  script = script_directory_ + requested.after("/");
}

std::string_view Host::DirectoryProblem(String& directory, int links, int other_owners) {
  int options = config().securityoptions;
  bool seen;
  int followed = filemanager_.FollowPath(directory, options & links, options & other_owners, seen);
  if (followed != 0) return LinkProblem(followed);
  return seen || filemanager_.Exists(directory) ? "" : " does not exist";
}

// From here on the operations on files hold to what the names of scripts were checked for.
void Host::SetLinkRules(const String& script) {
  const auto rule = [&](int links) {
    return (config().securityoptions & links) != 0 ? LinkRule::Follow : LinkRule::Refuse;
  };
  filemanager_.SetLinkRules({{{script_directory_, rule(kScriptLinks)},
                              {data_directory_, rule(kDataLinks)},
                              {config().tempdir, rule(kTemporaryLinks)}}});
  filemanager_.NoteLinkRule(script, rule(kScriptLinks));
}

bool Host::CheckScriptDirectory() {
  std::string_view problem =
      DirectoryProblem(script_directory_, kScriptLinks, kScriptLinksToOthers);
  if (problem.empty()) return true;
  String subject = owner_.name.empty()
                       ? String("The directory configured as vexaroot")
                       : "The configured script directory for " + EntityEncoded(owner_.name);
  Error(ConfigurationError(config(), subject + problem, owner_.name.empty() ? 500 : kRefused));
  return false;
}

bool Host::CheckScriptPath(String& script, const String& name) {
  int options = config().securityoptions;
  int followed =
      filemanager_.FollowPath(script, options & kScriptLinks, options & kScriptLinksToOthers);
  if (followed != 0) {
    Error(FatalError(Quoted(name) + LinkProblem(followed), kRefused));
    return false;
  }
  // By characters alone, on purpose: sites keep sibling directories with a common beginning.
  if (script.view().starts_with(script_directory_.view())) return true;
  Error(
      FatalError(Quoted(name) + " is not contained in the configured script directory", kRefused));
  return false;
}

bool Host::CheckScriptFile(const String& script, const String& name) {
  struct stat status;
  // What is no plain file cannot be read back and forth, as scripts are.
  if (!LookAtScript(script, name, status)) return false;
  if (!S_ISREG(status.st_mode)) {
    Error(ScriptNotFoundError("Unable to open " + EntityEncoded(name)));
    return false;
  }
  std::string_view extension = Extension(script);
  if (!config_->IsValidExtension(extension)) {
    Error(FatalError(Quoted(name) + " does not have a valid extension", kRefused));
    return false;
  }
  answer_.SetPageType(config_->GetContentType(extension));
  owner_.uid = status.st_uid;
  return true;
}

// What is at the path, which has been checked for links. Where its owner decides whom the program
// becomes, it is looked at by a way that nobody can exchange behind that check.
bool Host::LookAtScript(const String& script, const String& name, struct stat& status) {
  status = {};
  if (mode_ != RunMode::SetUIDRootMode) {
    if (script == seen_path_) {
      status = seen_;
    } else {
      (void)stat(script.c_str(), &status);
    }
    seen_ = status;
    return true;
  }
  const int options = config().securityoptions;
  const FollowResult result =
      DescendPath(script, options & kScriptLinks, options & kScriptLinksToOthers, status);
  script_identity_ = IdentityOf(status);
  if (result == kPathGood || result == kLinkToNothing) return true;
  Error(FatalError(Quoted(name) + LinkProblem(result), kRefused));
  return false;
}

// A file that is not there yet lies where its directory really is.
bool Host::IsPagePath(const String& path) {
  // By characters alone, as the path of a page is looked at.
  if (path.view().starts_with(script_directory_.view())) {
    return config_->IsValidExtension(Extension(path));
  }
  const std::string_view text = path;
  const size_t name = text.rfind('/') + 1;
  String file, directory, scripts;
  if (filemanager_.RealPath(script_directory_, scripts) < 0) return false;
  if (filemanager_.RealPath(path, file) < 0) {
    if (filemanager_.RealPath(text.substr(0, name), directory) < 0) return false;
    file = String::Concat({directory, "/", text.substr(name)});
  }
  return file.view().starts_with(scripts + "/") && config_->IsValidExtension(Extension(file));
}

}  // namespace vexa
