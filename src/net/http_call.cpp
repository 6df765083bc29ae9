// The steps of a call.

#include "net/http_call.h"

#include <algorithm>
#include <initializer_list>
#include <new>
#include <utility>

#include "core/number.h"
#include "core/text.h"
#include "net/network_errors.h"

namespace vexa {

namespace {

constexpr size_t kMostHeaderBytes = 65536;

bool IsOneOf(std::string_view name, std::initializer_list<std::string_view> names) {
  return std::ranges::any_of(names, [&](auto other) { return EqualsIgnoreCase(name, other); });
}

String HeaderTooLarge() {
  return String::Concat(
      {"The answer's header is larger than ", PrintInteger(int64_t{kMostHeaderBytes}), " bytes"});
}

bool StaysBehind(const NamedValue& header) {
  return !IsOneOf(header.name, {"Accept", "Accept-Language", "User-Agent"});
}

// A list of header lines as the library takes it.
class HeaderLines {
 public:
  explicit HeaderLines(const CurlLibrary& library) : library_(library) {}
  ~HeaderLines() { library_.slist_free_all(list_); }
  HeaderLines(const HeaderLines&) = delete;
  HeaderLines& operator=(const HeaderLines&) = delete;

  // An empty value takes out a header that the library would send.
  void Add(std::string_view name, std::string_view value) {
    const String line = String::Concat({name, value.empty() ? ":" : ": ", value});
    curl_slist* longer = library_.slist_append(list_, line.c_str());
    if (longer == nullptr) throw std::bad_alloc();
    list_ = longer;
  }
  [[nodiscard]] curl_slist* list() const { return list_; }

 private:
  const CurlLibrary& library_;
  curl_slist* list_ = nullptr;
};

}  // namespace

// --- The answer ------------------------------------------------------------------------------

std::string_view CallAnswer::ContentType() const {
  const auto header = std::ranges::find_if(
      headers, [](const NamedValue& h) { return EqualsIgnoreCase(h.name, "Content-Type"); });
  return header == headers.end() ? std::string_view() : header->value.view();
}

String CallAnswer::Type() const {
  const std::string_view type = ContentType();
  return String(Stripped(type.substr(0, type.find(';')))).lower();
}

String CallAnswer::Charset() const {
  constexpr std::string_view kCharset = "charset=";
  PieceReader pieces(ContentType(), ";");
  (void)pieces.Next();
  while (pieces.Next()) {
    std::string_view parameter = Stripped(pieces.piece());
    if (!EqualsIgnoreCase(parameter.substr(0, kCharset.size()), kCharset)) continue;
    parameter = Stripped(parameter.substr(kCharset.size()));
    if (parameter.starts_with('"')) parameter = parameter.substr(1, parameter.find('"', 1) - 1);
    return String(parameter).lower();
  }
  return {};
}

// --- The call --------------------------------------------------------------------------------

bool HttpCall::Fetch(CallRequest& request) {
  const bool done = FetchAll(request);
  if (!done) answer_ = {};
  // Connections, cookies and files end here; only the answer is kept.
  transfer_.reset();
  request.body = {};
  body_ = nullptr;
  return done;
}

bool HttpCall::FetchAll(CallRequest& request) {
  transfer_ = Transfer::Make(host_, reason_);
  if (transfer_ == nullptr) return false;
  transfer_->KeepOutOfLocalNetworks();
  transfer_->SetContent(*this);
  transfer_->SetLimit(request.limit_seconds);
  transfer_->Set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
  transfer_->Set(CURLOPT_ACCEPT_ENCODING, "gzip, deflate");
  transfer_->Set(CURLOPT_COOKIEFILE, "");
  transfer_->Set(CURLOPT_BUFFERSIZE, static_cast<long>(host_.config().callbuffersize));
  transfer_->Set(CURLOPT_UPLOAD_BUFFERSIZE, static_cast<long>(host_.config().callbuffersize));
  for (int followed = 0;; ++followed) {
    if (!Step(request)) return false;
    String location;
    if (!IsRedirect(request, location)) return true;
    if (followed == request.redirects) {
      reason_ = String::Concat({"More than ", PrintInteger(request.redirects), " redirects"});
      return false;
    }
    if (!Follow(request, location)) return false;
  }
}

// One request and its answer.
bool HttpCall::Step(CallRequest& request) {
  answer_ = {};
  header_bytes_ = 0;
  header_ended_ = interim_ = false;
  const CallAddress& address = request.address;
  Transfer& transfer = *transfer_;
  transfer.SetEncryption(address.encrypted() ? Encryption::Tls : Encryption::None);
  SetMethod(request);
  HeaderLines lines(transfer.library());
  const auto given = [&request](std::string_view name) {
    return std::ranges::any_of(request.headers,
                               [&](const auto& h) { return EqualsIgnoreCase(h.name, name); });
  };
  for (const NamedValue& header : request.headers) lines.Add(header.name, header.value);
  if (!given("User-Agent")) lines.Add("User-Agent", String::Concat({"Vexa/", kVersion}));
  // Without this the library would wait for a word of the server before a large body.
  lines.Add("Expect", "");
  if (request.has_body) lines.Add("Content-Type", request.content_type);
  transfer.Set(CURLOPT_HTTPHEADER, lines.list());
  const bool done =
      transfer.SetServer(address.scheme(), address.server(), address.target()) && transfer.Run();
  transfer.Set(CURLOPT_HTTPHEADER, static_cast<curl_slist*>(nullptr));
  if (done) {
    answer_.status = transfer.Number(CURLINFO_RESPONSE_CODE);
    answer_.address = address.Text();
    return true;
  }
  interrupted_ = transfer.interrupted();
  reason_ = transfer.reason();
  // The library has a limit of its own for one line, beyond ours.
  if (transfer.code() == CURLE_OUT_OF_MEMORY && problem_.empty()) reason_ = HeaderTooLarge();
  return false;
}

void HttpCall::SetMethod(CallRequest& request) {
  Transfer& transfer = *transfer_;
  transfer.Set(CURLOPT_NOBODY, 0L);
  transfer.Set(CURLOPT_HTTPGET, 1L);
  transfer.Set(CURLOPT_CUSTOMREQUEST, static_cast<const char*>(nullptr));
  body_ = nullptr;
  if (request.method == "HEAD") {
    transfer.Set(CURLOPT_NOBODY, 1L);
    return;
  }
  transfer.Set(CURLOPT_CUSTOMREQUEST, request.method);
  if (!request.has_body) return;
  request.body.Rewind();
  body_ = &request.body;
  const int64_t size = request.body.size();
  transfer.Set(CURLOPT_POST, 1L);
  // Nothing to read is said with an empty text.
  transfer.Set(CURLOPT_POSTFIELDS, size == 0 ? "" : static_cast<const char*>(nullptr));
  transfer.Set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(size));
}

