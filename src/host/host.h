// Host: the interpreter host of one request. It finds the configuration and the requested script,
// decides whether that script may run and with whose data, makes the request into variables, runs
// the script and writes the answer; it owns what the request creates, keeps the time limit, and
// turns errors into text of the page. What must begin anew with each request stands here; what the
// process has once is Process.
//
// Go() runs the phases in order. A phase returns non-zero for success; the first that returns 0,
// after it has shown its error, ends the request.
//
// Read in this order: host.cpp (the run of the phases, errors, what is owned),
// script_information.cpp (which script), process_configuration.cpp (which data),
// request_variables.cpp (what the script sees of the request, and the head of the answer),
// system_services.cpp (clock, sessions, names of users).

#ifndef VEXA_HOST_HOST_H_
#define VEXA_HOST_HOST_H_

#include <sys/stat.h>
#include <sys/types.h>

#include <ctime>
#include <memory>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "config/config_receiver.h"
#include "config/unix_config.h"
#include "core/environment.h"
#include "core/string.h"
#include "core/user_database.h"
#include "core/variables.h"
#include "engine/tag_row.h"
#include "files/activity_log.h"
#include "files/descriptor.h"
#include "files/unix_file_manager.h"
#include "host/hidden_errors.h"
#include "host/open_databases.h"
#include "host/process.h"
#include "request/answer.h"
#include "request/form.h"
#include "request/request.h"
#include "request/sent_fields.h"
#include "vexa.h"

namespace vexa {

class PackageLoader;

class Host : public Vexa, private ConfigReceiver, private FormReceiver {
 public:
  // All are borrowed and outlive the host.
  Host(Process& process, const TagSet& tags, Request& request, ResponseOutput& output);
  ~Host() override;

  // Runs the request, once. Returns 1 when the script was started, whatever it then did, and 0 when
  // a phase failed. The process exits with that status, on purpose the reverse of the usual:
  // servers and monitors are set up for it.
  [[nodiscard]] int Go();
  // In the place of Go, for who takes the body before the page begins: the most bytes that this
  // request's body may have; 0 or less: any number, also where the configuration is at fault.
  [[nodiscard]] int64_t ReadLargestBody();
  // What becomes of the page, and of the process, when memory has run out.
  void EndOutOfMemory();
  // Whether Go has come to running the script.
  [[nodiscard]] bool script_started() const { return script_started_; }

  // What the request carries besides its environment.
  [[nodiscard]] String RequestHeader(std::string_view name) const;
  // Reads up to `count` bytes of the body. 0 at its end, negative on an error or a time-out.
  [[nodiscard]] int ReadContent(char* buffer, int count) override;
  [[nodiscard]] const Environment& environment() const { return request_.environment(); }

  // The program's own file name, and the host name of the request as the configuration knows it.
  [[nodiscard]] const String& basename() const { return process_.basename(); }
  [[nodiscard]] const String& hostname() const;

  // What the configuration registers.
  void AddSiteVariable(std::string_view name, const String& value) override {
    vars_.AddSystemVariable(name, value);
  }
  void AddCommerceHandler(CommerceMethod method) override;
  [[nodiscard]] std::span<const CommerceMethod> commercemethods() const { return commerce_; }
  void AddPackage(PackageInfo package) override;
  [[nodiscard]] std::span<const PackageInfo> packages() const override { return packages_; }

  [[nodiscard]] SitePlaces places() const override;
  [[nodiscard]] bool FindPackageFunction(std::string_view name, ExpressionContext& script,
                                         const Callable*& function) override;
  [[nodiscard]] bool CallPackageFunction(const Callable& function, ExpressionContext& script,
                                         std::span<ScriptValue> arguments,
                                         ScriptValue& result) override;
  const String* SetKeyIndex(const String* index) override {
    return std::exchange(key_index_, index);
  }
  [[nodiscard]] const String* keyindex() const override { return key_index_; }
  [[nodiscard]] bool ExtractPackage(const String& code, const String& directory,
                                    const String& license, String& result, String& reason) override;
  [[nodiscard]] std::unique_ptr<CommerceOrder> NewCommerceHandler(const String& method,
                                                                  ExpressionContext& script,
                                                                  String& message) override;

  // The view of that name in the first open database that has one, or null.
  [[nodiscard]] DatabaseView* FindDatabaseView(std::string_view name) {
    return databases_.FindView(name);
  }
  // The scripts loaded so far, the requested one first.
  [[nodiscard]] std::span<const std::unique_ptr<Module>> modules() const { return modules_; }

