// ServeRequest: one request to the server for development: what it asks for, its body, and what a
// page sees of it.
//
//   Head --(its headers are there)--> Body --(all of it is there)--> Answered

#ifndef VEXA_CGI_SERVE_REQUEST_H_
#define VEXA_CGI_SERVE_REQUEST_H_

#include <microhttpd.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "cgi/serve_page.h"
#include "cgi/serve_site.h"
#include "cgi/serve_target.h"

namespace vexa {

struct ServeRequest {
  enum class Stage { Head, Body, Answered };

  std::string address;  // as it was sent: a path, and perhaps "?" and a query
  std::chrono::steady_clock::time_point begin;
  Stage stage = Stage::Head;
  std::string method;
  std::string version;  // "HTTP/1.1"
  std::string path;     // decoded
  ServeTarget target;
  // Why the request gets no more than a sentence: a status, or 0.
  int refusal = 0;
  std::string reason;
  OwnedDescriptor body;  // a file without a name, once some of the body has come
  int64_t body_bytes = 0;
  // Whether the page is told the announced length and no body: it says that this is too large.
  bool too_large = false;
  PageRun* page = nullptr;  // borrowed from the server
  MHD_Connection* connection = nullptr;
  bool waiting = false;  // whether the connection is suspended
  bool left = false;     // whether the client has gone while it was
  unsigned status = 0;   // once answered

  void Refuse(int status, std::string_view reason);
  [[nodiscard]] bool IsHead() const { return method == "HEAD"; }
};

// Takes what the headers say, for the server on `port`.
void ReadRequestHead(MHD_Connection* connection, const ServeSite& site, int port,
                     ServeRequest& request);
// Takes a piece of the body: that of a page is kept in the directory of temporary files.
void TakeBody(const ServeSite& site, std::string_view piece, ServeRequest& request);
// The environment of a page.
[[nodiscard]] std::vector<std::string> PageVariables(MHD_Connection* connection,
                                                     const ServeSite& site, int port,
                                                     const ServeRequest& request);

// A header of the request, empty when it was not sent.
[[nodiscard]] std::string_view HeaderOf(MHD_Connection* connection, const char* name);
// Answer with a sentence, or with the file of the target. The status is noted.
[[nodiscard]] MHD_Result AnswerSentence(MHD_Connection* connection, ServeRequest& request);
[[nodiscard]] MHD_Result AnswerFile(MHD_Connection* connection, ServeRequest& request);
// Queues `response`, which may be null where the library could not make it, and gives it up.
[[nodiscard]] MHD_Result SendResponse(MHD_Connection* connection, ServeRequest& request,
                                      unsigned status, MHD_Response* response);

}  // namespace vexa

#endif  // VEXA_CGI_SERVE_REQUEST_H_
