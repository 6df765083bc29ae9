// Process: what a process has once, however many requests it serves, and what a request changes of
// the process itself.
//
// Once: the program and its arguments, the signals that end a page, the seed of chance, the
// standard descriptors. Limits, priority and identity cannot be taken back: they are set by the
// first request that asks for them and stay. The search path is each request's own.

#ifndef VEXA_HOST_PROCESS_H_
#define VEXA_HOST_PROCESS_H_

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <span>

#include "core/settings.h"
#include "core/string.h"
#include "core/user_database.h"

namespace vexa {

// Opens /dev/null for each of the descriptors 0 to 2 that is closed. A server may leave some of
// them so; the next file opened would get their number, and what is printed would end up in it.
// False when that fails.
[[nodiscard]] bool FillStandardDescriptors();

// Gives up for good what a set-user-ID or set-group-ID bit gave the process: what it does from here
// on it does as who started it. False, with the reason in errno, when the system refuses.
[[nodiscard]] bool GiveUpRaisedRights();

struct Remembered;

class Process {
 public:
  // `argv` is what main was given and stays valid.
  Process(int argc, char** argv);
  // For a process that serves many requests, never with rights of its file. `program` is the path
  // of the CGI program in whose place it stands, `configuration` that of its configuration; empty:
  // the one that the CGI program would find.
  // Keeps what proves unchanged.
  Process(String program, String configuration);
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  // What outlives a request; null in a process that serves only one.
  [[nodiscard]] Remembered* remembered() const { return remembered_.get(); }

  // The program as it was started, its own file name, and the arguments behind it.
  [[nodiscard]] const String& program() const { return program_; }
  [[nodiscard]] const String& basename() const { return basename_; }
  [[nodiscard]] std::span<char* const> arguments() const { return arguments_; }
  // The process, and not one that it was forked from: asked once.
  [[nodiscard]] pid_t id();
  // 32 bits that nobody can guess, from the system.
  [[nodiscard]] uint32_t DrawChance();
  // Whether the program runs as root by its set-user-ID bit.
  [[nodiscard]] bool RunningSetUIDRoot() const;
  // Whether somebody else than root started it so, by another name than the path of its file: the
  // name says where the configuration lies, which must not be that user's choice.
  [[nodiscard]] bool StartedUnderFalseName() const;
  // Leaves the working directory and the umask of who started the program for "/" and 022, takes
  // everything but the time zone out of the environment of the process (the request keeps its own
  // view of it), and heeds that user's terminal no more. False, with the reason in errno, when the
  // system refuses.
  [[nodiscard]] bool LeaveCallersSurroundings() const;
  // Where the configuration lies: where the process was told, else the first of three places that
  // has the file. The last one is not looked at: a file missing there too is noticed when it is
  // read. 1; 0 when whoever started the program as root chose a name for it that only the places
  // behind the first would know.
  int GetConfigurationFile(String& path) const;

  // From here on the signals that would end the process end the page that it serves.
  void TakeOverSignals() const;
  // A request begins: its reader is there, whatever became of the one before.
  void BeginRequest();
  // Whether the process is to end, or the reader of this request has gone.
  [[nodiscard]] bool interrupted() const;
  [[nodiscard]] bool is_to_end() const;
  // From here on this request counts as interrupted.
  void GiveUpRequest();

  // A request left something that the process cannot take back, so that it should serve no other.
  void Spend() { spent_ = true; }
  [[nodiscard]] bool spent() const { return spent_; }

  // Sets priority and hard limits, unless an earlier request has done so. Values are passed as they
  // stand: seconds of processor time, bytes of data and stack. Then sets the soft limit on memory,
  // which is each request's own. What the system refuses is left.
  void ApplyResourceLimits(const Settings& settings);
  // Takes on the identity of a user for good, with the groups that the system lists for the user;
  // for one who has no name there, the group of nobody alone. False, with the reason in errno, when
  // the system refuses; what of it was done is then not told.
  [[nodiscard]] bool TakeOnIdentity(const UserEntry& user);
  // Makes `path` the environment variable PATH, and takes it out again, leaving PATH empty.
  void InstallSearchPath(const String& path);
  void RemoveSearchPath();

 private:
  void SetLastingLimits(const Settings& settings);

  String program_;
  String basename_;
  String configuration_;         // its path, when the process was told
  bool has_file_rights_ = true;  // whether the set-user-ID bit of the program may count
  std::span<char* const> arguments_;
  std::unique_ptr<char[]> search_path_;  // "PATH=...", part of the environment while set
  std::unique_ptr<Remembered> remembered_;
  pid_t id_ = 0;  // 0: not asked yet
  bool limited_ = false;
  bool spent_ = false;
};

}  // namespace vexa

#endif  // VEXA_HOST_PROCESS_H_
