// Requests to the server for development, and the answers that need no page.

#include "cgi/serve_request.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <span>

#include "core/number.h"
#include "core/text.h"
#include "files/descriptor.h"
#include "request/file_conditions.h"

namespace vexa {

namespace {

constexpr int64_t kLargestBody = int64_t{1} << 30;
constexpr size_t kLongestMethod = 20;

using HeaderPair = std::pair<const char*, std::string>;

// Browsers leave the port out where it is the usual one.
bool IsOwnHost(std::string_view host, int port) {
  for (const std::string_view name :
       {std::string_view("127.0.0.1"), std::string_view("localhost")}) {
    if (!EqualsIgnoreCase(host.substr(0, name.size()), name)) continue;
    const std::string_view rest = host.substr(name.size());
    if (rest == ":" + std::to_string(port) || (rest.empty() && port == 80)) return true;
  }
  return false;
}

MHD_Result CountHeader(void* count, MHD_ValueKind, const char* name, const char*) {
  if (EqualsIgnoreCase(name, "Host")) ++*static_cast<int*>(count);
  return MHD_YES;
}

bool IsOwnHost(MHD_Connection* connection, int port) {
  int hosts = 0;
  (void)MHD_get_connection_values(connection, MHD_HEADER_KIND, CountHeader, &hosts);
  return hosts == 1 && IsOwnHost(HeaderOf(connection, "Host"), port);
}

// A file below the directory, of which no name stays.
int OpenNameless(const std::string& directory) {
  const int file = ::open(directory.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC | O_EXCL, 0600);
  if (file >= 0 || errno != EOPNOTSUPP) return file;
  std::string name = directory + "/body-XXXXXX";
  const int named = ::mkostemp(name.data(), O_CLOEXEC);
  if (named >= 0) (void)::unlink(name.c_str());
  return named;
}

bool WriteAll(int file, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = RetryInterrupted([&] { return ::write(file, text.data(), text.size()); });
    if (count <= 0) return false;
    text.remove_prefix(static_cast<size_t>(count));
  }
  return true;
}

MHD_Response* TextResponse(std::string_view text) {
  // The library copies the text, and does not change it before.
  return MHD_create_response_from_buffer(text.size(), const_cast<char*>(text.data()),
                                         MHD_RESPMEM_MUST_COPY);
}

void AddHeaders(MHD_Response* response, std::initializer_list<HeaderPair> headers) {
  if (response == nullptr) return;
  for (const auto& [name, value] : headers) {
    (void)MHD_add_response_header(response, name, value.c_str());
  }
}

}  // namespace

std::string_view HeaderOf(MHD_Connection* connection, const char* name) {
  const char* value = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
  return value == nullptr ? std::string_view() : value;
}

// --- The request -----------------------------------------------------------------------------

void ServeRequest::Refuse(int new_status, std::string_view new_reason) {
  refusal = new_status;
  reason = new_reason;
}

void ReadRequestHead(MHD_Connection* connection, const ServeSite& site, int port,
                     ServeRequest& request) {
  if (!IsOwnHost(connection, port)) {
    return request.Refuse(403, "This server answers only to 127.0.0.1 and localhost.");
  }
  const std::string& method = request.method;
  if (method.size() > kLongestMethod || !std::all_of(method.begin(), method.end(), IsAlpha) ||
      method == "TRACE" || method == "CONNECT") {
    return request.Refuse(501, "The method is not supported.");
  }
  const std::string_view encoded =
      std::string_view(request.address).substr(0, request.address.find('?'));
  if (!DecodePath(encoded, request.path)) {
    return request.Refuse(400, "The address is malformed.");
  }
  request.target = FindTarget(site.pages, request.path);
  switch (request.target.kind) {
    case ServeTarget::Kind::Missing:
      return request.Refuse(404, "There is no page or file " + request.path + " here.");
    case ServeTarget::Kind::Unreadable:
      return request.Refuse(403, request.path + " cannot be read.");
    case ServeTarget::Kind::File:
    case ServeTarget::Kind::Directory:
      if (method == "GET" || method == "HEAD") return;
      return request.Refuse(405, "Only pages take requests of this kind.");
    case ServeTarget::Kind::Page:
      const int64_t length = ReadInteger64(HeaderOf(connection, "Content-Length"));
      request.too_large =
          length > 0 && !AdmitsBody(site, PageVariables(connection, site, port, request), length);
      if (request.too_large || length <= kLargestBody) return;
      return request.Refuse(413, "The request is too large.");
  }
}

