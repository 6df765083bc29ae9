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

class Module;
class Variable;
class Variables;

// --- Files -----------------------------------------------------------------------------------

// Bits of the mode a file is opened with.
enum OpenMode : int {
  OpenRead = 1,
  OpenWrite = 2,
  OpenCreate = 4,
  OpenTruncate = 8,
  OpenAppend = 16,
  OpenExclusive = 32,
};

enum class FileLockType { Shared = 0, Exclusive = 1 };

// Which root directory a name written in a script is taken from.
enum class PathType { DataPath = 0, ScriptPath = 1, TemporaryPath = 2 };

// An open file, made by FileManager::Open. Its descriptor may be closed and reopened behind the
// scenes to keep the handle budget; offsets and sizes are in bytes. Operations return a negative
// value on failure, with the message in error(). Destroying a File closes it; that must happen
// before its manager is destroyed.
class File {
 public:
  virtual ~File() = default;
  // Up to `count` bytes into `buffer`; returns the number read, 0 at the end of the file.
  [[nodiscard]] virtual int Read(char* buffer, int count) = 0;
  [[nodiscard]] virtual int Write(const char* data, int count) = 0;
  // Moves to `offset` from the start; returns the new offset.
  [[nodiscard]] virtual int64_t Seek(int64_t offset) = 0;
  [[nodiscard]] virtual int64_t Tell() = 0;
  [[nodiscard]] virtual int64_t Length() = 0;
  // Waits for a record lock on `length` bytes from `start` (length 0: to the end of the file).
  // Returns 0, or a negative value.
  [[nodiscard]] virtual int Lock(FileLockType type, int64_t start, int64_t length) = 0;
  virtual int Release(int64_t start, int64_t length) = 0;
  // Reads or writes at `offset` without moving the file's own offset: one system call each.
  // Return as Read and Write do.
  [[nodiscard]] virtual int ReadAt(int64_t offset, char* buffer, int count) = 0;
  [[nodiscard]] virtual int WriteAt(int64_t offset, const char* data, int count) = 0;
  // Cuts or extends the file to `length` bytes. Returns 0, or a negative value.
  [[nodiscard]] virtual int Truncate(int64_t length) = 0;
  // Waits until what was written is on the disk. Returns 0, or a negative value.
  [[nodiscard]] virtual int Sync() = 0;
  // Sets the times of this very file to now, also when its path names another one meanwhile.
  // Returns 0, or a negative value.
  [[nodiscard]] virtual int Touch() = 0;
  // Whether the path it was opened with still names this file: 1 yes, 0 no (it was replaced or
  // removed), negative when that cannot be told.
  [[nodiscard]] virtual int StillNamed() = 0;
  [[nodiscard]] virtual const String& error() const = 0;
};

// The file services of a request. All paths are finished paths, as ResolvePath gives them.
// Operations that return int give a negative value on failure, with the message in error().
class FileManager {
 public:
  virtual ~FileManager() = default;
  // Opens `path` with OpenMode bits; null on failure.
  [[nodiscard]] virtual std::unique_ptr<File> Open(const String& path, int mode) = 0;
  // Takes the cross-process lock named by the path `lockfile`; it is given back by deleting that
  // file. 1 taken, 0 timed out, -1 error, -2 deadlock.
  [[nodiscard]] virtual int Lock(const String& lockfile) = 0;
  [[nodiscard]] virtual int Delete(const String& path) = 0;
  // Copies a file over `to`. A file is never copied onto itself.
  [[nodiscard]] virtual int Copy(const String& from, const String& to) = 0;
  [[nodiscard]] virtual int Rename(const String& from, const String& to) = 0;
  // Sets the times of `path` to now. 1, or 0 on failure.
  [[nodiscard]] virtual int TouchFile(const String& path) = 0;
  [[nodiscard]] virtual bool Exists(const String& path) = 0;
  [[nodiscard]] virtual int64_t Length(const String& path) = 0;
  [[nodiscard]] virtual bool IsDirectory(const String& path) = 0;
  [[nodiscard]] virtual int MakeDirectory(const String& path) = 0;
  [[nodiscard]] virtual int RemoveDirectory(const String& path) = 0;
  // The names in a directory without "." and "..", sorted by bytes. 0, or negative on failure.
  [[nodiscard]] virtual int ListDirectory(const String& path, std::vector<String>& names) = 0;
  [[nodiscard]] virtual int MakeSymbolicLink(const String& target, const String& link) = 0;
  // The st_mode value of `path`.
  [[nodiscard]] virtual int Mode(const String& path) = 0;
  [[nodiscard]] virtual int ChangeMode(const String& path, int mode) = 0;
  // Creates the file named `path` followed by the lowest free eight-digit number, appends those
  // digits to `path` and `suffix`, and opens it; null on failure.
  [[nodiscard]] virtual std::unique_ptr<File> MakeTemporary(String& path, String& suffix,
                                                            int mode) = 0;
  [[nodiscard]] virtual String StripExtension(const String& path) const = 0;
  [[nodiscard]] virtual String StripDirectory(const String& path) const = 0;
  // The owner of `path` itself, not of what a link leads to; (uid_t)-1 on failure.
  [[nodiscard]] virtual uid_t GetOwnerUID(const String& path) const = 0;
  // Takes "." and ".." out of `path` and checks its links. 0 when it is good (`path` is then
  // replaced by the result), 1 a link that is not allowed, 2 a link to another owner's file,
  // 3 a link to something that does not exist.
  [[nodiscard]] virtual int FollowPath(String& path, int allow_links,
                                       int allow_other_owner) const = 0;
  [[nodiscard]] virtual const String& error() const = 0;
};

