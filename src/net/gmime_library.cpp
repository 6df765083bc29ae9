// Loading the library that takes mails apart.

#include "net/gmime_library.h"

#include <dlfcn.h>

namespace vexa {

namespace {

bool Bind(void* library, GMimeLibrary& bound) {
#define VEXA_BIND(name)                                                       \
  bound.name = reinterpret_cast<decltype(bound.name)>(dlsym(library, #name)); \
  if (bound.name == nullptr) return false;
  VEXA_GMIME_FUNCTIONS(VEXA_BIND)
#undef VEXA_BIND
  return true;
}

// What it would say of a strange mail is nobody's to read.
void SayNothing(const char*, GLogLevelFlags, const char*, void*) {}

}  // namespace

const GMimeLibrary* LoadGMime(String& error) {
  static GMimeLibrary bound;
  static bool loaded = false;
  if (loaded) return &bound;
  void* library = dlopen("libgmime-3.0.so.0", RTLD_LAZY | RTLD_LOCAL);
  if (library == nullptr || !Bind(library, bound)) {
    error = String::Concat({"Network support is missing: ", dlerror()});
    return nullptr;
  }
  bound.g_log_set_default_handler(SayNothing, nullptr);
  bound.g_mime_init();
  loaded = true;
  return &bound;
}

}  // namespace vexa
