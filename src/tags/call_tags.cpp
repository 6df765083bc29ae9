// VxCALL: calls an HTTP server and runs its body for what came back, as a loop.
//
//   attributes read -> call made, variables of the answer set -> a pass found -> body runs
//                                             closing tag -> next pass found -> body runs ...
//        no pass left, or a stop tag -> skip to the closing tag
//
// A pass is a tag of the answer with the text behind it, a line, or the whole. With SAVE the answer
// goes to a file, and there is none.

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "core/base64.h"
#include "core/number.h"
#include "core/string.h"
#include "core/text.h"
#include "engine/block_state.h"
#include "engine/script_parser.h"
#include "engine/tag_call.h"
#include "net/charset.h"
#include "net/http_call.h"
#include "net/mail_text.h"
#include "net/network_errors.h"
#include "net/network_manager.h"
#include "net/tag_walker.h"
#include "tags/handlers.h"
#include "tags/network_tag.h"
#include "vexa.h"

namespace vexa {

namespace {

enum class Walk { ByType, Tags, Lines, Whole };

// What the tag says beside the request.
struct CallTask {
  CallRequest request;
  Walk walk = Walk::ByType;
  std::vector<String> tags;  // names of TAGS in lower case; none: all tags have a pass
  String save;               // as the page wrote it; empty: nothing is saved
  String path;               // the finished path of it
};

bool IsOneOf(std::string_view word, std::initializer_list<std::string_view> words) {
  return std::ranges::any_of(words, [&](auto other) { return EqualsIgnoreCase(word, other); });
}

bool IsSetByCall(std::string_view header) {
  return IsOneOf(header, {"Host", "Connection", "Content-Length", "Content-Type",
                          "Transfer-Encoding", "Expect", "TE", "Trailer", "Upgrade"}) ||
         EqualsIgnoreCase(header.substr(0, 6), "Proxy-");
}

// --- Reading the attributes ------------------------------------------------------------------

// Each reads some of them into the task. False with `reason` set.
class CallReader {
 public:
  CallReader(const TagCall& call, CallTask& task) : call_(call), task_(task) {}

  [[nodiscard]] bool Read() {
    return CheckLineBreaks(call_.tag(), {"CONTENT"}, reason_) && ReadMethod() && ReadAddress() &&
           ReadNumbers() && ReadWalk() && ReadSave() && ReadHeaderFields() && ReadBody();
  }
  [[nodiscard]] const String& reason() const { return reason_; }

 private:
  [[nodiscard]] bool Fail(String reason) {
    reason_ = std::move(reason);
    return false;
  }
  [[nodiscard]] bool NotValid(std::string_view attribute) {
    return Fail(NotValidFor(call_.Text(attribute), attribute));
  }

  [[nodiscard]] bool ReadMethod() {
    task_.request.method = call_.Text("METHOD").upper();
    const bool known =
        IsOneOf(task_.request.method, {"GET", "HEAD", "POST", "PUT", "PATCH", "DELETE", "OPTIONS"});
    return known || NotValid("METHOD");
  }

  [[nodiscard]] bool ReadAddress() {
    return task_.request.address.Read(Trimmed(call_.Text("ACTION")), reason_);
  }

  // The number of an attribute; `value` stays without one.
  [[nodiscard]] bool ReadNumber(std::string_view attribute, int least, int most, int& value) {
    if (!call_.Has(attribute)) return true;
    const String& text = call_.Text(attribute);
    const bool digits = !text.empty() && std::ranges::all_of(text.view(), IsDigit);
    value = ReadInteger(text);
    return (digits && value >= least && value <= most) || NotValid(attribute);
  }

  [[nodiscard]] bool ReadNumbers() {
    CallRequest& request = task_.request;
    int seconds = 0;
    request.redirects = 5;
    if (!ReadNumber("REDIRECTS", 0, 20, request.redirects)) return false;
    if (!ReadNumber("TIMEOUT", 1, INT32_MAX, seconds)) return false;
    const int most = std::max(call_.host().config().calltimeout, 0);
    request.limit_seconds = seconds == 0 || (most > 0 && most < seconds) ? most : seconds;
    return true;
  }

