// The library that speaks HTTP, SMTP and TLS. Pages that do not reach for the network must not pay
// for it: it is loaded when it is first asked for, and stays loaded until the process ends.

#ifndef VEXA_NET_CURL_LIBRARY_H_
#define VEXA_NET_CURL_LIBRARY_H_

// The checks of argument types are macros of the names below.
#define CURL_DISABLE_TYPECHECK
#include <curl/curl.h>

#include "core/string.h"

namespace vexa {

// Its functions, each with the type that its own header gives it.
struct CurlLibrary {
  decltype(&::curl_easy_init) easy_init;
  decltype(&::curl_easy_cleanup) easy_cleanup;
  decltype(&::curl_easy_setopt) easy_setopt;
  decltype(&::curl_easy_getinfo) easy_getinfo;
  decltype(&::curl_easy_send) easy_send;
  decltype(&::curl_easy_recv) easy_recv;
  decltype(&::curl_easy_strerror) easy_strerror;
  decltype(&::curl_multi_init) multi_init;
  decltype(&::curl_multi_cleanup) multi_cleanup;
  decltype(&::curl_multi_add_handle) multi_add_handle;
  decltype(&::curl_multi_remove_handle) multi_remove_handle;
  decltype(&::curl_multi_perform) multi_perform;
  decltype(&::curl_multi_poll) multi_poll;
  decltype(&::curl_multi_info_read) multi_info_read;
  decltype(&::curl_slist_append) slist_append;
  decltype(&::curl_slist_free_all) slist_free_all;

  // The library, loaded when needed. Null, with `reason` set, when the system cannot load it; that
  // may be tried again.
  [[nodiscard]] static const CurlLibrary* Load(String& reason);
};

}  // namespace vexa

#endif  // VEXA_NET_CURL_LIBRARY_H_
