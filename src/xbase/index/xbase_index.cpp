// Opening and creating indexes under their names; see xbase_index.h.

#include "xbase/index/xbase_index.h"

#include <utility>

namespace vexa {

void XBaseIndex::SetNames(const String& name, const String& path, const String& errorpath) {
  name_ = name;
  filepath_ = path;
  errorpath_ = errorpath;
  realpath_.clear();
}

int XBaseIndex::Open(const String& name, const String& path, const String& errorpath) {
  SetNames(name, path, errorpath);
  if (Passed(file_.Open(path, errorpath, OpenRead | OpenWrite)) != 0) return 1;
  // Without the right to write, reading may still be allowed. Whatever else went wrong would only
  // be hidden by that.
  if (files_.MayWrite(path) || !files_.Exists(path)) return 0;
  return Passed(file_.Open(path, errorpath, OpenRead));
}

const String& XBaseIndex::realpath() {
  if (realpath_.empty() && files_.RealPath(filepath_, realpath_) < 0) realpath_ = filepath_;
  return realpath_;
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