  [[nodiscard]] bool ReadWalk() {
    for (PieceReader pieces(call_.Text("TAGS"), ","); pieces.Next();) {
      const std::string_view name = Stripped(pieces.piece());
      if (!name.empty()) task_.tags.push_back(String(name).lower());
    }
    const int word = ReadKeyword(call_, "WALK", {"", "tags", "lines", "whole"}, reason_);
    if (word < 0) return false;
    if (word == 0 && call_.Has("WALK")) return NotValid("WALK");
    task_.walk = word == 0 && !task_.tags.empty() ? Walk::Tags : static_cast<Walk>(word);
    return true;
  }

  [[nodiscard]] bool ReadSave() {
    task_.save = call_.Text("SAVE");
    if (task_.save.empty()) return !call_.Has("SAVE") || NotValid("SAVE");
    Vexa& host = call_.host();
    if (host.ResolvePath(task_.save, task_.path, PathType::DataPath, reason_) == 0) return false;
    if (host.IsPagePath(task_.path)) {
      return Fail(Quoted(task_.save) + " lies in the script directory");
    }
    if (host.filemanager().IsDirectory(task_.path)) {
      return Fail(String::Concat({"Error writing ", Quoted(task_.save), ": It is a directory"}));
    }
    return true;
  }

  [[nodiscard]] bool ReadHeaderFields() {
    std::vector<NamedValue>& headers = task_.request.headers;
    if (!ReadHeaders(call_, IsSetByCall, headers, reason_)) return false;
    if (const String& user = call_.Text("USER"); !user.empty()) {
      // As a header, since the library would put a login into the addresses of redirects.
      String login = "Basic ";
      AppendBase64(login, String::Concat({user, ":", call_.Text("PASSWORD")}), 0);
      headers.push_back({"Authorization", login});
    }
    return true;
  }

  // The names and values of a list of variables.
  [[nodiscard]] std::vector<NamedValue> ReadList(std::string_view attribute) const {
    std::vector<NamedValue> list;
    for (const ListedVariable& listed : ReadVariableList(call_.Text(attribute))) {
      const String& name = listed.shown.empty() ? listed.variable : listed.shown;
      list.push_back({name, call_.variables().Value(listed.variable)});
    }
    return list;
  }

  [[nodiscard]] bool ReadBody() {
    CallRequest& request = task_.request;
    const std::vector<NamedValue> fields = ReadList("FIELDS");
    const std::vector<NamedValue> files = ReadList("FILES");
    const bool content = call_.Has("CONTENT");
    const bool keeps = IsOneOf(request.method, {"POST", "PUT", "PATCH"});
    if (content && !files.empty()) return Fail("CONTENT cannot be sent with FILES");
    if (content && IsOneOf(request.method, {"GET", "HEAD"})) {
      return Fail("CONTENT cannot be sent with " + request.method);
    }
    if (!files.empty() && !keeps) return Fail("FILES needs the method POST, PUT or PATCH");
    request.has_body = content || keeps;
    if (!files.empty()) return AddFiles(fields, files);
    String form;
    for (const NamedValue& field : fields) AddFormField(field.name, field.value, form);
    if (content) {
      request.body.AddText(call_.Text("CONTENT"));
      request.content_type = call_.Has("CONTENTTYPE") ? call_.Text("CONTENTTYPE")
                                                      : String("text/plain; charset=utf-8");
    }
    if (content || !keeps) {
      request.address.AddToQuery(form);
    } else if (!fields.empty()) {
      request.body.AddText(form);
      request.content_type = "application/x-www-form-urlencoded";
    }
    return true;
  }

  [[nodiscard]] bool AddFiles(const std::vector<NamedValue>& fields,
                              const std::vector<NamedValue>& files) {
    Vexa& host = call_.host();
    RequestBody& body = task_.request.body;
    MultipartForm form(body, "----VexaForm" + host.MakeSessionID());
    for (const NamedValue& field : fields) form.AddField(field.name, field.value);
    for (const NamedValue& file : files) {
      String path;
      if (HasLineBreak(file.value)) return Fail(NoLineBreaks("FILES"));
      if (host.ResolvePath(file.value, path, PathType::DataPath, reason_) == 0) return false;
      if (!form.AddFile(host, file.name, path, file.value)) return Fail(body.problem());
    }
    task_.request.content_type = form.End();
    return true;
  }

