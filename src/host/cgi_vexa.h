// CGIVexa: the host of a request that arrives through CGI. It finds the configuration and the
// requested script, decides whether that script may run and with whose data, makes the environment
// and the request into variables, and writes the response to standard output.
//
// Read in this order: cgi_vexa.cpp (start and configuration), script_information.cpp (which
// script), process_configuration.cpp (which data), request_variables.cpp (what the script sees of
// the request, and the headers), system_services.cpp (clock, sessions, names of users).

#ifndef VEXA_HOST_CGI_VEXA_H_
#define VEXA_HOST_CGI_VEXA_H_

#include <sys/types.h>

#include <memory>
#include <string_view>

#include "cgi/standard_output.h"
#include "config/unix_config.h"
#include "core/string.h"
#include "files/activity_log.h"
#include "files/unix_file_manager.h"
#include "host/host.h"

namespace vexa {

class CGIVexa : public HostBase {
 public:
  // `argv` is what main was given and stays valid. There is one CGIVexa in a process: it takes over
  // the signals that end a request.
  CGIVexa(int argc, char** argv);
  ~CGIVexa() override;

  // The program's own file name.
  [[nodiscard]] const String& basename() const { return basename_; }
  // The host name of the request as the configuration knows it.
  [[nodiscard]] const String& hostname() const;

  [[nodiscard]] String RequestHeader(std::string_view name) override;
  [[nodiscard]] int ReadContent(char* buffer, int count) override;

  // Before a configuration is loaded: the defaults.
  [[nodiscard]] const Settings& config() const override;
  [[nodiscard]] FileManager& filemanager() override { return filemanager_; }
  [[nodiscard]] ActivityLog& logfile() override { return log_; }
  [[nodiscard]] Output& output() override { return output_; }
  [[nodiscard]] bool timedout() override;
  [[nodiscard]] String lasterror() override;
  [[nodiscard]] String currentdate() override;
  [[nodiscard]] String Crypt(const String& key, const String& salt) override;
  [[nodiscard]] String MakeSessionID() override;
  [[nodiscard]] int ResolvePath(const String& name, String& resolved, PathType type,
                                String& message) override;
  [[nodiscard]] std::unique_ptr<Database> NewDatabase(const String& type, const String& name,
                                                      String& message) override;

 protected:
  [[nodiscard]] int AddEnvironmentVariables() override;
  [[nodiscard]] int LoadConfiguration() override;
  [[nodiscard]] int CheckConfiguration() override;
  [[nodiscard]] int GetScriptInformation(String& script, String& name) override;
  [[nodiscard]] int ProcessConfiguration(const String& script, const String& name) override;
  [[nodiscard]] int AddQueryArguments() override;
  [[nodiscard]] int AddQueryVariables() override;
  [[nodiscard]] int AddAPIVariables() override;
  [[nodiscard]] int StartHeaders(int status) override;
  [[nodiscard]] int OutputCookie() override;
  [[nodiscard]] int EndHeaders() override;
  void ScriptStarted() override { log_.ScriptStarted(); }

 private:
  // Whose scripts run with whose data.
  enum class RunMode {
    StandardMode = 0,    // the site's scripts, with the site's data
    UserMode = 1,        // scripts of the user the program runs as, with that user's data
    SetUIDRootMode = 2,  // scripts of any user; the program takes on the owner's identity
  };

  // Who owns the script. Name and home are known only after LookUpOwner.
  struct Owner {
    uid_t uid = static_cast<uid_t>(-1);
    gid_t gid = static_cast<gid_t>(-1);
    String name;
    String home;
  };

  // The program and its configuration file.
  [[nodiscard]] String ProgramPath() const { return argc_ > 0 ? String(argv_[0]) : String(); }
  [[nodiscard]] bool RunningSetUIDRoot() const;
  int GetConfigurationFile(String& path) const;

  // The requested script.
  [[nodiscard]] String RequestedName();
  void LocateUserScript(const String& requested, String& script);
  void LocateScript(const String& requested, String& script);
  [[nodiscard]] int CheckScriptDirectory();
  [[nodiscard]] int CheckScriptPath(String& script, const String& name);
  [[nodiscard]] int CheckScriptFile(const String& script, const String& name);
  // What is wrong with a directory as the end of a sentence, empty when nothing is. The directory
  // is then replaced by its path without "." and "..". The bits say which links it may pass.
  [[nodiscard]] std::string_view DirectoryProblem(String& directory, int links, int other_owners);

  // The data of the script.
  void LookUpOwner();
  [[nodiscard]] int OpenLog();
  void LogEnd();
  [[nodiscard]] int ChooseDataDirectory(const String& name);
  [[nodiscard]] int ChooseUserDataDirectory(const String& name);
  [[nodiscard]] int CheckDataDirectory();
  [[nodiscard]] int SwitchToUserMode(uid_t uid);
  void ApplyResourceLimits() const;
  void InstallSearchPath();
  [[nodiscard]] static String UserNameFromUID(uid_t uid);

  [[nodiscard]] const String& SystemVariable(std::string_view name) {
    return vars().GetSystemVariableValue(name);
  }

  int argc_;
  char** argv_;
  std::unique_ptr<char[]> path_environment_;  // "PATH=...", part of the environment while set
  String path_info_;
  String basename_;
  std::unique_ptr<UNIXConfig> config_;
  UNIXLogFile log_;
  UNIXFileManager filemanager_;
  StandardOutput output_;
  String data_directory_;
  String script_directory_;
  String content_type_ = "text/html";
  Owner owner_;
  RunMode mode_ = RunMode::StandardMode;
};

}  // namespace vexa

#endif  // VEXA_HOST_CGI_VEXA_H_
