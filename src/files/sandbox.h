// The sandbox: where the names that scripts use for files may lead.
//
//   name  ->  candidate  ->  FollowPath  ->  contained in the root of its type?  ->  finished path

#ifndef VEXA_FILES_SANDBOX_H_
#define VEXA_FILES_SANDBOX_H_

#include "core/file.h"
#include "core/settings.h"
#include "core/string.h"
#include "vexa.h"

namespace vexa {

// The directories of a request and the settings that rule them. Everything is borrowed.
struct Sandbox {
  const Settings& settings;
  const FileManager& files;
  const String& script_root;
  const String& data_directory;
  // The directory of the running script; empty before there is one, then the root stands for it.
  const String& module_directory;

  // Turns `name` into a finished path. 1 with `resolved` set, or 0 with `message` set (HTML) and
  // `resolved` as it was.
  [[nodiscard]] int ResolvePath(const String& name, String& resolved, PathType type,
                                String& message) const;

 private:
  [[nodiscard]] String Candidate(const String& name, PathType type) const;
  [[nodiscard]] const String& Root(PathType type) const;
};

}  // namespace vexa

#endif  // VEXA_FILES_SANDBOX_H_