  const TagCall& call_;
  CallTask& task_;
  String reason_;
};

// --- The block -------------------------------------------------------------------------------

class CallState final : public LoopState {
 public:
  explicit CallState(const TagCall& call)
      : LoopState(call),
        variables_(call.script(), call.row()),
        http_(call.host().networkmanager().Begin<HttpCall>(call.host())) {}
  ~CallState() override { parser().host().networkmanager().End(http_); }

  // Makes the call and finds the first pass. Finished: there is none; Reported: the call failed.
  StateResult Open(const TagCall& call) {
    action_ = Trimmed(call.Text("ACTION"));
    String problem;
    if (!variables_.ReadName(call, "call", problem)) return Fail(problem);
    if (variables_.Clear({"status", "type", "charset", "url", "size", "headers", "pass", "tag",
                          "text", "raw", "attributes"}) == StateResult::Failed) {
      return StateResult::Failed;
    }
    CallReader reader(call, task_);
    if (!reader.Read()) return Fail(reader.reason());
    const auto started = std::chrono::steady_clock::now();
    if (!http_.Fetch(task_.request)) {
      if (http_.interrupted() && !parser().CheckTimeout()) return StateResult::Failed;
      return Fail(http_.reason());
    }
    LogCall(std::chrono::steady_clock::now() - started);
    if (SetAnswer() == StateResult::Failed) return StateResult::Failed;
    if (!task_.path.empty() && HasBodyToSave()) return Save();
    BeginWalk();
    return Continue();
  }

  // Moves to the next pass. Handled: there is one; Finished: there is none; Failed.
  [[nodiscard]] StateResult Continue() override {
    switch (task_.walk) {
      case Walk::Tags:
        return NextTag();
      case Walk::Lines:
        return NextLine();
      case Walk::ByType:
      case Walk::Whole:
        break;
    }
    return !std::exchange(done_, true) && !text_.empty() ? SetPass(text_) : StateResult::Finished;
  }

 private:
  StateResult Fail(const String& reason) {
    const String address = ShownAddress(action_);
    Log("CALLFAILED", String::Concat({"method=", Shown(task_.request.method), " address=", address,
                                      " reason=", reason}));
    return parser().RuntimeError(opener(),
                                 String::Concat({"Error calling '", address, "': ", reason}));
  }

  void Log(std::string_view event, const String& detail) {
    parser().host().logfile().Write(LogLevel::Network, event, detail);
  }

  void LogCall(std::chrono::duration<double> elapsed) {
    const CallAnswer& answer = http_.answer();
    Log("CALLED", String::Concat({"method=", task_.request.method, " address=",
                                  ShownAddress(action_), " status=", PrintInteger(answer.status),
                                  " bytes=", PrintInteger(static_cast<int64_t>(answer.body.size())),
                                  " seconds=", PrintRounded(elapsed.count(), 3)}));
  }

  StateResult SetAnswer();
  [[nodiscard]] bool HasBodyToSave() const;
  StateResult Save();
  void BeginWalk();
  StateResult NextTag();
  StateResult NextLine();
  StateResult SetPass(std::string_view text);
  StateResult SetAttributes();
  [[nodiscard]] bool IsWanted(const String& name) const;

  CallTask task_;
  NetworkVariables variables_;
  HttpCall& http_;
  String action_;  // as the page wrote it