// What is refused is read all the same: an answer in the middle would not reach every client.
void TakeBody(const ServeSite& site, std::string_view piece, ServeRequest& request) {
  if (request.refusal != 0 || request.too_large || request.target.kind != ServeTarget::Kind::Page) {
    return;
  }
  if (!request.body.open()) request.body = OwnedDescriptor(OpenNameless(site.state + "/tmp"));
  request.body_bytes += static_cast<int64_t>(piece.size());
  if (request.body_bytes > kLargestBody) {
    request.Refuse(413, "The request is too large.");
  } else if (!request.body.open() || !WriteAll(request.body.get(), piece)) {
    request.Refuse(500, std::string("The request cannot be stored: ") + std::strerror(errno));
  }
  if (request.refusal != 0) request.body = OwnedDescriptor();
}

// --- The environment of a page ---------------------------------------------------------------

namespace {

using VariableMap = std::map<std::string, std::string>;

// As CGI names a header; empty for those that are told otherwise, that would take the place of a
// variable that libraries obey (HTTP_PROXY), or that may be another header by another spelling.
std::string VariableOf(std::string_view header) {
  for (const char* skipped : {"Content-Type", "Content-Length", "Transfer-Encoding", "Proxy"}) {
    if (EqualsIgnoreCase(header, skipped)) return {};
  }
  std::string name = "HTTP_";
  for (const char c : header) {
    if (!IsAlpha(c) && !IsDigit(c) && c != '-') return {};
    name.push_back(c == '-' ? '_' : ToUpper(c));
  }
  return name;
}

MHD_Result AddHeaderVariable(void* map, MHD_ValueKind, const char* header, const char* value) {
  const std::string name = VariableOf(header);
  if (name.empty() || value == nullptr) return MHD_YES;
  const auto [place, added] = static_cast<VariableMap*>(map)->emplace(name, value);
  if (!added) place->second.append(name == "HTTP_COOKIE" ? "; " : ", ").append(value);
  return MHD_YES;
}

}  // namespace

std::vector<std::string> PageVariables(MHD_Connection* connection, const ServeSite& site, int port,
                                       const ServeRequest& request) {
  VariableMap map;
  (void)MHD_get_connection_values(connection, MHD_HEADER_KIND, AddHeaderVariable, &map);
  const std::string_view host = HeaderOf(connection, "Host");
  const size_t query = request.address.find('?');
  map.insert_or_assign("GATEWAY_INTERFACE", "CGI/1.1");
  map.insert_or_assign("SERVER_SOFTWARE", "vexa-serve");
  map.insert_or_assign("SERVER_PROTOCOL", request.version);
  map.insert_or_assign("SERVER_NAME", std::string(host.substr(0, host.find(':'))));
  map.insert_or_assign("SERVER_ADDR", "127.0.0.1");
  map.insert_or_assign("SERVER_PORT", std::to_string(port));
  map.insert_or_assign("REMOTE_ADDR", "127.0.0.1");
  map.insert_or_assign("REQUEST_METHOD", request.method);
  map.insert_or_assign("REQUEST_URI", request.address);
  map.insert_or_assign("REDIRECT_STATUS", "200");
  map.insert_or_assign("SCRIPT_NAME", "/cgi-bin/vexa");
  map.insert_or_assign("PATH_INFO", request.path);
  map.insert_or_assign("QUERY_STRING",
                       query == std::string::npos ? "" : request.address.substr(query + 1));
  map.insert_or_assign(std::string(kPagesVariable), site.pages);
  map.insert_or_assign(std::string(kStateVariable), site.state);
  map.insert_or_assign(std::string(kDataVariable), site.data);
  if (const std::string_view type = HeaderOf(connection, "Content-Type"); !type.empty()) {
    map.insert_or_assign("CONTENT_TYPE", std::string(type));
  }
  if (request.body_bytes > 0 || !HeaderOf(connection, "Content-Length").empty()) {
    map.insert_or_assign("CONTENT_LENGTH", request.too_large
                                               ? std::string(HeaderOf(connection, "Content-Length"))
                                               : std::to_string(request.body_bytes));
  }
  // The times that pages print are those of who works on them.
  if (const char* zone = std::getenv("TZ")) map.insert_or_assign("TZ", zone);
  std::vector<std::string> variables;
  for (const auto& [name, value] : map) variables.push_back(name + "=" + value);
  return variables;
}

