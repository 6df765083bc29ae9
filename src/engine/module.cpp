// Opening a script.

#include "engine/module.h"

namespace vexa {

Module::Module(Vexa& host, const TagSet& tags)
    : host_(host), source_(host, host.config().templatebuffersize), parser_(host, source_, tags) {}

int Module::Open(const String& path, const String& name, String& message) {
  filepath_ = path;
  std::string_view text = path;
  size_t slash = text.rfind('/');
  directory_ = slash == std::string_view::npos ? String() : String(text.substr(0, slash));
  if (source_.Open(path, name)) return 1;
  message = String::Concat({"Unable to open ", name, ": ", source_.error()});
  return 0;
}

}  // namespace vexa
