// The file functions: fetch the paths, let the host resolve them, ask the file manager, report.
//
// Every path is resolved by the host before the file manager sees it, so nothing here can leave the
// sandbox. Messages name the path as the script wrote it, never the full one, and are encoded,
// since a path may come from a request. What the file manager did is never undone: a function that
// fails leaves what it found.

#include "expr/builtins.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string_view>

#include "core/encoding.h"
#include "core/file.h"
#include "core/string.h"
#include "vexa.h"

namespace vexa {

namespace {

constexpr PathType kData = PathType::DataPath;
constexpr PathType kScript = PathType::ScriptPath;

constexpr int kPermissionBits = 07777;

// How a failure is told. The function is named in its "f" form, whichever of its forms was called.
struct Action {
  std::string_view doing;
  std::string_view function;
};
constexpr Action kCreating = {"creating", "fmkdir"};
constexpr Action kDeleting = {"deleting", "fdelete"};
constexpr Action kCopying = {"copying", "fcopy"};
constexpr Action kOpening = {"opening", "fcopy"};
constexpr Action kRenaming = {"renaming", "frename"};
constexpr Action kModeing = {"modeing", "fchmod"};
constexpr Action kSymlinking = {"symlinking", "fsymlink"};

// The roots of a source and a destination.
struct Roots {
  PathType source;
  PathType destination;
};

// The argument between quotes as a message shows it: a path often comes from the request, and
// messages are HTML.
String Quoted(const BuiltinCall& call, size_t i) {
  String shown = EntityEncoded(call.Text(i));
  shown.gsub(std::string_view("\0", 1), "\\0");
  return String::Concat({"'", shown, "'"});
}

// `paths` and `reason` are HTML.
bool ReportFailure(const BuiltinCall& call, const Action& action, std::string_view paths,
                   std::string_view reason) {
  call.ReturnFlag(false);
  return call.context().ReportFileError(
      String::Concat({"Error ", action.doing, " ", paths, " in ", action.function, ": ", reason}));
}

// A failure of a function with one path, and of one with a source and a destination.
bool FailOne(const BuiltinCall& call, const Action& action, std::string_view reason) {
  return ReportFailure(call, action, Quoted(call, 0), reason);
}
bool FailTwo(const BuiltinCall& call, const Action& action, std::string_view reason) {
  const String paths = String::Concat({Quoted(call, 0), " to ", Quoted(call, 1)});
  return ReportFailure(call, action, paths, reason);
}

// Sets `path` to the finished path of the first argument, or to nothing when it is refused. Who
// asks is not told why, but of a file that is the page's own open database: "no" would be a lie
// there. False when the page must stop.
bool PathToAsk(const BuiltinCall& call, PathType root, String& path) {
  String refusal;
  if (call.host().ResolvePath(call.Text(0), path, root, refusal) != 0) return true;
  const bool told = path.empty() || call.context().ReportFileError(refusal);
  path = String();
  return told;
}

bool Exists(const BuiltinCall& call, PathType root) {
  String path;
  return PathToAsk(call, root, path) &&
         call.ReturnFlag(!path.empty() && call.host().filemanager().Exists(path));
}

bool Size(const BuiltinCall& call, PathType root) {
  String path;
  if (!PathToAsk(call, root, path)) return false;
  const int64_t size = path.empty() ? -1 : call.host().filemanager().Length(path);
  return size < 0 || call.ReturnInteger(size);
}

bool Mode(const BuiltinCall& call, PathType root) {
  String path;
  if (!PathToAsk(call, root, path)) return false;
  const int mode = path.empty() ? -1 : call.host().filemanager().Mode(path);
  if (mode < 0) return true;
  char text[16];
  std::snprintf(text, sizeof text, "0%03o", static_cast<unsigned>(mode & kPermissionBits));
  return call.Return(std::string_view(text));
}

using OnePathWork = int (FileManager::*)(const String& path);

bool ActOnOne(const BuiltinCall& call, PathType root, const Action& action, OnePathWork work) {
  String path;
  String refusal;
  if (call.host().ResolvePath(call.Text(0), path, root, refusal) == 0) {
    return FailOne(call, action, refusal);
  }
  FileManager& files = call.host().filemanager();
  if ((files.*work)(path) < 0) return FailOne(call, action, files.error());
  return call.ReturnFlag(true);
}

bool MakeDirectory(const BuiltinCall& call, PathType root) {
  return ActOnOne(call, root, kCreating, &FileManager::MakeDirectory);
}

bool Delete(const BuiltinCall& call, PathType root) {
  return ActOnOne(call, root, kDeleting, &FileManager::Delete);
}

bool ChangeMode(const BuiltinCall& call, PathType root) {
  String path;
  String refusal;
  if (call.host().ResolvePath(call.Text(0), path, root, refusal) == 0) {
    return FailOne(call, kModeing, refusal);
  }
  FileManager& files = call.host().filemanager();
  if (files.ChangeMode(path, call.Integer(1) & kPermissionBits) < 0) {
    return FailOne(call, kModeing, files.error());
  }
  return call.ReturnFlag(true);
}

// The finished paths of a source and a destination. False with `reason` set when one is refused.
struct TwoPaths {
  String source;
  String destination;
  String reason;

