// SessionStore: the files of sessions, in the directory `vexasessions` of the data directory.
//
// A session is one file, named by the SHA-256 of its id: who may list the directory learns no id.
// It is only ever replaced by another one, renamed to its place under a lock on the whole of the
// file that is replaced. So
//   - a reader needs no lock, and finds a change whole or not at all, also when its process was
//     killed;
//   - who waited for the lock looks at the name again (OpenLocked), and begins anew with the file
//     that has it now: no change is lost;
//   - a session moves to another id by one rename.
//
// The time at which a file was changed is that of the session's last use. When it lies too far
// back, the session has no values any more. Who makes a file removes, every now and then, those of
// old sessions, under their locks, and what killed processes left behind.
//
// A file that is damaged has no values, and the next change makes a good one of it. What is no
// plain file is left alone: that is an error.

#ifndef VEXA_REQUEST_SESSION_STORE_H_
#define VEXA_REQUEST_SESSION_STORE_H_

#include <cstdint>
#include <memory>
#include <string_view>

#include "core/file.h"
#include "core/string.h"
#include "request/session_values.h"
#include "vexa.h"

namespace vexa {

// Operations that return a text give what went wrong as an expression error says it (HTML), with
// the session unchanged; the empty text when all is well. Ids are not checked.
class SessionStore {
 public:
  static constexpr char kTooLarge[] = "The session is larger than 65536 bytes";
  static_assert(SessionValues::kMostBytes == 65536);

  // `host` is borrowed.
  explicit SessionStore(Vexa& host) : host_(host) {}
  SessionStore(const SessionStore&) = delete;
  SessionStore& operator=(const SessionStore&) = delete;

  // Notes that a session is used now.
  void KeepAlive(const String& id);
  // Sets `value` to the value of that name, which is empty when there is none.
  [[nodiscard]] String Read(const String& id, std::string_view name, String& value);
  // Sets a value; an empty one removes.
  [[nodiscard]] String Change(const String& id, std::string_view name, std::string_view value);
  // Gives the values of a session to a new one, and ends the old one.
  [[nodiscard]] String Move(const String& from, const String& to);
  // Ends a session.
  [[nodiscard]] String Remove(const String& id);

 private:
  enum class Missing { Made, Allowed };

  // The file of a session. False with `reason` set when there must be none.
  [[nodiscard]] bool FindPath(const String& id, String& path, String& reason) const;
  // Makes the session of that id the one whose file this request works on. False with `reason` set.
  [[nodiscard]] bool Choose(const String& id, String& reason);
  // Opens and locks the file of a session, which is path_ then, to change it. Null with `reason`
  // set; with an empty reason when there is no file and none need be made.
  [[nodiscard]] std::unique_ptr<File> Lock(const String& id, Missing missing, String& reason);
  // Reads a file; no values when it is damaged or was not used for too long.
  [[nodiscard]] bool ReadValues(File& file, SessionValues& values, String& reason) const;
  // Whether a session last used then, in nanoseconds since 1970, is over.
  [[nodiscard]] bool IsOver(int64_t last_used) const;

  void CleanUp();
  // Whether it is time to do so. Notes that it is done, then.
  [[nodiscard]] bool CleaningIsDue(const String& directory);
  void RemoveIfOver(const String& path);

  Vexa& host_;
  String id_;    // the session asked for last; empty: none yet
  String path_;  // of its file
  // What was read of it. While the file is open no other has its identity, and none is changed in
  // place: as long as the path names it, the values are those of the session.
  std::unique_ptr<File> file_;
  int64_t length_ = 0;
  SessionValues values_;
};

}  // namespace vexa

#endif  // VEXA_REQUEST_SESSION_STORE_H_
