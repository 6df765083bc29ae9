// Host: the request and the system as variables, the head of the answer, and the body.

#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <ctime>

#include "core/number.h"
#include "core/outside.h"
#include "core/time_parts.h"
#include "core/waiting.h"
#include "engine/module.h"
#include "host/dynamic_variables.h"
#include "host/host.h"

namespace vexa {

// The variables that are left out tell scripts nothing about the request, only about the server.
int Host::AddEnvironmentVariables() {
  vars().AddSystemVariable("process_id", PrintInteger(process_.id()));
  for (const EnvironmentEntry& entry : environment().entries()) {
    bool hidden = entry.name == "TERMCAP" || entry.name == "MAIL" || entry.name == "LOGNAME" ||
                  entry.name == "PATH";
    if (!hidden) vars().AddSystemVariable(entry.name, String(entry.value));
  }
  return 1;
}

int Host::AddSystemVariables() {
  vars_.AddSystemVariable("version", kVersion);
  vars_.AddSystemVariable("vexaversion", kVersion);
  timeval now;
  gettimeofday(&now, nullptr);
  for (int part = 0; part < kTimeParts; ++part) {
    vars_.AddSystemVariable(std::make_unique<StartTimeVariable>(now, static_cast<TimePart>(part)));
  }
  vars_.AddSystemVariable("globaltimeout", PrintInteger(config().globaltimeout));
  for (int part = 0; part < kTimeParts; ++part) {
    vars_.AddSystemVariable(
        std::make_unique<DynamicTimeVariable>(*this, static_cast<TimePart>(part)));
  }
  vars_.AddSystemVariable(std::make_unique<TimeRemainingVariable>(*this));
  vars_.AddSystemVariable(std::make_unique<LanguageVariable>(*this));
  vars_.AddSystemVariable(std::make_unique<DefaultLanguageVariable>(*this));
  return 1;
}

// Reads the body of the request into form variables, when it is of a kind that has fields.
int Host::AddContentVariables() {
  if (config().strictinput != 0 && !request_.LengthIsPlain()) {
    Error(RequestError(RequestError::Fault::Damaged));
    return 0;
  }
  int64_t length = request_.AnnouncedLength();
  if (length <= 0) return 1;
  // Before a byte of it is read.
  if (config().maxbody > 0 && length > config().maxbody) {
    Error(RequestError(RequestError::Fault::TooLarge));
    return 0;
  }
  FormInput input{*this, modules_.front()->scriptparser(), config().contentbuffersize};
  std::unique_ptr<ContentParser> parser = NewContentParser(input, RequestHeader("Content-Type"));
  body_is_read_ = parser != nullptr;
  return parser == nullptr || parser->Parse(length) == 0;
}

bool Host::AdmitField() {
  if (config().maxfields <= 0 || ++field_count_ <= config().maxfields) return true;
  Error(RequestError(RequestError::Fault::TooLarge));
  return false;
}

const String* Host::body() {
  if (body_is_read_) return body_is_damaged_ ? nullptr : &body_;
  body_is_read_ = true;
  int64_t length = request_.AnnouncedLength();
  if (length <= 0) return &body_;
  const auto piece = std::min<int64_t>(std::max(config().contentbuffersize, 1), length);
  auto buffer = std::make_unique_for_overwrite<char[]>(static_cast<size_t>(piece));
  while (length > 0) {
    const int count = ReadContent(buffer.get(), static_cast<int>(std::min(piece, length)));
    if (count < 1) break;
    length -= count;
    AppendOfBody(body_, {buffer.get(), static_cast<size_t>(count)}, length);
  }
  body_.Fit();
  body_.Share();
  // One that time cut off is told as that.
  body_is_damaged_ = length > 0 && config().strictinput != 0 && !timedout();
  return body_is_damaged_ ? nullptr : &body_;
}

// The positional arguments: arg1 names the script, the others are the caller's.
int Host::AddQueryArguments() {
  int count = 0;
  auto add = [this, &count](std::string_view text) {
    String argument(text);
    argument.gsub("\\", "");
    vars().AddSystemVariable("arg" + PrintInteger(++count), argument);
  };
  if (!request_.path_info().empty()) {
    add(RequestedName());
  } else if (request_.arguments().empty()) {
    String query = SystemVariable("QUERY_STRING");
    for (PieceReader pieces(query, "+"); pieces.Next();) add(pieces.piece());
  } else {
    for (const char* argument : request_.arguments()) add(argument);
  }
  vars().AddSystemVariable("nargs", PrintInteger(count));
  return 1;
}

int Host::AddQueryVariables() {
  String query = SystemVariable("QUERY_STRING");
  if (request_.path_info().empty()) query = query.after("+");
  if (!AddQueryFields(*this, query)) return 0;
  sent_fields_.KeepQuery(std::move(query));
  return 1;
}

int Host::AddAPIVariables() {
  bool secure = SystemVariable("HTTPS") == "on";
  String port = SystemVariable("SERVER_PORT");
  bool usual = port.empty() || port == (secure ? "443" : "80");
  String start = String::Concat({secure ? "https" : "http", "://",
                                 SystemVariable(config().virtualhostvariable), usual ? "" : ":",
                                 usual ? "" : port.view()});
  if (!request_.path_info().empty()) {
    vars().AddSystemVariable("apitype", "Redirect");
    vars().AddSystemVariable("documenturl", String::Concat({start, request_.path_info(), "?"}));
  } else {
    vars().AddSystemVariable("apitype", "CGI");
    String path = SystemVariable("SCRIPT_NAME");
    vars().AddSystemVariable("documenturl",
                             String::Concat({start, path, "?", SystemVariable("arg1"), "+"}));
  }
  return 1;
}

// --- Headers ---------------------------------------------------------------------------------

// The status of a page is its own to set, and that of an error a setting of the site.
int Host::StartHeaders(int) {
  answer_.StartHeaders();
  return 1;
}

int Host::OutputCookie() {
  answer_.SetIdentifyingCookie(BuildCookie(SystemVariable("HTTP_COOKIE")));
  return 1;
}

int Host::EndHeaders() {
  answer_.EndHeaders();
  return 1;
}

// --- The request -----------------------------------------------------------------------------

String Host::RequestHeader(std::string_view name) const { return request_.Header(name); }

// Waits no longer than the deadline: a sender that stops halfway must not hold the process.
int Host::ReadContent(char* buffer, int count) {
  while (!timedout()) {
    LookOutside();
    int length = request_.ReadBody(buffer, count, kLongestWait);
    if (length != Request::kNothingYet) return length;
  }
  return Request::kBodyFailed;
}

}  // namespace vexa
