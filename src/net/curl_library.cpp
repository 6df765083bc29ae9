// Loading, and binding every function by its name.

#include "net/curl_library.h"

#include <dlfcn.h>

#include <type_traits>

#include "net/network_errors.h"

namespace vexa {

namespace {

String Missing(const char* text) {
  return String::Concat({"Network support is missing: ", Shown(text == nullptr ? "" : text)});
}

void* OpenLibrary(String& reason) {
  for (const char* name : {"libcurl.so.4", "libcurl-gnutls.so.4"}) {
    if (void* library = dlopen(name, RTLD_LAZY | RTLD_LOCAL)) return library;
    // The message about the library that is meant to be there.
    if (const char* text = dlerror(); reason.empty()) reason = Missing(text);
  }
  return nullptr;
}

bool BindAll(void* library, CurlLibrary& functions, String& reason) {
  const auto bind = [&](const char* name, auto& function) {
    void* address = dlsym(library, name);
    if (address == nullptr) reason = Missing(dlerror());
    function = reinterpret_cast<std::remove_reference_t<decltype(function)>>(address);
    return address != nullptr;
  };
  decltype(&::curl_global_init) global_init;
  CurlLibrary& f = functions;
  const bool bound =
      bind("curl_global_init", global_init) && bind("curl_easy_init", f.easy_init) &&
      bind("curl_easy_cleanup", f.easy_cleanup) && bind("curl_easy_setopt", f.easy_setopt) &&
      bind("curl_easy_getinfo", f.easy_getinfo) && bind("curl_easy_send", f.easy_send) &&
      bind("curl_easy_recv", f.easy_recv) && bind("curl_easy_strerror", f.easy_strerror) &&
      bind("curl_multi_init", f.multi_init) && bind("curl_multi_cleanup", f.multi_cleanup) &&
      bind("curl_multi_add_handle", f.multi_add_handle) &&
      bind("curl_multi_remove_handle", f.multi_remove_handle) &&
      bind("curl_multi_perform", f.multi_perform) && bind("curl_multi_poll", f.multi_poll) &&
      bind("curl_multi_info_read", f.multi_info_read) &&
      bind("curl_slist_append", f.slist_append) && bind("curl_slist_free_all", f.slist_free_all);
  if (!bound) return false;
  const CURLcode result = global_init(CURL_GLOBAL_DEFAULT);
  if (result != CURLE_OK) reason = Missing(f.easy_strerror(result));
  return result == CURLE_OK;
}

}  // namespace

const CurlLibrary* CurlLibrary::Load(String& reason) {
  static CurlLibrary functions;
  static bool loaded = false;
  if (loaded) return &functions;
  reason.clear();
  void* library = OpenLibrary(reason);
  loaded = library != nullptr && BindAll(library, functions, reason);
  return loaded ? &functions : nullptr;
}

}  // namespace vexa
