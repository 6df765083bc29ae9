// Resolving names inside the sandbox; see sandbox.h.

#include "files/sandbox.h"

#include <string_view>
#include <utility>

#include "core/encoding.h"
#include "files/descriptor.h"
#include "files/file_paths.h"

namespace vexa {

namespace {

// What rules paths of one type.
struct TypeRules {
  int links;            // the SecurityOption that allows links
  int links_to_others;  // the one that allows links to another owner's files
  int absolute;         // the one that takes absolute names as they stand; 0: none
  std::string_view not_contained;
};

constexpr TypeRules kRules[] = {
    {kDataLinks, kDataLinksToOthers, kAbsoluteDataPaths,
     "' is not contained in the configured data directory"},
    {kScriptLinks, kScriptLinksToOthers, kAbsoluteScriptPaths,
     "' is not contained in the configured script directory"},
    {kTemporaryLinks, kTemporaryLinksToOthers, 0,
     "' is not contained in the configured temporary directory"},
};
static_assert(static_cast<int>(PathType::DataPath) == 0);
static_assert(static_cast<int>(PathType::ScriptPath) == 1);
static_assert(static_cast<int>(PathType::TemporaryPath) == 2);

constexpr std::string_view kLinkMessages[] = {
    "' references a symbolic link",
    "' references a symbolic link to a directory or file owned by a different user",
    "' references a symbolic link to a directory or file that does not exist",
};

const TypeRules& RulesOf(PathType type) { return kRules[static_cast<int>(type)]; }

String Joined(const String& base, const String& name) {
  const bool base_ends = base.view().ends_with('/');
  const bool name_begins = name.view().starts_with('/');
  if (base_ends && name_begins) return String::Concat({base.before(base.length() - 1), name});
  return String::Concat({base, base_ends || name_begins ? "" : "/", name});
}

// The name may come from a form and the message goes into a page. Returns 0.
int Refuse(const String& name, std::string_view reason, String& message) {
  String shown = EntityEncoded(name);
  shown.gsub(std::string_view("\0", 1), "\\0");
  message = String::Concat({"'", shown, reason});
  return 0;
}

}  // namespace

int Sandbox::ResolvePath(const String& name, String& resolved, PathType type,
                         String& message) const {
  if (ContainsNul(name)) return Refuse(name, "' contains a NUL character", message);
  if (type == PathType::TemporaryPath && settings.tempdir.empty()) type = PathType::DataPath;
  const TypeRules& rules = RulesOf(type);
  const int options = settings.securityoptions;

  String path = Candidate(name, type);
  const int outcome =
      files.FollowPath(path, options & rules.links, options & rules.links_to_others);
  if (outcome != kPathGood) return Refuse(name, kLinkMessages[outcome - 1], message);
  // Nothing asks for a "/" behind the root, on purpose: sites keep data beside the directory, as
  // in /srv/data and /srv/data2, and reach it. A root that was never set contains nothing.
  const String& root = Root(type);
  if (root.empty() || !path.view().starts_with(root.view())) {
    return Refuse(name, rules.not_contained, message);
  }
  resolved = std::move(path);
  return 1;
}

String Sandbox::Candidate(const String& name, PathType type) const {
  const bool absolute = name.view().starts_with('/');
  if (absolute && (settings.securityoptions & RulesOf(type).absolute) != 0) return name;
  if (type == PathType::ScriptPath && !absolute && !module_directory.empty()) {
    return Joined(module_directory, name);
  }
  return Joined(Root(type), name);
}

const String& Sandbox::Root(PathType type) const {
  switch (type) {
    case PathType::ScriptPath:
      return script_root;
    case PathType::TemporaryPath:
      return settings.tempdir;
    case PathType::DataPath:
      break;
  }
  return data_directory;
}

}  // namespace vexa
