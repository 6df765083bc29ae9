// The host interface: what every engine may ask of the one interpreter host of a request. Pure
// interfaces and forward declarations only, so that anything may include it; the classes behind
// them live in files/, engine/, xbase/ and cgi/.

#ifndef VEXA_VEXA_H_
#define VEXA_VEXA_H_

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "core/encoding.h"
#include "core/error.h"
#include "core/output.h"
#include "core/settings.h"
#include "core/string.h"

namespace vexa {

class Database;
class ExpressionContext;
class FileManager;
class Module;
class Variables;

// Which root directory a name written in a script is taken from.
enum class PathType { DataPath = 0, ScriptPath = 1, TemporaryPath = 2 };

// --- Log and packages ------------------------------------------------------------------------

// Levels of the activity log; an event is written when `loglevel` is at least its level.
enum class LogLevel { Script = 1, Errors = 2, Files = 3, Network = 4 };

// The activity log. Writing never fails for the caller.
class ActivityLog {
 public:
  virtual ~ActivityLog() = default;
  virtual void Write(LogLevel level, std::string_view event, std::string_view detail) = 0;
};

// A package registered by the configuration file.
struct PackageInfo {
  String code, name, description, version, path, defaultpath;
};

// --- Host ------------------------------------------------------------------------------------

// The interpreter host: one object for each request, which owns everything the request creates.
class Vexa {
 public:
  virtual ~Vexa() = default;

  [[nodiscard]] virtual const Settings& config() const = 0;
  [[nodiscard]] virtual FileManager& filemanager() = 0;
  [[nodiscard]] virtual ActivityLog& logfile() = 0;
  // Where the page goes.
  [[nodiscard]] virtual Output& output() = 0;
  [[nodiscard]] virtual Variables& vars() = 0;

  // True when the request was interrupted or its deadline has passed.
  [[nodiscard]] virtual bool timedout() = 0;
  // Seconds to the deadline, -1 when there is none.
  [[nodiscard]] virtual int64_t timeremaining() = 0;
  // The system's message for the current errno.
  [[nodiscard]] virtual String lasterror() = 0;
  // The local date and time as mail headers write them.
  [[nodiscard]] virtual String currentdate() = 0;
  // One-way hash of `key`; empty when the salt is not usable.
  [[nodiscard]] virtual String Crypt(const String& key, const String& salt) = 0;
  [[nodiscard]] virtual String MakeSessionID() = 0;

  // Turns a name written in a script into a finished path inside the sandbox. 1 with `resolved`
  // set, or 0 with `message` set.
  [[nodiscard]] virtual int ResolvePath(const String& name, String& resolved, PathType type,
                                        String& message) = 0;

  // Shows an error: begins the response when that has not happened, writes the message, flushes.
  virtual void Error(const vexa::Error& error) = 0;
  virtual void Error(const String& text) = 0;

  [[nodiscard]] virtual const String& language() const = 0;
  virtual void SetLanguage(const String& language) = 0;
  [[nodiscard]] virtual const String& defaultlanguage() const = 0;
  virtual void SetDefaultLanguage(const String& language) = 0;
  [[nodiscard]] virtual MacroEncoding defaultmacroencoding() const = 0;
  virtual void SetDefaultMacroEncoding(MacroEncoding encoding) = 0;

  // Open databases, in the order they were opened; the host owns them.
  [[nodiscard]] virtual std::unique_ptr<Database> NewDatabase(const String& type,
                                                              const String& name,
                                                              String& message) = 0;
  virtual void AddDatabase(std::unique_ptr<Database> database) = 0;
  // Destroys the database; false when it is not registered.
  virtual bool RemoveDatabase(Database* database) = 0;
  [[nodiscard]] virtual Database* FindDatabase(std::string_view name) = 0;
  [[nodiscard]] virtual std::span<const std::unique_ptr<Database>> databases() const = 0;
  [[nodiscard]] virtual Database* PrimaryDB() = 0;
  virtual void SetPrimaryDB(Database* database) = 0;

  // The loaded script of that name (a script path), loading it when needed. Null with `message`
  // set on failure. The host owns it.
  [[nodiscard]] virtual Module* FindModule(const String& name, String& message) = 0;
  // What expressions of databases are evaluated in: the script that runs.
  // REQUIRES: a script runs.
  [[nodiscard]] virtual ExpressionContext& expressioncontext() = 0;
  [[nodiscard]] virtual Module* currentmodule() = 0;
  virtual void SetCurrentModule(Module* module) = 0;

  [[nodiscard]] virtual std::span<const PackageInfo> packages() const = 0;
};

}  // namespace vexa

#endif  // VEXA_VEXA_H_
