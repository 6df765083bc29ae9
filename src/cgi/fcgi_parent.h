// The parent of the FastCGI worker: it keeps so many children waiting, and does nothing else.

#ifndef VEXA_CGI_FCGI_PARENT_H_
#define VEXA_CGI_FCGI_PARENT_H_

#include <sys/types.h>

#include <csignal>
#include <ctime>
#include <vector>

#include "cgi/fcgi_worker.h"

namespace vexa {

class FCGIParent {
 public:
  // `settings` is borrowed; `children` serve at once.
  FCGIParent(const WorkerSettings& settings, int listening, int children)
      : settings_(settings), listening_(listening), children_(static_cast<size_t>(children)) {}

  // Runs until a signal ends the worker. Children that end are replaced; of those that did not end
  // by themselves a line on standard error tells.
  //   SIGTERM, SIGINT, SIGQUIT   pages that run end, and no others begin
  //   SIGHUP                     the same for the children of now; others take their places
  // Returns the exit status; in a child, when the child is to end.
  [[nodiscard]] int Run();

 private:
  struct Child {
    pid_t id = 0;  // 0: none
    time_t began = 0;
  };

  // True in a child that has ended its service with `status`.
  [[nodiscard]] bool StartMissing(int& status);
  void Collect();
  void Lost(const Child& child, int status);
  void EndChildren(int signal);

  const WorkerSettings& settings_;
  int listening_;
  std::vector<Child> children_;
  sigset_t waited_for_ = {};
  bool hurried_ = false;  // a child ended right after its start
};

}  // namespace vexa

#endif  // VEXA_CGI_FCGI_PARENT_H_
