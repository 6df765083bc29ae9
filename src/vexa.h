// Vexa: what anybody may ask of the interpreter host of a request. A pure interface with forward
// declarations only, so that anything may include it; host/ implements it, and the classes it hands
// out live in files/, engine/ and xbase/.

#ifndef VEXA_VEXA_H_
#define VEXA_VEXA_H_

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

#include "core/encoding.h"
#include "core/error.h"
#include "core/output.h"
#include "core/settings.h"
#include "core/string.h"
#include "core/symbol.h"

namespace vexa {

class CGINetworkManager;
class Callable;
class CommerceOrder;
class Database;
class ExpressionContext;
class FileManager;
class Module;
class PageStore;
class ScriptValue;
class TextWork;
class Variables;

// The version of the product: what `vexa --version` prints and the variable `version` holds.
inline constexpr char kVersion[] = "1.0.0";

// Which root directory a name written in a script is taken from.
enum class PathType { DataPath = 0, ScriptPath = 1, TemporaryPath = 2 };

// Levels of the activity log; an event is written when `loglevel` is at least its level.
enum class LogLevel { Script = 1, Errors = 2, Files = 3, Network = 4 };

// The activity log. Writing never fails for the caller.
class ActivityLog {
 public:
  virtual ~ActivityLog() = default;
  virtual void Write(LogLevel level, std::string_view event, std::string_view detail) = 0;
};

// What stands in front of the page's text, or takes its place: status, headers, cookies, a
// redirect, a file. It is held until the first byte of the page leaves the output's buffer, an
// error is shown, or the page ends. What would change it later is refused.
//
// Operations that return a text give what is wrong as an expression error says it (HTML), with
// nothing changed then; the empty text when all is well.
class AnswerHead {
 public:
  // Whether it was sent: nothing of it can be changed any more.
  [[nodiscard]] virtual bool begun() const = 0;
  // `code` is a number from 200 to 599. The last status that was set counts.
  [[nodiscard]] virtual String SetStatus(std::string_view code) = 0;
  // Sets a header, in place of a former one; adds one for Set-Cookie and Link. An empty value takes
  // it back.
  [[nodiscard]] virtual String SetHeader(std::string_view name, std::string_view value) = 0;
  // Whether the page has set that header, letter case ignored.
  [[nodiscard]] virtual bool HasHeader(std::string_view name) const = 0;
  // Sends the browser to a place of this site, or to any web address.
  [[nodiscard]] virtual String Redirect(std::string_view address) = 0;
  [[nodiscard]] virtual String RedirectAway(std::string_view address) = 0;
  // Makes the data file `path` the answer. An empty `type` stands for that of its extension; with a
  // `name` it is offered for saving.
  [[nodiscard]] virtual String SendFile(const String& path, std::string_view type,
                                        std::string_view name) = 0;
  // Sends a validator made from `version`. `unchanged` tells whether the browser has that version;
  // the answer is then that alone.
  [[nodiscard]] virtual String SetVersion(std::string_view version, bool& unchanged) = 0;
  // Sets a cookie, in place of one of the same name, path and domain. `options` as a page writes
  // them.
  [[nodiscard]] virtual String SetCookie(std::string_view name, std::string_view value,
                                         std::string_view options) = 0;
  // The value of a cookie that the browser sent, decoded; empty when there is none.
  [[nodiscard]] virtual String Cookie(std::string_view name) const = 0;
  // An error stops the page: while the head is held, its status, redirect and file are taken back.
  virtual void PageStops() = 0;
  // For who must send what is held when nothing else works any more: as PageStops, calls `send`
  // with the pieces in order, and uses no heap. False: no text may follow.
  [[nodiscard]] virtual bool SendHeld(void (*send)(void* sender, std::string_view piece),
                                      void* sender) = 0;

