// The child of the FastCGI worker: it serves one request after another, each as clean as in a
// process of its own, and ends when it has served enough.

#ifndef VEXA_CGI_FCGI_WORKER_H_
#define VEXA_CGI_FCGI_WORKER_H_

#include "core/string.h"

namespace vexa {

struct WorkerSettings {
  String program;        // the path of the CGI program, after which the configuration is named
  String configuration;  // its path
  int requests = 500;    // that a child serves
};

// Serves requests from the listening socket, which other children share. SIGTERM, SIGHUP, SIGINT
// and SIGQUIT let the running page end, and no other begin. Returns the exit status of the process.
[[nodiscard]] int ServeRequests(const WorkerSettings& settings, int listening);

}  // namespace vexa

#endif  // VEXA_CGI_FCGI_WORKER_H_
