// ServeServer: the HTTP server for development. One thread: libmicrohttpd speaks HTTP, each page is
// a process (serve_page.h), and one loop waits for sockets, pipes and signals.
//
//   a request:  ServeRequest (what it asks for; its body, in a file without a name)
//               -> a file, a sentence, or a PageRun, whose answer is passed on as it comes
//
// A connection whose page has nothing to say yet is suspended, and resumed when its pipe or the end
// of its process says more. It listens on 127.0.0.1, and answers only to the names of this machine:
// a page of a stranger's site, whose name was made to lead here, gets nothing.

#ifndef VEXA_CGI_SERVE_SERVER_H_
#define VEXA_CGI_SERVE_SERVER_H_

#include <microhttpd.h>

#include <list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "cgi/serve_page.h"
#include "cgi/serve_request.h"
#include "cgi/serve_site.h"
#include "cgi/serve_target.h"

namespace vexa {

class ServeServer {
 public:
  explicit ServeServer(ServeSite site) : site_(std::move(site)) {}
  ServeServer(const ServeServer&) = delete;
  ServeServer& operator=(const ServeServer&) = delete;
  // Ends all pages.
  ~ServeServer();

  // Begins to listen on `port`, or, when that is 0, on a free one. False with the reason in
  // `problem`.
  [[nodiscard]] bool Listen(int port, std::string& problem);
  [[nodiscard]] int port() const { return port_; }
  // Serves until SIGINT, SIGTERM or SIGHUP.
  void Run();

 private:
  // A page's process. It may outlive its request: the page of a HEAD runs to its end too.
  struct Running {
    std::unique_ptr<PageRun> page;
    ServeRequest* request;  // null when nobody reads the answer
  };

  // What libmicrohttpd calls.
  static void* BeginRequest(void* server, const char* address, MHD_Connection* connection);
  static MHD_Result HandleRequest(void* server, MHD_Connection* connection, const char* address,
                                  const char* method, const char* version, const char* data,
                                  size_t* data_size, void** request);
  static void EndRequest(void* server, MHD_Connection* connection, void** request,
                         MHD_RequestTerminationCode end);
  static ssize_t ReadPage(void* request, uint64_t position, char* buffer, size_t size);

  [[nodiscard]] bool Bind(int port);
  [[nodiscard]] MHD_Result Answer(MHD_Connection* connection, ServeRequest& request);
  [[nodiscard]] MHD_Result AnswerPage(MHD_Connection* connection, ServeRequest& request);
  [[nodiscard]] bool StartPage(MHD_Connection* connection, ServeRequest& request);
  void Wait(int timeout_ms);
  void TakeSignals();
  void ReapPages();
  // Ends what still runs: politely first.
  void EndPages();

  ServeSite site_;
  int port_ = 0;
  OwnedDescriptor listener_;
  OwnedDescriptor signals_;
  MHD_Daemon* daemon_ = nullptr;
  std::list<Running> running_;
  bool ending_ = false;
};

}  // namespace vexa

#endif  // VEXA_CGI_SERVE_SERVER_H_