 protected:
  ~AnswerHead() = default;
};

// A package registered by the configuration file.
struct PackageInfo {
  String code, name, description, version, path, defaultpath;
};

// A commerce method registered by the configuration file.
struct CommerceMethod {
  String method;
  String library;
  String metamethod;  // empty when there is none
};

// The directories of the site, where pages may put files, and whose files besides root's may be
// loaded: those of the owner of the configuration file.
struct SitePlaces {
  String scripts, data, temporary;
  uid_t trusted_owner;
};

// The session of a visitor: an id in a cookie, and values that the site keeps under it from one
// request to the next.
//
// Operations return what is wrong as an expression error says it (HTML), with nothing changed then;
// the empty text when all is well.
class VisitorSession {
 public:
  virtual ~VisitorSession() = default;
  // The id; makes a session when the browser brought none.
  [[nodiscard]] virtual String GetID(String& id) = 0;
  // Gives the session another id. The former one is that of nobody then.
  [[nodiscard]] virtual String Renew(String& id) = 0;
  // Ends it: there is none, and there are no values.
  [[nodiscard]] virtual String End() = 0;
  // The value of exactly that name; empty when there is none, or no session.
  [[nodiscard]] virtual String GetValue(std::string_view name, String& value) = 0;
  // Sets a value, an empty one removes it; makes a session when there is something to be kept.
  [[nodiscard]] virtual String SetValue(std::string_view name, std::string_view value) = 0;
  // A token that shows for twelve hours that a form was made here, for this session and `purpose`.
  // Empty when there is no session.
  [[nodiscard]] virtual String MakeToken(std::string_view purpose, String& token) = 0;
  // Whether `token` is such a one.
  [[nodiscard]] virtual String CheckToken(std::string_view purpose, std::string_view token,
                                          bool& good) = 0;
};

// A field of a form, as it was sent.
struct SentField {
  Symbol name;
  String value;
};

// The interpreter host: one object for each request, which owns everything the request creates.
class Vexa {
 public:
  virtual ~Vexa() = default;

  // --- The site: its settings, and the packages they list ---
  [[nodiscard]] virtual const Settings& config() const = 0;
  [[nodiscard]] virtual std::span<const PackageInfo> packages() const = 0;
  [[nodiscard]] virtual SitePlaces places() const = 0;

  // The content type that the configuration gives an extension, in any letter case; null when it
  // gives it none.
  [[nodiscard]] virtual const String* FindContentType(std::string_view extension) const = 0;

  // --- Other machines ---
  // What is under way with them; made when it is first asked for.
  [[nodiscard]] virtual CGINetworkManager& networkmanager() = 0;

  // --- Files: how they are reached, and where the names of scripts lead ---
  [[nodiscard]] virtual FileManager& filemanager() = 0;
  [[nodiscard]] virtual ActivityLog& logfile() = 0;
  // Turns a name written in a script into a finished path inside the sandbox. 1 with `resolved`
  // set, or 0 with `message` set: then `resolved` is set, too, when nothing but an engine that has
  // the file open stands against it.
  [[nodiscard]] virtual int ResolvePath(const String& name, String& resolved, PathType type,
                                        String& message) = 0;
  // Whether a file at this finished path would run as a page: it lies in the script directory,
  // links followed, and has an extension that may run. What strangers send must not be put there.
  [[nodiscard]] virtual bool IsPagePath(const String& path) = 0;

  // --- The page: where it goes, and what is told on it ---
  [[nodiscard]] virtual Output& output() = 0;
  [[nodiscard]] virtual AnswerHead& answer() = 0;
  // Shows an error: begins the response when that has not happened, writes the message, flushes.
  virtual void Error(const vexa::Error& error) = 0;
  virtual void Error(const String& text) = 0;

  // --- The request, as it was sent ---
  // The fields of that name in query and body, letter case ignored, in the order they came,
  // whatever became of the variables. Valid until the host is asked again.
  [[nodiscard]] virtual std::span<const SentField> sentfields(std::string_view name) = 0;
  // The body of a request that is no form, as far as it arrives in time; read when it is first
  // asked for. Empty for a form. Null when it ended early and input is strict.
  [[nodiscard]] virtual const String* body() = 0;

  // --- The visitor ---
  // Made when it is first asked for.
  [[nodiscard]] virtual VisitorSession& session() = 0;

  // --- Variables, and how the page's macros and languages read them ---
  [[nodiscard]] virtual Variables& vars() = 0;
  [[nodiscard]] virtual MacroEncoding defaultmacroencoding() const = 0;
  virtual void SetDefaultMacroEncoding(MacroEncoding encoding) = 0;
  [[nodiscard]] virtual const String& language() const = 0;
  virtual void SetLanguage(const String& language) = 0;
  [[nodiscard]] virtual const String& defaultlanguage() const = 0;
  virtual void SetDefaultLanguage(const String& language) = 0;