  // The value of a Set-Cookie header that keeps the visitor's id, or gives a new one; sets the
  // system variable `callerid`. `cookies` is what the browser sent.
  [[nodiscard]] String BuildCookie(std::string_view cookies);

  // What anybody may ask, in the order of vexa.h. Before a configuration is loaded: the defaults.
  [[nodiscard]] const Settings& config() const override {
    return config_ == nullptr ? Unconfigured() : config_->settings();
  }
  [[nodiscard]] const String* FindContentType(std::string_view extension) const override;
  [[nodiscard]] CGINetworkManager& networkmanager() override;
  [[nodiscard]] TextWork& textwork() override;
  [[nodiscard]] FileManager& filemanager() override { return filemanager_; }
  [[nodiscard]] ActivityLog& logfile() override { return log_; }
  [[nodiscard]] int ResolvePath(const String& name, String& resolved, PathType type,
                                String& message) override;
  [[nodiscard]] bool IsPagePath(const String& path) override;
  [[nodiscard]] Output& output() override { return answer_.output(); }
  [[nodiscard]] AnswerHead& answer() override { return answer_; }
  void Error(const vexa::Error& error) override;
  void Error(const String& text) override;
  [[nodiscard]] Variables& vars() override { return vars_; }
  [[nodiscard]] SentFields& sentfields() override { return sent_fields_; }
  [[nodiscard]] std::span<const SentField> sentfields(std::string_view name) override {
    return sent_fields_.Find(name);
  }
  [[nodiscard]] const String* body() override;
  [[nodiscard]] bool AdmitField() override;
  [[nodiscard]] VisitorSession& session() override;
  [[nodiscard]] MacroEncoding defaultmacroencoding() const override { return macro_encoding_; }
  void SetDefaultMacroEncoding(MacroEncoding encoding) override { macro_encoding_ = encoding; }
  [[nodiscard]] const String& language() const override { return language_; }
  void SetLanguage(const String& language) override { language_ = language; }
  [[nodiscard]] const String& defaultlanguage() const override { return defaultlanguage_; }
  void SetDefaultLanguage(const String& language) override { defaultlanguage_ = language; }
  [[nodiscard]] bool timedout() override;
  [[nodiscard]] int64_t timeremaining() override;
  int ResetGlobalTimeout() override;
  [[nodiscard]] String lasterror() override;
  [[nodiscard]] String currentdate() override;
  [[nodiscard]] String Crypt(const String& key, const String& salt) override;
  [[nodiscard]] String MakeSessionID() override;
  [[nodiscard]] std::unique_ptr<Database> NewDatabase(const String& type, const String& name,
                                                      String& message) override;
  void AddDatabase(std::unique_ptr<Database> database) override {
    databases_.Add(std::move(database));
  }
  bool RemoveDatabase(Database* database) override { return databases_.Remove(database); }
  [[nodiscard]] Database* FindDatabase(std::string_view name) override {
    return databases_.Find(name);
  }
  [[nodiscard]] std::span<const std::unique_ptr<Database>> databases() const override {
    return databases_.all();
  }
  [[nodiscard]] Database* PrimaryDB() override { return databases_.primary(); }
  void SetPrimaryDB(Database* database) override { databases_.SetPrimary(database); }
  [[nodiscard]] PageStore* pages() override;
  [[nodiscard]] Module* FindModule(const String& name, String& message) override;
  [[nodiscard]] Module* currentmodule() override { return current_module_; }
  void SetCurrentModule(Module* module) override { current_module_ = module; }
  [[nodiscard]] ExpressionContext& expressioncontext() override;

 private:
  // Whose scripts run with whose data.
  enum class RunMode {
    StandardMode = 0,    // the site's scripts, with the site's data
    UserMode = 1,        // scripts of the user the program runs as, with that user's data
    SetUIDRootMode = 2,  // scripts of any user; the program takes on the owner's identity
  };

  // The phases, in the order they run.
  [[nodiscard]] int AddEnvironmentVariables();
  [[nodiscard]] int LoadConfiguration();
  [[nodiscard]] int CheckConfiguration();
  // Finds the requested script: its path, and its name as messages show it.
  [[nodiscard]] int GetScriptInformation(String& script, String& name);
  [[nodiscard]] int ProcessConfiguration(const String& script, const String& name);
  [[nodiscard]] int AddSystemVariables();
  [[nodiscard]] int AddQueryArguments();
  [[nodiscard]] int AddQueryVariables();
  [[nodiscard]] int AddAPIVariables();
  [[nodiscard]] int StartHeaders(int status);
  [[nodiscard]] int OutputCookie();
  [[nodiscard]] int EndHeaders();
  [[nodiscard]] Module* OpenFirstModule(const String& script, const String& name);
  [[nodiscard]] int AddContentVariables();
  // Groups of them. False when one failed.
  [[nodiscard]] bool PrepareRequest(String& script, String& name);
  [[nodiscard]] bool BeginResponse();