// --- Databases -------------------------------------------------------------------------------

// What a database or view operation came to.
enum class DataResult { Failed = 0, Done = 1, EndOfData = 2 };

// One view of an open database: the current record and the way through the records. Operations
// that fail leave the message in error().
class DatabaseView {
 public:
  virtual ~DatabaseView() = default;
  // `expression` is the text of a filter; empty clears it.
  [[nodiscard]] virtual DataResult SetFilter(const String& expression) = 0;
  [[nodiscard]] virtual DataResult RevealStructure(const String& database) = 0;
  [[nodiscard]] virtual DataResult Skip(int rows) = 0;
  // A record number from 1; -1 for the first, -2 for the last record.
  [[nodiscard]] virtual DataResult Go(long row) = 0;
  [[nodiscard]] virtual DataResult Find(const String& value, int exact) = 0;
  [[nodiscard]] virtual DataResult Add() = 0;
  [[nodiscard]] virtual DataResult Update() = 0;
  [[nodiscard]] virtual DataResult Delete() = 0;
  [[nodiscard]] virtual DataResult UnDelete() = 0;
  // The variable of the current record with that name (letter case ignored), or null. Owned by
  // the view; valid until it is closed.
  [[nodiscard]] virtual Variable* FindVariable(std::string_view name) = 0;
  [[nodiscard]] virtual const String& name() const = 0;
  [[nodiscard]] virtual const String& error() const = 0;
};

// An open database. Operations that return int give non-zero for success, else the message is in
// error().
class Database {
 public:
  virtual ~Database() = default;
  [[nodiscard]] virtual int Open(const String& database, const String& user,
                                 const String& password) = 0;
  [[nodiscard]] virtual int OpenIndexes(const String& indexes) = 0;
  [[nodiscard]] virtual int SetPrimaryIndex(const String& index) = 0;
  [[nodiscard]] virtual int Create(const String& database, const String& fields) = 0;
  [[nodiscard]] virtual int CreateIndex(const String& indexfile, const String& expression,
                                        const String& flags) = 0;
  virtual void Close() = 0;
  [[nodiscard]] virtual int OpenView(const String& name, const String& query) = 0;
  [[nodiscard]] virtual int RunQuery(const String& query) = 0;
  [[nodiscard]] virtual DataResult Pack() = 0;
  [[nodiscard]] virtual int Reindex() = 0;
  [[nodiscard]] virtual const String& name() const = 0;
  [[nodiscard]] virtual const String& type() const = 0;
  [[nodiscard]] virtual const String& error() const = 0;
  // The open views in order; owned by the database.
  [[nodiscard]] virtual std::span<DatabaseView* const> views() = 0;
  [[nodiscard]] virtual DatabaseView* FindView(std::string_view name) = 0;
  [[nodiscard]] virtual DatabaseView* PrimaryView() = 0;
  virtual void SetPrimaryView(DatabaseView* view) = 0;
  virtual void RemoveView(DatabaseView* view) = 0;
  // Whether an operation is under way that runs functions of the page: the database and its views
  // must not be closed then.
  [[nodiscard]] virtual bool InUse() const { return false; }
};

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
  virtual void Error(const ::Error& error) = 0;
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
  [[nodiscard]] virtual Module* currentmodule() = 0;
  virtual void SetCurrentModule(Module* module) = 0;

  [[nodiscard]] virtual std::span<const PackageInfo> packages() const = 0;
};

#endif  // VEXA_VEXA_H_
