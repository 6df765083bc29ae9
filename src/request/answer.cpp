// Answer: what a page may say of its answer, and the sending of the head.

#include "request/answer.h"

#include <algorithm>
#include <cassert>
#include <utility>

#include "core/base64.h"
#include "core/digest.h"
#include "core/number.h"
#include "core/text.h"
#include "request/cookie.h"
#include "request/file_conditions.h"
#include "request/header_text.h"
#include "request/sent_file.h"

namespace vexa {

namespace {

constexpr char kAlreadyBegun[] = "The answer has already begun";

// The entity tag, with its quotes, of a version that a page names: two versions never share one.
String VersionTag(std::string_view version) {
  const Digest digest = DigestOf(DigestMethod::Sha256, version);
  return String::Concat({"\"", HexOf(digest.bytes().substr(0, 16)), "\""});
}

// Headers that may stand several times.
bool IsListed(std::string_view name) {
  return EqualsIgnoreCase(name, "Set-Cookie") || EqualsIgnoreCase(name, "Link");
}

}  // namespace

Answer::Answer(ResponseOutput& output, Vexa& host, const Environment& request)
    : output_(output), host_(host), request_(request) {
  output_.SetHost(&host);
}

Answer::~Answer() {
  output_.SetGate(nullptr);
  output_.SetHost(nullptr);
}

// --- The stages ------------------------------------------------------------------------------

void Answer::StartHeaders() {
  assert(stage_ == Stage::Waiting);
  stage_ = Stage::InHead;
}

void Answer::SetIdentifyingCookie(String cookie) {
  assert(stage_ == Stage::InHead);
  identifying_cookie_ = std::move(cookie);
}

void Answer::EndHeaders() {
  assert(stage_ == Stage::InHead);
  stage_ = Stage::Held;
  output_.SetGate(this);
}

// Called by a signal handler too: nothing is given back here.
void Answer::Fail(int status) {
  if (begun()) return;
  status_ = host_.config().sendstatus != 0 ? status : 0;
  body_ = Body::Page;
  version_stands_ = false;
}

void Answer::Finish() {
  ending_ = true;
  if (body_ == Body::File && !IsBare(status_) && file_->has_body()) {
    output_.Flush();
    file_->Send(output_);
  }
  output_.Finish();
  file_.reset();
}

// --- Sending ---------------------------------------------------------------------------------

int Answer::PassOn(std::string_view text) {
  if (text.empty() && (begun() || !ending_)) return 0;
  if (!begun()) return SendHead(has_text() ? text : std::string_view());
  return static_cast<int>(text.size());
}

// Works when memory has run out. A head that is larger than the room takes some writes more.
int Answer::SendHead(std::string_view text) {
  stage_ = Stage::Begun;
  if (has_text()) output_.SetGate(nullptr);
  const std::span<char> room = output_.room();
  size_t size = 0;
  ForEachPiece([&](std::string_view piece) { size += piece.size(); });
  const bool fits = size <= room.size();
  size_t used = fits ? room.size() - size : 0;
  ForEachPiece([&](std::string_view piece) {
    while (!piece.empty()) {
      const size_t part = piece.copy(room.data() + used, room.size() - used);
      piece.remove_prefix(part);
      used += part;
      if (fits || used < room.size()) continue;
      output_.SendNow({room.data(), used});
      used = 0;
    }
  });
  if (fits) return output_.SendWithRoom(size, text);
  output_.SendNow({room.data(), used});
  output_.SendNow(text);
  return static_cast<int>(text.size());
}

bool Answer::SendHeld(void (*send)(void* sender, std::string_view piece), void* sender) {
  if (begun() && !has_text()) return false;
  if (stage_ < Stage::Held) return true;
  if (!begun()) {
    Fail(500);
    ForEachPiece([&](std::string_view piece) { send(sender, piece); });
  }
  send(sender, output_.held());
  return true;
}

template <typename Put>
void Answer::ForEachPiece(Put put) const {
  const auto line = [&put](std::string_view name, std::string_view value) {
    put(name);
    put(": ");
    put(value);
    put("\r\n");
  };
  if (const int code = status(); code != 0) {
    const std::string_view text = HTTPResultMessage(code);
    put("Status: ");
    put(PrintInteger(code));
    put(text.empty() ? "" : " ");
    put(text);
    put("\r\n");
  }
  const String& page_type = type_.empty() ? page_type_ : type_;
  line("Content-type", body_ == Body::File ? file_type_ : page_type);
  if (!identifying_cookie_.empty()) line("Set-Cookie", identifying_cookie_);
  for (const Header& header : headers_) {
    if (Counts(header)) line(header.name, header.value);
  }
  if (body_ == Body::Elsewhere) line("Location", location_);
  if (body_ == Body::File) ForEachFileHeader(line);
  put("\r\n");
}

// What the page has said itself counts.
template <typename Line>
void Answer::ForEachFileHeader(Line line) const {
  const auto add = [&](std::string_view name, std::string_view value) {
    if (!value.empty() && !HasHeader(name)) line(name, value);
  };
  add("X-Content-Type-Options", "nosniff");
  add("Content-Disposition", disposition_);
  add("Content-Range", file_->content_range());
  if (!IsBare(status())) line("Content-Length", PrintInteger(file_->size()));
  add("Last-Modified", file_->version().last_modified);
  add("ETag", file_->version().entity_tag);
}

int Answer::status() const {
  const bool of_file = body_ == Body::File && file_->status() != 200;
  return of_file ? file_->status() : status_;
}

// --- What a page asks for --------------------------------------------------------------------

String Answer::SetStatus(std::string_view code) {
  if (begun()) return kAlreadyBegun;
  const bool digits = code.size() == 3 && std::all_of(code.begin(), code.end(), IsDigit);
  const int status = digits ? ReadInteger(code) : 0;
  if (status < 200 || status > 599) return QuotedProblem(code, " is not a status");
  status_ = status;
  unchanged_ = false;
  if (body_ == Body::Elsewhere && status / 100 != 3) body_ = Body::Page;
  if (body_ == Body::File && status != 200) file_->ChooseWhole();
  return {};
}

String Answer::SetHeader(std::string_view name, std::string_view value) {
  if (begun()) return kAlreadyBegun;
  if (String problem = HeaderProblem(name, value); !problem.empty()) return problem;
  if (EqualsIgnoreCase(name, "Content-Type")) {
    type_ = value;
    return {};
  }
  if (value.empty() || !IsListed(name)) EraseHeaders(name);
  if (!value.empty()) headers_.push_back({name, value, Origin::SetHeader, {}});
  return {};
}

bool Answer::HasHeader(std::string_view name) const {
  return std::any_of(headers_.begin(), headers_.end(), [&](const Header& header) {
    return Counts(header) && EqualsIgnoreCase(header.name, name);
  });
}

// Cookies have a place of their own, and a session its reasons to set one.
void Answer::EraseHeaders(std::string_view name) {
  std::erase_if(headers_, [name](const Header& header) {
    return header.origin != Origin::SetCookie && EqualsIgnoreCase(header.name, name);
  });
}

String Answer::Redirect(std::string_view address) {
  if (begun()) return kAlreadyBegun;
  if (IsLocalAddress(address)) return GoTo(address);
  return QuotedProblem(address, " is not an address of this site");
}

String Answer::RedirectAway(std::string_view address) {
  if (begun()) return kAlreadyBegun;
  if (IsWebAddress(address)) return GoTo(address);
  return QuotedProblem(address, " is not an http or https address");
}

String Answer::GoTo(std::string_view address) {
  location_ = AddressAsSent(address);
  body_ = Body::Elsewhere;
  status_ = 303;
  return {};
}

String Answer::SendFile(const String& path, std::string_view type, std::string_view name) {
  if (begun()) return kAlreadyBegun;
  if (EndsLine(type)) return kNoLineBreaks;
  String problem;
  std::unique_ptr<SentFile> file = SentFile::Open(host_, path, problem);
  if (file == nullptr) return problem;
  if (type.empty()) {
    const size_t point = path.view().rfind('.');
    const String* known =
        point == path.view().npos ? nullptr : host_.FindContentType(path.view().substr(point + 1));
    file_type_ = known != nullptr ? known->view() : "application/octet-stream";
  } else {
    file_type_ = type;
  }
  disposition_ = name.empty() ? String() : AttachmentDisposition(name);
  if (body_ == Body::Elsewhere) status_ = 0;
  file->Choose(request_);
  if (status_ != 0 && status_ != 200) file->ChooseWhole();
  file_ = std::move(file);
  body_ = Body::File;
  return {};
}

String Answer::SetVersion(std::string_view version, bool& unchanged) {
  if (begun()) return kAlreadyBegun;
  String tag = VersionTag(version);
  const std::string_view method = request_.Value("REQUEST_METHOD");
  unchanged = (method == "GET" || method == "HEAD") &&
              NamesEntityTag(request_.Value("HTTP_IF_NONE_MATCH"), tag);
  EraseHeaders("ETag");
  headers_.push_back({"ETag", std::move(tag), Origin::SetVersion, {}});
  String problem;
  if (unchanged) {
    problem = SetStatus("304");
  } else if (unchanged_ && status_ == 304) {
    status_ = 0;  // It was said of another version.
  }
  unchanged_ = unchanged;
  return problem;
}

String Answer::SetCookie(std::string_view name, std::string_view value, std::string_view options) {
  if (begun()) return kAlreadyBegun;
  PageCookie cookie;
  const bool secure = request_.Value("HTTPS") == "on";
  if (String problem = MakePageCookie(name, value, options, secure, cookie); !problem.empty()) {
    return problem;
  }
  std::erase_if(headers_, [&](const Header& header) {
    return header.origin == Origin::SetCookie && header.place == cookie.place;
  });
  headers_.push_back(
      {"Set-Cookie", std::move(cookie.header), Origin::SetCookie, std::move(cookie.place)});
  return {};
}

String Answer::Cookie(std::string_view name) const {
  return DecodedURLPart(FindCookie(request_.Value("HTTP_COOKIE"), name));
}

// --- Statuses --------------------------------------------------------------------------------

namespace {

// One text, and not a table of texts, which would have to be adjusted at every start.
constexpr std::string_view kStatuses =
    "\n"
    "100 Continue\n"
    "101 Switching Protocols\n"
    "200 OK\n"
    "201 Created\n"
    "202 Accepted\n"
    "203 Non-Authoritative Information\n"
    "204 No Content\n"
    "205 Reset Content\n"
    "206 Partial Content\n"
    "300 Multiple Choices\n"
    "301 Moved Permanently\n"
    "302 Moved Temporarily\n"
    "303 See Other\n"
    "304 Not Modified\n"
    "305 Use Proxy\n"
    "400 Bad Request\n"
    "401 Authorization Required\n"
    "402 Payment Required\n"
    "403 Forbidden\n"
    "404 Not Found\n"
    "405 Method Not Allowed\n"
    "406 Not Acceptable\n"
    "407 Proxy Authentication Required\n"
    "408 Request Time-out\n"
    "409 Conflict\n"
    "410 Gone\n"
    "411 Length Required\n"
    "412 Precondition Failed\n"
    "413 Request Entity Too Large\n"
    "414 Request-URI Too Large\n"
    "415 Unsupported Media Type\n"
    "500 Internal Server Error\n"
    "501 Method Not Implemented\n"
    "502 Bad Gateway\n"
    "503 Service Temporarily Unavailable\n"
    "504 Gateway Time-out\n"
    "505 HTTP Version Not Supported\n"
    "506 Variant Also Varies\n";

}  // namespace

std::string_view HTTPResultMessage(int code) {
  const String wanted = String::Concat({"\n", PrintInteger(code), " "});
  const size_t found = kStatuses.find(wanted);
  if (found == kStatuses.npos) return {};
  const std::string_view text = kStatuses.substr(found + wanted.size());
  return text.substr(0, text.find('\n'));
}

}  // namespace vexa