  bool Resolve(const BuiltinCall& call, const Roots& roots) {
    return call.host().ResolvePath(call.Text(0), source, roots.source, reason) != 0 &&
           call.host().ResolvePath(call.Text(1), destination, roots.destination, reason) != 0;
  }
};

bool Copy(const BuiltinCall& call, const Roots& roots) {
  TwoPaths paths;
  if (!paths.Resolve(call, roots)) return FailTwo(call, kCopying, paths.reason);
  FileManager& files = call.host().filemanager();
  if (files.Copy(paths.source, paths.destination) >= 0) return call.ReturnFlag(true);
  const String reason = files.error();
  if (!files.Exists(paths.source)) return FailOne(call, kOpening, reason);
  return FailTwo(call, kCopying, reason);
}

std::string_view WithoutTrailingSlashes(std::string_view path) {
  while (path.ends_with('/')) path.remove_suffix(1);
  return path;
}

// Pages may not move the directory that all their files, or they themselves, are in.
bool IsRoot(const BuiltinCall& call, const String& path, PathType root) {
  String top;
  String refusal;
  // A name that begins with "/" may mean the whole machine, an empty one the module's directory.
  const String name = root == kData ? "" : "/";
  return call.host().ResolvePath(name, top, root, refusal) != 0 &&
         WithoutTrailingSlashes(path) == WithoutTrailingSlashes(top);
}

bool Rename(const BuiltinCall& call, const Roots& roots) {
  TwoPaths paths;
  if (!paths.Resolve(call, roots)) return FailTwo(call, kRenaming, paths.reason);
  if (IsRoot(call, paths.source, roots.source)) {
    const bool data = roots.source == kData;
    return FailTwo(call, kRenaming,
                   data ? "It is the data directory itself" : "It is the script directory itself");
  }
  FileManager& files = call.host().filemanager();
  if (files.Rename(paths.source, paths.destination) < 0) {
    return FailTwo(call, kRenaming, files.error());
  }
  return call.ReturnFlag(true);
}

bool MakeSymbolicLink(const BuiltinCall& call, const Roots& roots) {
  TwoPaths paths;
  if (!paths.Resolve(call, roots)) return FailTwo(call, kSymlinking, paths.reason);
  // The file manager keeps no message for links, so the system is asked at once.
  if (call.host().filemanager().MakeSymbolicLink(paths.source, paths.destination) < 0) {
    return FailTwo(call, kSymlinking, call.host().lasterror());
  }
  return call.ReturnFlag(true);
}

}  // namespace

bool BuiltinFexists(const BuiltinCall& call) { return Exists(call, kData); }
bool BuiltinSexists(const BuiltinCall& call) { return Exists(call, kScript); }
bool BuiltinFmkdir(const BuiltinCall& call) { return MakeDirectory(call, kData); }
bool BuiltinSmkdir(const BuiltinCall& call) { return MakeDirectory(call, kScript); }
bool BuiltinFdelete(const BuiltinCall& call) { return Delete(call, kData); }
bool BuiltinSdelete(const BuiltinCall& call) { return Delete(call, kScript); }
bool BuiltinFcopy(const BuiltinCall& call) { return Copy(call, {kData, kData}); }
bool BuiltinScopy(const BuiltinCall& call) { return Copy(call, {kScript, kScript}); }
bool BuiltinFscopy(const BuiltinCall& call) { return Copy(call, {kData, kScript}); }
bool BuiltinSfcopy(const BuiltinCall& call) { return Copy(call, {kScript, kData}); }
bool BuiltinFrename(const BuiltinCall& call) { return Rename(call, {kData, kData}); }
bool BuiltinSrename(const BuiltinCall& call) { return Rename(call, {kScript, kScript}); }
bool BuiltinFsrename(const BuiltinCall& call) { return Rename(call, {kData, kScript}); }
bool BuiltinSfrename(const BuiltinCall& call) { return Rename(call, {kScript, kData}); }
bool BuiltinFchmod(const BuiltinCall& call) { return ChangeMode(call, kData); }
bool BuiltinSchmod(const BuiltinCall& call) { return ChangeMode(call, kScript); }
bool BuiltinFsize(const BuiltinCall& call) { return Size(call, kData); }
bool BuiltinSsize(const BuiltinCall& call) { return Size(call, kScript); }
bool BuiltinFmode(const BuiltinCall& call) { return Mode(call, kData); }
bool BuiltinSmode(const BuiltinCall& call) { return Mode(call, kScript); }
bool BuiltinFsymlink(const BuiltinCall& call) { return MakeSymbolicLink(call, {kData, kData}); }
bool BuiltinSsymlink(const BuiltinCall& call) { return MakeSymbolicLink(call, {kScript, kScript}); }

}  // namespace vexa
