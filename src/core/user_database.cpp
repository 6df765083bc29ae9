// Asking the C library for users and groups.

#include "core/user_database.h"

#include <grp.h>
#include <pwd.h>

#include <cerrno>
#include <memory>

#include "core/late_function.h"

namespace vexa {

namespace {

constexpr size_t kUsualEntry = 4096;
constexpr size_t kLargestEntry = size_t{64} << 20;  // a group may list all users of a site

// The texts of an entry.
struct EntryRoom {
  std::unique_ptr<char[]> bytes;
  size_t size = 0;
};

// Calls `ask`, which returns an errno value, with as much room as its answer needs. Leaves the
// answer's texts in `room`.
template <typename Entry, typename Ask>
LookUp AskFor(Entry*& found, EntryRoom& room, Ask ask) {
  int reason = ERANGE;
  for (size_t size = kUsualEntry; reason == ERANGE && size <= kLargestEntry; size *= 4) {
    room = {std::make_unique_for_overwrite<char[]>(size), size};
    found = nullptr;
    // A source that fails without a word must not pass for one that knows nobody.
    errno = EIO;
    do {
      reason = ask(room, &found);
    } while (reason == EINTR);
  }
  if (found != nullptr) return LookUp::Found;
  errno = reason;
  return reason == 0 ? LookUp::Missing : LookUp::Failed;
}

LookUp Take(LookUp outcome, const passwd* found, UserEntry& user) {
  if (outcome == LookUp::Found) {
    user = {found->pw_uid, found->pw_gid, found->pw_name, found->pw_dir};
  }
  return outcome;
}

}  // namespace

LookUp FindUser(uid_t uid, UserEntry& user) {
  passwd entry;
  passwd* found = nullptr;
  EntryRoom room;
  const LookUp outcome = AskFor(found, room, [&](EntryRoom& r, passwd** answer) {
    return LateFunction<"getpwuid_r", decltype(::getpwuid_r)>()(uid, &entry, r.bytes.get(), r.size,
                                                                answer);
  });
  return Take(outcome, found, user);
}

LookUp FindUser(const String& name, UserEntry& user) {
  passwd entry;
  passwd* found = nullptr;
  EntryRoom room;
  const LookUp outcome = AskFor(found, room, [&](EntryRoom& r, passwd** answer) {
    return LateFunction<"getpwnam_r", decltype(::getpwnam_r)>()(name.c_str(), &entry, r.bytes.get(),
                                                                r.size, answer);
  });
  return Take(outcome, found, user);
}

LookUp FindGroup(gid_t gid) {
  struct group entry;
  struct group* found = nullptr;
  EntryRoom room;
  return AskFor(found, room, [&](EntryRoom& r, struct group** answer) {
    return LateFunction<"getgrgid_r", decltype(::getgrgid_r)>()(gid, &entry, r.bytes.get(), r.size,
                                                                answer);
  });
}

LookUp FindMember(const String& group, const UserEntry& user, bool& member) {
  struct group entry;
  struct group* found = nullptr;
  EntryRoom room;
  const LookUp outcome = AskFor(found, room, [&](EntryRoom& r, struct group** answer) {
    return LateFunction<"getgrnam_r", decltype(::getgrnam_r)>()(group.c_str(), &entry,
                                                                r.bytes.get(), r.size, answer);
  });
  if (outcome != LookUp::Found) return outcome;
  member = found->gr_gid == user.gid;
  for (char** name = found->gr_mem; !member && *name != nullptr; ++name) {
    member = user.name == *name;
  }
  return outcome;
}

}  // namespace vexa
