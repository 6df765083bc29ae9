// CGIVexa: the request as variables, the response's headers, and the body.

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <ctime>

#include "core/number.h"
#include "host/cgi_vexa.h"
#include "request/cookie.h"
#include "request/form_fields.h"

namespace vexa {

// The positional arguments: arg1 names the script, the others are the caller's.
int CGIVexa::AddQueryArguments() {
  int count = 0;
  auto add = [this, &count](std::string_view text) {
    String argument(text);
    argument.gsub("\\", "");
    vars().AddSystemVariable("arg" + PrintInteger(++count), argument);
  };
  if (!path_info_.empty()) {
    add(RequestedName());
  } else if (argc_ < 2) {
    String query = SystemVariable("QUERY_STRING");
    for (PieceReader pieces(query, "+"); pieces.Next();) add(pieces.piece());
  } else {
    for (int i = 1; i < argc_; ++i) add(argv_[i]);
  }
  vars().AddSystemVariable("nargs", PrintInteger(count));
  return 1;
}

int CGIVexa::AddQueryVariables() {
  String query = SystemVariable("QUERY_STRING");
  AddQueryFields(vars(), path_info_.empty() ? query.after("+") : query);
  return 1;
}

int CGIVexa::AddAPIVariables() {
  bool secure = SystemVariable("HTTPS") == "on";
  String port = SystemVariable("SERVER_PORT");
  bool usual = port.empty() || port == (secure ? "443" : "80");
  String start = String::Concat({secure ? "https" : "http", "://",
                                 SystemVariable(config().virtualhostvariable), usual ? "" : ":",
                                 usual ? "" : port.view()});
  if (!path_info_.empty()) {
    vars().AddSystemVariable("apitype", "Redirect");
    vars().AddSystemVariable("documenturl", String::Concat({start, path_info_, "?"}));
  } else {
    vars().AddSystemVariable("apitype", "CGI");
    String path = SystemVariable("SCRIPT_NAME");
    vars().AddSystemVariable("documenturl",
                             String::Concat({start, path, "?", SystemVariable("arg1"), "+"}));
  }
  return 1;
}

// --- Headers ---------------------------------------------------------------------------------

// A CGI program that names no status leaves it to the server to send the usual one.
int CGIVexa::StartHeaders(int) {
  output_.Write(String::Concat({"Content-type: ", content_type_, "\r\n"}));
  return 1;
}

int CGIVexa::OutputCookie() {
  String cookie = BuildCookie(SystemVariable("HTTP_COOKIE"));
  output_.Write(String::Concat({"Set-Cookie: ", cookie, "\r\n"}));
  return 1;
}

int CGIVexa::EndHeaders() {
  output_.Write("\r\n");
  return 1;
}

// --- The request -----------------------------------------------------------------------------

String CGIVexa::RequestHeader(std::string_view name) {
  if (name == "Content-Type") return environment().Value("CONTENT_TYPE");
  if (name == "Content-Length") return environment().Value("CONTENT_LENGTH");
  String variable = "HTTP_" + String(name);
  variable.gsub("-", "_");
  return environment().Value(variable);
}

// Waits no longer than the deadline: a sender that stops halfway must not hold the process.
int CGIVexa::ReadContent(char* buffer, int count) {
  while (!timedout()) {
    int64_t seconds = deadline() == 0 ? -1 : std::max<int64_t>(deadline() - std::time(nullptr), 0);
    pollfd input{STDIN_FILENO, POLLIN, 0};
    int wait = seconds < 0 ? -1 : static_cast<int>(std::min<int64_t>(seconds + 1, INT_MAX / 1000));
    int ready = poll(&input, 1, wait < 0 ? -1 : wait * 1000);
    if (ready == 0 || (ready < 0 && errno == EINTR)) continue;
    ssize_t length = read(STDIN_FILENO, buffer, static_cast<size_t>(count));
    if (length >= 0) return static_cast<int>(length);
    if (errno != EINTR && errno != EAGAIN) return -1;
  }
  return -1;
}

}  // namespace vexa
