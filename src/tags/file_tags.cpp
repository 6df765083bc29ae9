// FILE: the attribute that names the action holds the path, a second one what the action needs.
//
//   <FILE READ="notes.txt" NAME="text">      <FILE COPY="a.txt" TO="b.txt">
//
// Which attributes a tag has is checked before anything is done: a mistake there is a syntax error.
// What the system refuses is a runtime error of the tag.

#include <algorithm>
#include <memory>
#include <string_view>
#include <vector>

#include "core/file.h"
#include "core/string.h"
#include "core/text.h"
#include "engine/tag_call.h"
#include "files/locked_file.h"
#include "tags/handlers.h"
#include "tags/shown_name.h"
#include "vexa.h"

namespace vexa {

namespace {

// One tag being carried out. A step that fails leaves the reason, as HTML, in `error`.
struct FileTask {
  Vexa& host;
  const TagCall& call;
  String path;    // finished
  String target;  // finished; of COPY and RENAME
  String result;  // for the variable NAME; of READ and LIST
  String error;

  // For operations that are negative on failure.
  [[nodiscard]] bool Checked(int outcome) {
    if (outcome >= 0) return true;
    error = host.filemanager().error();
    return false;
  }
  [[nodiscard]] bool Resolve(const String& name, String& finished) {
    return host.ResolvePath(name, finished, PathType::DataPath, error) != 0;
  }
};

// Pages may not remove or move the directory that all their files are in.
bool IsDataDirectory(FileTask& task) {
  String root;
  if (!task.Resolve("", root)) return true;
  std::string_view path = task.path;
  std::string_view directory = root;
  while (path.ends_with('/')) path.remove_suffix(1);
  while (directory.ends_with('/')) directory.remove_suffix(1);
  if (path != directory) return false;
  task.error = "It is the data directory itself";
  return true;
}

bool Read(FileTask& task) {
  const std::unique_ptr<File> file = OpenLocked(task.host, task.path, OpenRead, task.error);
  return file != nullptr && ReadContent(*file, task.result, task.error);
}

bool Write(FileTask& task) {
  return ReplaceContent(task.host, task.path, task.call.Text("VALUE"), task.error);
}

bool Append(FileTask& task) {
  constexpr int kMode = OpenWrite | OpenCreate | OpenAppend;
  const std::unique_ptr<File> file = OpenLocked(task.host, task.path, kMode, task.error);
  return file != nullptr && AppendWhole(*file, task.call.Text("VALUE"), task.error);
}

bool Delete(FileTask& task) { return task.Checked(task.host.filemanager().Delete(task.path)); }

bool Copy(FileTask& task) {
  return task.Checked(task.host.filemanager().Copy(task.path, task.target));
}

bool Rename(FileTask& task) {
  return !IsDataDirectory(task) &&
         task.Checked(task.host.filemanager().Rename(task.path, task.target));
}

bool Touch(FileTask& task) {
  FileManager& files = task.host.filemanager();
  const bool there = files.Exists(task.path) ||
                     files.Open(task.path, OpenWrite | OpenCreate | OpenAppend) != nullptr;
  return task.Checked(there && files.TouchFile(task.path) != 0 ? 0 : -1);
}

bool MakeDirectory(FileTask& task) {
  return task.Checked(task.host.filemanager().MakeDirectory(task.path));
}

bool RemoveDirectory(FileTask& task) {
  return !IsDataDirectory(task) && task.Checked(task.host.filemanager().RemoveDirectory(task.path));
}

bool List(FileTask& task) {
  std::vector<String> names;
  if (!task.Checked(task.host.filemanager().ListDirectory(task.path, names))) return false;
  for (const String& name : names) {
    task.result.Reserve(task.result.size() + name.size() + 1);
    if (&name != &names.front()) task.result.cat('\n');
    task.result.cat(name);
  }
  return true;
}

struct FileAction {
  std::string_view name;    // the attribute that holds the path
  std::string_view doing;   // as messages say it
  std::string_view needed;  // the attribute it needs besides; empty: none
  bool (*work)(FileTask& task);
};

constexpr std::string_view kName = "NAME";
constexpr std::string_view kTo = "TO";

constexpr FileAction kActions[] = {
    {"READ", "reading", kName, Read},
    {"WRITE", "writing", "VALUE", Write},
    {"APPEND", "appending to", "VALUE", Append},
    {"DELETE", "deleting", "", Delete},
    {"COPY", "copying", kTo, Copy},
    {"RENAME", "renaming", kTo, Rename},
    {"TOUCH", "touching", "", Touch},
    {"MAKEDIR", "creating directory", "", MakeDirectory},
    {"REMOVEDIR", "removing directory", "", RemoveDirectory},
    {"LIST", "listing", kName, List},
};

const FileAction* FindAction(std::string_view attribute) {
  for (const FileAction& action : kActions) {
    if (EqualsIgnoreCase(action.name, attribute)) return &action;
  }
  return nullptr;
}

// The attribute that names the action: the one and only, as FileTagProblem makes sure.
const NameValuePair& ActionOf(const TagCall& call) {
  return *std::find_if(call.attributes().begin(), call.attributes().end(),
                       [](const NameValuePair& pair) { return FindAction(pair.name) != nullptr; });
}

}  // namespace

String FileTagProblem(const Tag& tag) {
  const FileAction* only = nullptr;
  for (const NameValuePair& pair : tag.attributes()) {
    const FileAction* action = FindAction(pair.name);
    if (action == nullptr) continue;
    if (only != nullptr) {
      return String::Concat(
          {tag.name(), " takes one action, found ", only->name, " and ", action->name});
    }
    only = action;
  }
  if (only == nullptr) {
    return String::Concat({tag.name(),
                           " requires one of READ, WRITE, APPEND, DELETE, COPY, "
                           "RENAME, TOUCH, MAKEDIR, REMOVEDIR and LIST"});
  }
  if (only->needed.empty() || tag.Has(only->needed)) return {};
  return String::Concat(
      {tag.name(), " requires the ", only->needed, " attribute to be specified with ", only->name});
}

StateResult ProcessFILE(TagCall& call) {
  const NameValuePair& path = ActionOf(call);
  const FileAction& action = *FindAction(path.name);
  const bool moves = action.needed == kTo;
  FileTask task{call.host(), call, {}, {}, {}, {}};
  const bool done = task.Resolve(path.value.text(), task.path) &&
                    (!moves || task.Resolve(call.Text(kTo), task.target)) && action.work(task);
  if (!done) {
    String names = ShownName(path.value.text());
    if (moves) names = String::Concat({names, " to ", ShownName(call.Text(kTo))});
    return call.Fail(String::Concat({"Error ", action.doing, " ", names, ": ", task.error}));
  }
  if (action.needed != kName) return StateResult::Handled;
  return call.Assign(call.Text(kName), task.result);
}

}  // namespace vexa
