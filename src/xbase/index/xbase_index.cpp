// Opening and creating indexes under their names; see xbase_index.h.

#include "xbase/index/xbase_index.h"

#include <utility>

namespace vexa {

void XBaseIndex::SetNames(const String& name, const String& path, const String& errorpath) {
  name_ = name;
  filepath_ = path;
  errorpath_ = errorpath;
}

int XBaseIndex::Open(const String& name, const String& path, const String& errorpath) {
  SetNames(name, path, errorpath);
  if (Passed(file_.Open(path, errorpath, OpenRead | OpenWrite)) != 0) return 1;
  // An index that is no index fails the second time as well; what counts is the first reason.
  return file_.Open(path, errorpath, OpenRead);
}

int XBaseIndex::Create(const String& path, const String& errorpath, const ZDXIndexSpec& spec) {
  SetNames(errorpath, path, errorpath);
  return Passed(file_.Create(path, errorpath, spec));
}

int XBaseIndex::Create(std::unique_ptr<File> file, const String& path, const String& errorpath,
                       const ZDXIndexSpec& spec) {
  SetNames(errorpath, path, errorpath);
  return Passed(file_.Create(std::move(file), path, errorpath, spec));
}

}  // namespace vexa