  // The requested script. False after an error was shown.
  [[nodiscard]] String RequestedName();
  [[nodiscard]] bool IsDirectory(const String& path);
  void LocateUserScript(const String& requested, String& script);
  void LocateScript(const String& requested, String& script);
  [[nodiscard]] bool CheckScriptDirectory();
  [[nodiscard]] bool CheckScriptPath(String& script, const String& name);
  [[nodiscard]] bool CheckScriptFile(const String& script, const String& name);
  [[nodiscard]] bool LookAtScript(const String& script, const String& name, struct stat& status);
  // What is wrong with a directory as the end of a sentence, empty when nothing is. The directory
  // is then replaced by its path without "." and "..". The bits say which links it may pass.
  [[nodiscard]] std::string_view DirectoryProblem(String& directory, int links, int other_owners);

  void SetLinkRules(const String& script);
  // The data of the script. False after an error was shown.
  void LookUpOwner();
  [[nodiscard]] bool OpenLog();
  void LogEnd();
  [[nodiscard]] bool ChooseDataDirectory(const String& name);
  [[nodiscard]] bool ChooseUserDataDirectory(const String& name);
  [[nodiscard]] bool ReadAuthorization();
  [[nodiscard]] bool CheckDataDirectory();
  [[nodiscard]] int SwitchToUserMode();
  [[nodiscard]] bool CheckOpenedScript(const Module& module, const String& name);
  [[nodiscard]] static String UserNameFromUID(uid_t uid);
  // Lists the packages whose codes or names stand in `names` (comma-separated), in that order, and
  // no others.
  void OrderPackages(std::string_view names);

  // Begins and ends the head of the answer where that has not happened.
  void RequireHeaders(int status);
  void WriteError(std::string_view text);
  void HideError(std::string_view message);
  // Text of an error leaves at once.
  void ShowText(std::string_view text);
  // Destroys scripts, databases and what is under way with other machines.
  void ReleaseScripts();
  [[nodiscard]] PackageLoader& libraries();

  [[nodiscard]] std::string_view EnvironmentValue(std::string_view name) override {
    return environment().Value(name);
  }
  [[nodiscard]] KeptSiteVariables* keptvariables() override;
  // What the process keeps; null when it keeps nothing, or the log wants to know of every file.
  [[nodiscard]] Remembered* remembered() const;
  // The settings before a configuration is loaded.
  [[nodiscard]] static const Settings& Unconfigured();
  [[nodiscard]] const String& SystemVariable(std::string_view name) override {
    return vars_.GetSystemVariableValue(name);
  }

  Process& process_;
  const TagSet& tags_;
  Request& request_;
  Answer answer_;
  std::unique_ptr<UNIXConfig> config_;
  UNIXLogFile log_;
  HiddenErrors hidden_errors_;
  UNIXFileManager filemanager_;
  std::unique_ptr<CGINetworkManager> network_;  // null until it is asked for
  std::unique_ptr<TextWork> text_work_;         // likewise
  OpenDatabases databases_;
  Variables vars_;
  SentFields sent_fields_;
  String body_;  // of a request that is no form
  bool body_is_read_ = false;
  bool body_is_damaged_ = false;
  int64_t field_count_ = 0;                  // of query and body, files too
  std::unique_ptr<VisitorSession> session_;  // null until it is asked for
  std::vector<std::unique_ptr<Module>> modules_;
  Module* current_module_ = nullptr;
  std::vector<CommerceMethod> commerce_;
  std::vector<PackageInfo> packages_;
  const String* key_index_ = nullptr;         // whose key is being computed; null: none is
  std::unique_ptr<PackageLoader> libraries_;  // once one was asked for
  String data_directory_;
  String script_directory_;
  String seen_path_;       // where the request's name leads
  struct stat seen_ = {};  // what was there; all zero: nothing
  UserEntry owner_;        // of the script; name, home and group are known after LookUpOwner
  int owner_unknown_ = 0;  // why the system could not be asked for them, as errno; 0: it could
  // The script's file, where the program takes on its owner's identity.
  FileIdentity script_identity_;
  RunMode mode_ = RunMode::StandardMode;
  MacroEncoding macro_encoding_ = MacroEncoding::None;
  String language_;
  String defaultlanguage_ = "en-US";
  time_t deadline_ = 0;  // when the request must be done; 0: no limit
  bool script_started_ = false;
};

}  // namespace vexa

#endif  // VEXA_HOST_HOST_H_
