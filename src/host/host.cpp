// Host: the run of the phases, the configuration, the time limit, the showing of errors, and the
// scripts of a request.
//
//   Go:  PrepareRequest (phases 1 to 9: nothing is written yet)
//        BeginResponse (10 to 12: the head of the answer)
//        OpenFirstModule, AddContentVariables (13 to 15: the body may call the script's functions)
//        the script
//
// An error before BeginResponse begins and ends the head itself, so that a failed request is a
// whole answer too. Whatever ends the request, the destructor closes what it has open, and only
// then says in the log how long the answer was.

#include "host/host.h"

#include <unistd.h>

#include <algorithm>
#include <cassert>
#include <new>
#include <utility>

#include "core/encoding.h"
#include "core/error.h"
#include "core/memory_limit.h"
#include "core/number.h"
#include "core/text.h"
#include "engine/module.h"
#include "engine/script_parser.h"
#include "expr/text_work.h"
#include "host/remembered.h"
#include "net/network_manager.h"
#include "packages/package_loader.h"
#include "request/cookie.h"
#include "request/session.h"

namespace vexa {

Host::Host(Process& process, const TagSet& tags, Request& request, ResponseOutput& output)
    : process_(process),
      tags_(tags),
      request_(request),
      answer_(output, *this, request.environment()),
      filemanager_(*this,
                   process.remembered() == nullptr ? nullptr : &process.remembered()->directories),
      vars_(databases_) {}

Host::~Host() {
  // The page is over: what it leaves is put in order whatever that takes.
  LiftMemoryLimit();
  // Scripts and databases hold files open, which must be closed before their manager goes.
  ReleaseScripts();
  if (process_.remembered() != nullptr) process_.remembered()->pages.EndRequest();
  if (libraries_ != nullptr) {
    libraries_->CleanUp();
    // What it left behind nobody knows.
    if (libraries_->ran_code()) process_.Spend();
  }
  answer_.Finish();
  LogEnd();
  process_.RemoveSearchPath();
  answer_.output().End(script_started_ ? 1 : 0);
}

const Settings& Host::Unconfigured() {
  static const Settings defaults;
  return defaults;
}

const String& Host::hostname() const {
  static const String unknown;
  return config_ == nullptr ? unknown : config_->virtualhost();
}

const String* Host::FindContentType(std::string_view extension) const {
  return config_ == nullptr ? nullptr : config_->FindContentType(extension);
}

TextWork& Host::textwork() {
  if (text_work_ == nullptr) text_work_ = std::make_unique<TextWork>();
  return *text_work_;
}

CGINetworkManager& Host::networkmanager() {
  if (network_ == nullptr) network_ = std::make_unique<CGINetworkManager>();
  return *network_;
}

VisitorSession& Host::session() {
  if (session_ == nullptr) session_ = std::make_unique<Session>(*this);
  return *session_;
}

// --- The run of a request --------------------------------------------------------------------

int Host::Go() {
  assert(modules_.empty() && !answer_.started());
  process_.BeginRequest();
  String script, name;
  if (!PrepareRequest(script, name) || !BeginResponse()) return 0;
  Module* module = OpenFirstModule(script, name);
  if (module == nullptr) return 0;
  // The body has a time limit of its own, so that a slow sender cannot hold the process for ever
  // and cannot use up the time of the script.
  if (ResetGlobalTimeout() == 0 || AddContentVariables() == 0 || ResetGlobalTimeout() == 0) {
    return 0;
  }
  script_started_ = true;
  log_.ScriptStarted();
  // What became of the script is on the page; it does not change the exit status.
  (void)module->scriptparser().Parse();
  return 1;
}

int64_t Host::ReadLargestBody() {
  return AddEnvironmentVariables() != 0 && LoadConfiguration() != 0 ? config().maxbody : 0;
}

void Host::EndOutOfMemory() {
  process_.Spend();
  LiftMemoryLimit();
  try {
    Error(FatalError("Out of memory"));
  } catch (const std::bad_alloc&) {
    // Not even enough for the message: none of this needs any.
    answer_.Fail(500);
    RequireHeaders(500);
    const bool brief = config().showerrors == static_cast<int>(ShownErrors::Brief);
    output().Write(brief ? "This page has an error." : "Fatal Error: Out of memory");
    output().Write("\r\n");
    output().Flush();
  }
}

bool Host::PrepareRequest(String& script, String& name) {
  return AddEnvironmentVariables() != 0 && LoadConfiguration() != 0 && CheckConfiguration() != 0 &&
         GetScriptInformation(script, name) != 0 && ProcessConfiguration(script, name) != 0 &&
         AddSystemVariables() != 0 && AddQueryArguments() != 0 && AddQueryVariables() != 0 &&
         AddAPIVariables() != 0;
}

bool Host::BeginResponse() {
  return StartHeaders(200) != 0 && (config().usecookies == 0 || OutputCookie() != 0) &&
         EndHeaders() != 0;
}

Module* Host::OpenFirstModule(const String& script, const String& name) {
  assert(modules_.empty());
  auto module = std::make_unique<Module>(*this, tags_);
  String message;
  const FileProof proof(seen_);
  if (module->Open(script, EntityEncoded(name), message, &proof) == 0) {
    Error(FatalError(message));
    return nullptr;
  }
  if (mode_ != RunMode::StandardMode && !CheckOpenedScript(*module, name)) return nullptr;
  modules_.push_back(std::move(module));
  current_module_ = modules_.front().get();
  return current_module_;
}

// --- Configuration ---------------------------------------------------------------------------

int Host::LoadConfiguration() {
  if (process_.StartedUnderFalseName()) {
    Error(FatalError("Vexa is set-user-ID root and must be started by its own name"));
    return 0;
  }
  if (process_.RunningSetUIDRoot()) mode_ = RunMode::SetUIDRootMode;
  bool safe = mode_ == RunMode::SetUIDRootMode;
  if (safe && !process_.LeaveCallersSurroundings()) {
    Error(FatalError("Unable to work in '/': " + lasterror()));
    return 0;
  }
  String path;
  if (process_.GetConfigurationFile(path) == 0) {
    Error(FatalError("Unable to locate configuration file"));
    return 0;
  }
  ConfigReceiver& receiver = *this;
  KeptConfigurations* const kept =
      process_.remembered() == nullptr ? nullptr : &process_.remembered()->configurations;
  config_ = std::make_unique<UNIXConfig>(receiver, safe ? ServerSafeMode::On : ServerSafeMode::Off,
                                         kept == nullptr ? WorkingDirectory() : kept->workdir());
  if ((kept == nullptr ? config_->ReadConfiguration(path) : kept->Read(*config_, receiver, path)) !=
      0) {
    return 0;
  }
  bool users = !config().authfile.empty() || !config().authuserdir.empty();
  if (mode_ == RunMode::StandardMode && users) mode_ = RunMode::UserMode;
  output().Resize(config().outputbuffersize);
  macro_encoding_ = static_cast<MacroEncoding>(config().defaultmacroencoding);
  return 1;
}

int Host::CheckConfiguration() {
  if (config_->ValidateConfiguration() != 0) return 0;
  bool redirected =
      environment().Find("REDIRECT_STATUS") != nullptr && !request_.path_info().empty();
  if (config().redirectonly != 0 && !redirected) {
    Error(FatalError("Vexa is configured for redirected use only"));
    return 0;
  }
  // Compared in 16 bits, on purpose: sites have it in their configuration so.
  if (config().serveruserid != -1 && config().serveruserid != static_cast<int>(getuid() & 0xFFFF)) {
    Error(
        FatalError("The UID of the process which executed Vexa does not match the serveruserid "
                   "configuration variable"));
    return 0;
  }
  return 1;
}

Remembered* Host::remembered() const {
  const bool told = log_.IsOpen() && config().loglevel >= static_cast<int>(LogLevel::Files);
  return told || config().maxfiles < 0 ? nullptr : process_.remembered();
}

KeptSiteVariables* Host::keptvariables() {
  return remembered() == nullptr ? nullptr : &remembered()->variables;
}

PageStore* Host::pages() { return remembered() == nullptr ? nullptr : &remembered()->pages; }

// However the script ended: this is called when all that it held has been released, and the page
// has left the buffer.
void Host::LogEnd() {
  if (!script_started() || !log_.IsOpen()) return;
  log_.ScriptEnded(answer_.output().written_bytes());
}

void Host::ReleaseScripts() {
  current_module_ = nullptr;
  modules_.clear();
  databases_.Clear();
  network_.reset();
  session_.reset();
}

// --- Time ------------------------------------------------------------------------------------

int Host::ResetGlobalTimeout() {
  int seconds = config().globaltimeout;
  deadline_ = seconds == 0 ? 0 : std::time(nullptr) + seconds;
  return 1;
}

// A page that nobody can read any more ends like an interrupted one.
bool Host::timedout() {
  return process_.interrupted() || answer_.output().broken() ||
         (deadline_ != 0 && std::time(nullptr) > deadline_);
}

int64_t Host::timeremaining() { return deadline_ == 0 ? -1 : deadline_ - std::time(nullptr); }

// --- Errors ----------------------------------------------------------------------------------

// An error that no script could survive ends the request.
void Host::Error(const vexa::Error& error) {
  if (error.Level() == 0) answer_.Fail(error.resultcode() == 200 ? 500 : error.resultcode());
  RequireHeaders(error.resultcode());
  const bool brief = config().showerrors == static_cast<int>(ShownErrors::Brief);
  if (brief && error.audience() == Audience::Makers) return HideError(error.message());
  WriteError(error.message());
}

void Host::Error(const String& text) {
  RequireHeaders(200);
  WriteError(text);
}

// Every response begins with headers, that of a failed request too.
void Host::RequireHeaders(int status) {
  if (!answer_.started()) (void)StartHeaders(status);
  if (!answer_.headers_ended()) (void)EndHeaders();
}

void Host::WriteError(std::string_view text) {
  logfile().Write(LogLevel::Errors, "ERROR", text);
  ShowText(text);
}

void Host::HideError(std::string_view message) {
  const bool first = hidden_errors_.none();
  if (first) hidden_errors_.Begin(process_.DrawChance());
  const String& file = current_module_ == nullptr ? seen_path_ : current_module_->filepath();
  hidden_errors_.Tell(log_, file, message);
  if (first) ShowText(hidden_errors_.shown());
}

void Host::ShowText(std::string_view text) {
  output().Write(text);
  output().Write("\r\n");
  if (!answer_.withholds_text()) output().Flush();
}

String Host::BuildCookie(std::string_view cookies) {
  String caller_id = FindCallerID(cookies);
  if (caller_id.empty()) caller_id = MakeSessionID();
  vars_.AddSystemVariable("callerid", caller_id);
  return IdentifyingCookie(caller_id, std::time(nullptr));
}

// --- Registries ------------------------------------------------------------------------------

std::unique_ptr<Database> Host::NewDatabase(const String& type, const String& name,
                                            String& message) {
  return MakeDatabase(*this, type, name, message);
}

ExpressionContext& Host::expressioncontext() {
  assert(current_module_ != nullptr);
  return current_module_->scriptparser();
}

Module* Host::FindModule(const String& name, String& message) {
  String path;
  if (ResolvePath(name, path, PathType::ScriptPath, message) == 0) return nullptr;
  auto found = std::find_if(modules_.begin(), modules_.end(),
                            [&path](const auto& module) { return module->filepath() == path; });
  if (found != modules_.end()) return found->get();
  auto module = std::make_unique<Module>(*this, tags_);
  if (module->Open(path, EntityEncoded(name), message) == 0) return nullptr;
  modules_.push_back(std::move(module));
  return modules_.back().get();
}

}  // namespace vexa