  // What the functions for texts keep between their calls; made when it is first asked for.
  [[nodiscard]] virtual TextWork& textwork() = 0;

  // --- The time limit ---
  // True when the request was interrupted or its deadline has passed.
  [[nodiscard]] virtual bool timedout() = 0;
  // Begins the time limit anew. Always 1.
  virtual int ResetGlobalTimeout() = 0;
  // Seconds to the deadline, -1 when there is none.
  [[nodiscard]] virtual int64_t timeremaining() = 0;

  // --- The system ---
  // The system's message for the current errno.
  [[nodiscard]] virtual String lasterror() = 0;
  // The local date and time as mail headers write them.
  [[nodiscard]] virtual String currentdate() = 0;
  // One-way hash of `key`; "*0" or "*1" when the salt is not usable.
  [[nodiscard]] virtual String Crypt(const String& key, const String& salt) = 0;
  // 32 hexadecimal digits that no other call gives.
  [[nodiscard]] virtual String MakeSessionID() = 0;

  // --- Open databases, in the order they were opened; the host owns them ---
  // A closed database of a type, to be opened and added. Null with `message` set when there is no
  // such type.
  [[nodiscard]] virtual std::unique_ptr<Database> NewDatabase(const String& type,
                                                              const String& name,
                                                              String& message) = 0;
  virtual void AddDatabase(std::unique_ptr<Database> database) = 0;
  // Destroys the database; false when it is not registered.
  virtual bool RemoveDatabase(Database* database) = 0;
  [[nodiscard]] virtual Database* FindDatabase(std::string_view name) = 0;
  [[nodiscard]] virtual std::span<const std::unique_ptr<Database>> databases() const = 0;
  // The one that tags mean when they name none; null when there is none.
  [[nodiscard]] virtual Database* PrimaryDB() = 0;
  virtual void SetPrimaryDB(Database* database) = 0;

  // --- What libraries add: functions and payment methods ---
  // Sets `function` to the one of that name in the packages of the site, null when there is none.
  // False after an error was reported to `script`.
  [[nodiscard]] virtual bool FindPackageFunction(std::string_view name, ExpressionContext& script,
                                                 const Callable*& function) = 0;
  // Runs such a function. False when the page must stop; the error was then reported.
  [[nodiscard]] virtual bool CallPackageFunction(const Callable& function,
                                                 ExpressionContext& script,
                                                 std::span<ScriptValue> arguments,
                                                 ScriptValue& result) = 0;
  // From here on a key of the index that was opened as `index` is computed (null: none is), and
  // what keys may not call is refused. Borrowed. Returns the former one.
  virtual const String* SetKeyIndex(const String* index) = 0;
  // The index whose key is being computed, or null.
  [[nodiscard]] virtual const String* keyindex() const = 0;
  // Unpacks the archive of a package, or, when `license` is empty, gives the text of its licence as
  // `result`. False with `reason` set; it is empty when the page ran out of time.
  [[nodiscard]] virtual bool ExtractPackage(const String& code, const String& directory,
                                            const String& license, String& result,
                                            String& reason) = 0;
  // A block of the payment method of that name (empty: the first). Null with `message` set when
  // there is none, or its library cannot be used.
  [[nodiscard]] virtual std::unique_ptr<CommerceOrder> NewCommerceHandler(const String& method,
                                                                          ExpressionContext& script,
                                                                          String& message) = 0;

  // --- Scripts: those that were loaded, and the one that runs ---
  // Where scripts are kept from one request to the next; null where nothing is kept.
  [[nodiscard]] virtual PageStore* pages() = 0;
  // The loaded script of that name (a script path), loading it when needed. Null with `message`
  // set on failure. The host owns it.
  [[nodiscard]] virtual Module* FindModule(const String& name, String& message) = 0;
  [[nodiscard]] virtual Module* currentmodule() = 0;
  virtual void SetCurrentModule(Module* module) = 0;
  // What expressions of databases are evaluated in: the script that runs.
  // REQUIRES: a script runs.
  [[nodiscard]] virtual ExpressionContext& expressioncontext() = 0;
};

}  // namespace vexa

#endif  // VEXA_VEXA_H_