  // The walk: what is walked, and how far it came.
  String converted_;
  std::string_view text_;  // in converted_, or in the answer
  std::optional<TagWalker> walker_;
  size_t place_ = 0;  // where the next line begins
  bool done_ = false;
  int64_t pass_ = 0;
};

// Sets the variables that say what came back.
StateResult CallState::SetAnswer() {
  const CallAnswer& answer = http_.answer();
  String lines;
  for (const NamedValue& header : answer.headers) {
    if (!lines.empty()) lines.Append("\n");
    lines.Append(String::Concat({header.name, ": ", header.value}));
  }
  const auto set = [this](std::string_view ending, String value) {
    return variables_.Assign(ending, std::move(value)) != StateResult::Failed;
  };
  const bool done = set("status", PrintInteger(answer.status)) && set("type", answer.Type()) &&
                    set("charset", answer.Charset()) && set("url", answer.address) &&
                    set("size", PrintInteger(static_cast<int64_t>(answer.body.size()))) &&
                    set("headers", std::move(lines));
  if (!done || variables_.AssignHeaders(answer.headers) == StateResult::Failed) {
    return StateResult::Failed;
  }
  return StateResult::Handled;
}

// Some answers have no body by their nature; an empty file in its place would be a loss.
bool CallState::HasBodyToSave() const {
  const long status = http_.answer().status;
  return status >= 200 && status < 300 && status != 204 && task_.request.method != "HEAD";
}

StateResult CallState::Save() {
  FileManager& files = parser().host().filemanager();
  const int outcome = files.WriteBeside(task_.path, http_.answer().body);
  if (outcome == 0) return StateResult::Finished;
  const std::string_view reason =
      outcome < 0 ? files.error().view() : "No file can be made in its place";
  return Fail(String::Concat({"Error writing ", Quoted(task_.save), ": ", reason}));
}

void CallState::BeginWalk() {
  const CallAnswer& answer = http_.answer();
  const String type = answer.Type();
  if (task_.walk == Walk::ByType) {
    const std::string_view t = type;
    const bool tags = t == "text/html" || t.ends_with("/xml") || t.ends_with("+xml");
    task_.walk = tags ? Walk::Tags : t.starts_with("text/") ? Walk::Lines : Walk::Whole;
  }
  text_ = answer.body;
  if (task_.walk == Walk::Whole) return;
  const ByteOrderMark mark = FindByteOrderMark(text_);
  text_.remove_prefix(mark.bytes.size());
  String charset = mark.charset.empty() ? answer.Charset() : String(mark.charset);
  if (charset.empty()) charset = NamedCharset(text_);
  if (!charset.empty() && !IsUtf8Name(charset) && ConvertToUtf8(text_, charset, converted_)) {
    text_ = converted_;
  }
  if (task_.walk == Walk::Tags) walker_.emplace(text_, DetectMarkup(type, text_));
}

bool CallState::IsWanted(const String& name) const {
  return task_.tags.empty() || std::ranges::find(task_.tags, name.lower()) != task_.tags.end();
}

StateResult CallState::NextTag() {
  do {
    // An answer may hold many tags that have no pass.
    if (!parser().CheckTimeout()) return StateResult::Failed;
    if (!walker_->Next()) return StateResult::Finished;
  } while (!IsWanted(walker_->name()));
  if (variables_.Assign("tag", walker_->name()) == StateResult::Failed ||
      variables_.Assign("raw", String(walker_->raw())) == StateResult::Failed ||
      SetAttributes() == StateResult::Failed) {
    return StateResult::Failed;
  }
  return SetPass(walker_->text());
}

StateResult CallState::SetAttributes() {
  String names;
  std::vector<std::pair<String, String>> parts;
  for (const TagWalker::Attribute& attribute : walker_->attributes()) {
    if (!names.empty()) names.cat(',');
    names.cat(attribute.name.view());
    parts.emplace_back(attribute.name, walker_->Decoded(attribute.value));
  }
  if (variables_.AssignParts("a_", std::move(parts)) == StateResult::Failed) {
    return StateResult::Failed;
  }
  return variables_.Assign("attributes", names);
}

StateResult CallState::NextLine() {
  if (place_ >= text_.size()) return StateResult::Finished;
  const size_t end = std::min(text_.find('\n', place_), text_.size());
  std::string_view line = text_.substr(place_, end - place_);
  if (end < text_.size() && line.ends_with('\r')) line.remove_suffix(1);
  place_ = end + 1;
  return SetPass(line);
}

StateResult CallState::SetPass(std::string_view text) {
  if (variables_.Assign("text", String(text)) == StateResult::Failed) return StateResult::Failed;
  const StateResult counted = variables_.Assign("pass", PrintInteger(++pass_));
  return counted == StateResult::Failed ? counted : StateResult::Handled;
}

}  // namespace

StateResult ProcessVxCALL(TagCall& call) {
  auto state = std::make_unique<CallState>(call);
  const StateResult result = state->Open(call);
  if (result == StateResult::Failed) return result;
  if (result != StateResult::Handled) return state->ExitState();
  return call.Enter(std::move(state));
}

}  // namespace vexa
