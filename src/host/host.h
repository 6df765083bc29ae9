// HostBase: the part of the interpreter host that does not depend on how the request arrives. It
// owns what a request creates (variables, scripts, databases, packages), keeps the time limit, and
// turns errors into response text. CGIVexa supplies the rest.
//
// Go() runs the phases in order. A phase returns non-zero for success; the first that returns 0,
// after it has shown its error, ends the request.

#ifndef VEXA_HOST_HOST_H_
#define VEXA_HOST_HOST_H_

#include <ctime>
#include <memory>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "core/environment.h"
#include "core/string.h"
#include "core/variables.h"
#include "database.h"
#include "vexa.h"

namespace vexa {

// A commerce method registered by the configuration file.
struct CommerceMethod {
  String method;
  String library;
  String metamethod;  // empty when there is none
};

class HostBase : public Vexa, private FieldSource {
 public:
  // `environment` is the process environment, a null-terminated list.
  explicit HostBase(char** environment);
  ~HostBase() override;

  // Runs the request. Returns 1 when the script was started, whatever it then did, and 0 when a
  // phase failed. The process exits with that status, on purpose the reverse of the usual: servers
  // and monitors are set up for it.
  [[nodiscard]] int Go();
  // Whether Go has come to running the script.
  [[nodiscard]] bool script_started() const { return script_started_; }

  // What the request carries besides its environment.
  [[nodiscard]] virtual String RequestHeader(std::string_view name) = 0;
  // Reads up to `count` bytes of the body. 0 at its end, negative on an error or a time-out.
  [[nodiscard]] virtual int ReadContent(char* buffer, int count) = 0;

  [[nodiscard]] const Environment& environment() const { return environment_; }
  void AddSiteVariable(std::string_view name, const String& value);
  void AddCommerceHandler(CommerceMethod method) { commerce_.push_back(std::move(method)); }
  [[nodiscard]] std::span<const CommerceMethod> commercemethods() const { return commerce_; }
  void AddPackage(PackageInfo package) { packages_.push_back(std::move(package)); }
  // The view of that name in the first open database that has one, or null.
  [[nodiscard]] DatabaseView* FindDatabaseView(std::string_view name);
  // The scripts loaded so far, the requested one first.
  [[nodiscard]] std::span<const std::unique_ptr<Module>> modules() const { return modules_; }

  // The value of a Set-Cookie header that keeps the visitor's id, or gives a new one; sets the
  // system variable `callerid`. `cookies` is what the browser sent.
  [[nodiscard]] String BuildCookie(std::string_view cookies);

  [[nodiscard]] Variables& vars() override { return vars_; }
  [[nodiscard]] bool timedout() override;
  [[nodiscard]] int64_t timeremaining() override;
  void Error(const vexa::Error& error) override;
  void Error(const String& text) override;
  [[nodiscard]] const String& language() const override { return language_; }
  void SetLanguage(const String& language) override { language_ = language; }
  [[nodiscard]] const String& defaultlanguage() const override { return defaultlanguage_; }
  void SetDefaultLanguage(const String& language) override { defaultlanguage_ = language; }
  [[nodiscard]] MacroEncoding defaultmacroencoding() const override { return macro_encoding_; }
  void SetDefaultMacroEncoding(MacroEncoding encoding) override { macro_encoding_ = encoding; }
  void AddDatabase(std::unique_ptr<Database> database) override;
  bool RemoveDatabase(Database* database) override;
  [[nodiscard]] Database* FindDatabase(std::string_view name) override;
  [[nodiscard]] std::span<const std::unique_ptr<Database>> databases() const override {
    return databases_;
  }
  [[nodiscard]] Database* PrimaryDB() override { return primary_; }
  void SetPrimaryDB(Database* database) override { primary_ = database; }
  [[nodiscard]] Module* FindModule(const String& name, String& message) override;
  [[nodiscard]] ExpressionContext& expressioncontext() override;
  [[nodiscard]] Module* currentmodule() override { return current_module_; }
  void SetCurrentModule(Module* module) override { current_module_ = module; }
  [[nodiscard]] std::span<const PackageInfo> packages() const override { return packages_; }

 protected:
  // The phases, in the order they run.
  [[nodiscard]] virtual int AddEnvironmentVariables() = 0;
  [[nodiscard]] virtual int LoadConfiguration() = 0;
  [[nodiscard]] virtual int CheckConfiguration() = 0;
  // Finds the requested script: its path, and its name as messages show it.
  [[nodiscard]] virtual int GetScriptInformation(String& script, String& name) = 0;
  [[nodiscard]] virtual int ProcessConfiguration(const String& script, const String& name) = 0;
  [[nodiscard]] int AddSystemVariables();
  [[nodiscard]] virtual int AddQueryArguments() = 0;
  [[nodiscard]] virtual int AddQueryVariables() = 0;
  [[nodiscard]] virtual int AddAPIVariables() = 0;
  [[nodiscard]] virtual int StartHeaders(int status) = 0;
  [[nodiscard]] virtual int OutputCookie() = 0;
  [[nodiscard]] virtual int EndHeaders() = 0;
  [[nodiscard]] int AddContentVariables();
  [[nodiscard]] int ResetGlobalTimeout();

  // Told when the script begins to run.
  virtual void ScriptStarted() {}

  // When the request must be done; 0 when there is no limit.
  [[nodiscard]] time_t deadline() const { return deadline_; }

  // Lists the packages whose codes or names stand in `names` (comma-separated), in that order, and
  // no others.
  void OrderPackages(std::string_view names);
  // Destroys scripts and databases. A derived class calls this before the files they hold open
  // lose their manager.
  void ReleaseScripts();

 private:
  [[nodiscard]] Variable* FindField(std::string_view field, std::string_view database) override;
  [[nodiscard]] int PrepareRequest(String& script, String& name);
  [[nodiscard]] int BeginResponse();
  [[nodiscard]] Module* OpenFirstModule(const String& script, const String& name);
  void RequireHeaders(int status);
  void WriteError(std::string_view text);

  Environment environment_;
  Variables vars_;
  std::vector<std::unique_ptr<Module>> modules_;
  Module* current_module_ = nullptr;
  std::vector<std::unique_ptr<Database>> databases_;
  Database* primary_ = nullptr;
  std::vector<CommerceMethod> commerce_;
  std::vector<PackageInfo> packages_;
  MacroEncoding macro_encoding_ = MacroEncoding::None;
  String language_;
  String defaultlanguage_ = "en-US";
  time_t deadline_ = 0;  // 0: none
  bool headers_begun_ = false;
  bool script_started_ = false;
};

}  // namespace vexa

#endif  // VEXA_HOST_HOST_H_
