// HostBase: the run of the phases, the registries, the time limit and the showing of errors.

#include "host/host.h"

#include <algorithm>
#include <cstdlib>

#include "core/encoding.h"
#include "core/error.h"
#include "core/number.h"
#include "core/text.h"
#include "core/version.h"
#include "engine/module.h"
#include "engine/script_parser.h"
#include "host/dynamic_variables.h"
#include "request/content_parser.h"
#include "request/cookie.h"

namespace vexa {

HostBase::HostBase(char** environment) : environment_(environment), vars_(*this) {}

HostBase::~HostBase() { ReleaseScripts(); }

// --- The run of a request --------------------------------------------------------------------

int HostBase::Go() {
  std::srand(static_cast<unsigned>(std::time(nullptr)));
  String script, name;
  if (PrepareRequest(script, name) == 0 || BeginResponse() == 0) return 0;
  Module* module = OpenFirstModule(script, name);
  if (module == nullptr) return 0;
  // The body has a time limit of its own, so that a slow sender cannot hold the process for ever
  // and cannot use up the time of the script.
  if (ResetGlobalTimeout() == 0 || AddContentVariables() == 0 || ResetGlobalTimeout() == 0) {
    return 0;
  }
  script_started_ = true;
  ScriptStarted();
  // What became of the script is on the page; it does not change the exit status.
  (void)module->scriptparser().Parse();
  return 1;
}

int HostBase::PrepareRequest(String& script, String& name) {
  return AddEnvironmentVariables() != 0 && LoadConfiguration() != 0 && CheckConfiguration() != 0 &&
         GetScriptInformation(script, name) != 0 && ProcessConfiguration(script, name) != 0 &&
         AddSystemVariables() != 0 && AddQueryArguments() != 0 && AddQueryVariables() != 0 &&
         AddAPIVariables() != 0;
}

int HostBase::BeginResponse() {
  if (StartHeaders(200) == 0) return 0;
  headers_begun_ = true;
  if (config().usecookies != 0 && OutputCookie() == 0) return 0;
  return EndHeaders();
}

Module* HostBase::OpenFirstModule(const String& script, const String& name) {
  auto module = std::make_unique<Module>(*this);
  String message;
  if (module->Open(script, EntityEncoded(name), message) == 0) {
    Error(FatalError(message));
    return nullptr;
  }
  modules_.push_back(std::move(module));
  current_module_ = modules_.front().get();
  return current_module_;
}

int HostBase::AddSystemVariables() {
  vars_.AddSystemVariable("version", kVersion);
  vars_.AddSystemVariable("vexaversion", kVersion);
  TimeValues now;
  vx_gettimevalues(now);
  for (size_t part = 0; part < kTimeParts; ++part) {
    vars_.AddSystemVariable(kTimePartNames[part], now.parts[part]);
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
int HostBase::AddContentVariables() {
  int64_t length = ReadInteger64(RequestHeader("Content-Length"));
  if (length <= 0) return 1;
  String header = RequestHeader("Content-Type");
  std::unique_ptr<ContentParser> parser = NewContentParser(*this, header);
  return parser == nullptr || parser->Parse(length) == 0;
}

void HostBase::ReleaseScripts() {
  current_module_ = nullptr;
  modules_.clear();
  primary_ = nullptr;
  databases_.clear();
}

// --- Time ------------------------------------------------------------------------------------

int HostBase::ResetGlobalTimeout() {
  int seconds = config().globaltimeout;
  deadline_ = seconds == 0 ? 0 : std::time(nullptr) + seconds;
  return 1;
}

bool HostBase::timedout() { return deadline_ != 0 && std::time(nullptr) > deadline_; }

int64_t HostBase::timeremaining() { return deadline_ == 0 ? -1 : deadline_ - std::time(nullptr); }

// --- Errors ----------------------------------------------------------------------------------

void HostBase::Error(const vexa::Error& error) {
  RequireHeaders(error.resultcode());
  WriteError(error.message());
}

void HostBase::Error(const String& text) {
  RequireHeaders(200);
  WriteError(text);
}

// Every response begins with headers, that of a failed request too.
void HostBase::RequireHeaders(int status) {
  if (headers_begun_) return;
  (void)StartHeaders(status);
  (void)EndHeaders();
  headers_begun_ = true;
}

void HostBase::WriteError(std::string_view text) {
  logfile().Write(LogLevel::Errors, "ERROR", text);
  output().Write(text);
  output().Write("\r\n");
  output().Flush();
}

String HostBase::BuildCookie(std::string_view cookies) {
  String caller_id = FindCallerID(cookies);
  if (caller_id.empty()) caller_id = MakeSessionID();
  vars_.AddSystemVariable("callerid", caller_id);
  return IdentifyingCookie(caller_id, std::time(nullptr));
}

// --- Registries ------------------------------------------------------------------------------

void HostBase::AddSiteVariable(std::string_view name, const String& value) {
  vars_.AddSystemVariable(name, value);
}

void HostBase::AddDatabase(std::unique_ptr<Database> database) {
  databases_.push_back(std::move(database));
}

bool HostBase::RemoveDatabase(Database* database) {
  auto found = std::find_if(databases_.begin(), databases_.end(),
                            [database](const auto& open) { return open.get() == database; });
  if (found == databases_.end()) return false;
  if (primary_ == database) primary_ = nullptr;
  databases_.erase(found);
  return true;
}

Database* HostBase::FindDatabase(std::string_view name) {
  auto found = std::find_if(databases_.begin(), databases_.end(), [name](const auto& open) {
    return EqualsIgnoreCase(open->name(), name);
  });
  return found == databases_.end() ? nullptr : found->get();
}

DatabaseView* HostBase::FindDatabaseView(std::string_view name) {
  for (const auto& database : databases_) {
    if (DatabaseView* view = database->FindView(name)) return view;
  }
  return nullptr;
}

Variable* HostBase::FindField(std::string_view field, std::string_view database) {
  for (const auto& open : databases_) {
    if (!database.empty() && !EqualsIgnoreCase(open->name(), database)) continue;
    for (DatabaseView* view : open->views()) {
      if (Variable* variable = view->FindVariable(field)) return variable;
    }
  }
  return nullptr;
}

ExpressionContext& HostBase::expressioncontext() { return current_module_->scriptparser(); }

Module* HostBase::FindModule(const String& name, String& message) {
  String path;
  if (ResolvePath(name, path, PathType::ScriptPath, message) == 0) return nullptr;
  auto found = std::find_if(modules_.begin(), modules_.end(),
                            [&path](const auto& module) { return module->filepath() == path; });
  if (found != modules_.end()) return found->get();
  auto module = std::make_unique<Module>(*this);
  if (module->Open(path, EntityEncoded(name), message) == 0) return nullptr;
  modules_.push_back(std::move(module));
  return modules_.back().get();
}

void HostBase::OrderPackages(std::string_view names) {
  std::vector<PackageInfo> ordered;
  for (PieceReader pieces(names, ","); pieces.Next();) {
    std::string_view name = Stripped(pieces.piece());
    auto found = std::find_if(packages_.begin(), packages_.end(), [name](const auto& package) {
      return EqualsIgnoreCase(package.code, name) || EqualsIgnoreCase(package.name, name);
    });
    if (found == packages_.end()) continue;
    ordered.push_back(std::move(*found));
    packages_.erase(found);
  }
  packages_ = std::move(ordered);
}

}  // namespace vexa