bool HttpCall::IsRedirect(const CallRequest& request, String& location) const {
  const long status = answer_.status;
  const bool redirects =
      status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
  if (!redirects || request.redirects == 0) return false;
  location = transfer_->Text(CURLINFO_REDIRECT_URL);
  return !location.empty();
}

bool HttpCall::Follow(CallRequest& request, const String& location) {
  const CallAddress from = std::exchange(request.address, {});
  String ignored;
  if (!request.address.Read(location, ignored) ||
      (from.encrypted() && !request.address.encrypted())) {
    reason_ = "Redirected to an address that must not be called";
    return false;
  }
  if (!request.address.HasOriginOf(from)) std::erase_if(request.headers, StaysBehind);
  const bool becomes_get = answer_.status == 303
                               ? request.method != "HEAD"
                               : answer_.status <= 302 && request.method == "POST";
  if (becomes_get) {
    request.method = "GET";
    request.has_body = false;
  }
  return true;
}

// --- What the library hands over -------------------------------------------------------------

bool HttpCall::TakeLine(std::string_view line) {
  header_bytes_ += line.size();
  if (header_bytes_ > kMostHeaderBytes) {
    problem_ = HeaderTooLarge();
    return false;
  }
  if (header_ended_) return true;
  const std::string_view text = Stripped(line);
  if (answer_.headers.empty() && !interim_ && line.starts_with("HTTP/")) {
    // An interim answer is 100 to 199, but for 101, behind which nothing follows.
    const std::string_view status = text.substr(std::min(text.find(' '), text.size()));
    interim_ = status.starts_with(" 1") && !status.starts_with(" 101");
  } else if (text.empty()) {
    header_ended_ = !interim_;
    interim_ = false;
  } else if (!interim_) {
    TakeHeader(line);
  }
  return true;
}

void HttpCall::TakeHeader(std::string_view line) {
  const std::string_view text = Stripped(line);
  if (IsWhitespace(line[0])) {  // An old way to go on with the line before.
    if (!answer_.headers.empty()) answer_.headers.back().value.Append(" " + String(text));
    return;
  }
  const size_t colon = text.find(':');
  if (colon == std::string_view::npos) return;
  answer_.headers.push_back(
      {String(Stripped(text.substr(0, colon))), String(Stripped(text.substr(colon + 1)))});
}

bool HttpCall::TakeBody(std::string_view bytes) {
  if (!FitsLimit(static_cast<int64_t>(answer_.body.size() + bytes.size()))) return false;
  answer_.body.Append(bytes);
  return true;
}

bool HttpCall::TakeCount(int64_t bytes) { return FitsLimit(bytes); }

bool HttpCall::FitsLimit(int64_t bytes) {
  const int most = host_.config().callmaxsize;
  if (most <= 0 || bytes <= most) return true;
  problem_ = String::Concat({"The answer is larger than ", PrintInteger(most), " bytes"});
  return false;
}

int64_t HttpCall::GiveBody(char* buffer, size_t size) {
  const int64_t given = body_ == nullptr ? 0 : body_->Read(buffer, size);
  if (given < 0) problem_ = body_->problem();
  return given;
}

bool HttpCall::GiveAgain() {
  if (body_ != nullptr) body_->Rewind();
  return body_ != nullptr;
}

}  // namespace vexa