// --- Answers ---------------------------------------------------------------------------------

MHD_Result SendResponse(MHD_Connection* connection, ServeRequest& request, unsigned status,
                        MHD_Response* response) {
  if (response == nullptr) return MHD_NO;
  request.stage = ServeRequest::Stage::Answered;
  request.status = status;
  const MHD_Result queued = MHD_queue_response(connection, status, response);
  MHD_destroy_response(response);
  return queued;
}

MHD_Result AnswerSentence(MHD_Connection* connection, ServeRequest& request) {
  MHD_Response* response = nullptr;
  if (request.refusal == 0) {  // a directory whose name lacks its slash
    std::string place = request.address;
    place.insert(std::min(place.find('?'), place.size()), "/");
    request.Refuse(302, "The directory is " + place);
    response = TextResponse(PlainPage(302, request.reason));
    AddHeaders(response, {{"Location", place}});
  } else {
    response = TextResponse(PlainPage(request.refusal, request.reason));
  }
  AddHeaders(response, {{"Content-Type", "text/html; charset=utf-8"},
                        {"X-Content-Type-Options", "nosniff"},
                        {"Cache-Control", "no-store"}});
  if (request.refusal == 405) AddHeaders(response, {{"Allow", "GET, HEAD"}});
  return SendResponse(connection, request, static_cast<unsigned>(request.refusal), response);
}

// Kept by browsers only to ask whether it is still the same: somebody is working on it.
MHD_Result AnswerFile(MHD_Connection* connection, ServeRequest& request) {
  ServeTarget& target = request.target;
  const int64_t size = target.status.st_size;
  const timespec modified = target.status.st_mtim;
  const FileVersion version =
      VersionOf({int64_t{modified.tv_sec} * 1'000'000'000 + modified.tv_nsec, size});
  const FilePart part = ChooseFilePart(
      {HeaderOf(connection, "Range"), HeaderOf(connection, "If-Range"),
       HeaderOf(connection, "If-None-Match"), HeaderOf(connection, "If-Modified-Since")},
      version, size);
  MHD_Response* response =
      part.length == 0 ? TextResponse("")
                       : MHD_create_response_from_fd_at_offset64(static_cast<uint64_t>(part.length),
                                                                 target.file.Release(),
                                                                 static_cast<uint64_t>(part.first));
  AddHeaders(response, {{"ETag", version.entity_tag.c_str()},
                        {"Last-Modified", version.last_modified.c_str()},
                        {"Cache-Control", "no-cache"},
                        {"X-Content-Type-Options", "nosniff"}});
  if (part.status != 304) {
    AddHeaders(response,
               {{"Accept-Ranges", "bytes"}, {"Content-Type", ContentTypeOf(target.name)}});
  }
  const std::string whole = "/" + std::to_string(size);
  if (part.status == 416) AddHeaders(response, {{"Content-Range", "bytes *" + whole}});
  if (part.status == 206) {
    AddHeaders(response,
               {{"Content-Range", "bytes " + std::to_string(part.first) + "-" +
                                      std::to_string(part.first + part.length - 1) + whole}});
  }
  return SendResponse(connection, request, static_cast<unsigned>(part.status), response);
}

}  // namespace vexa
