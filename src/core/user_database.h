// The system's users and groups. A question that could not be answered is told apart from a user
// who does not exist: who grants or denies by the answer must not take one for the other.
//
// Asking costs more than the rest of the start of a request, so nobody does without need.

#ifndef VEXA_CORE_USER_DATABASE_H_
#define VEXA_CORE_USER_DATABASE_H_

#include <sys/types.h>

#include "core/string.h"

namespace vexa {

struct UserEntry {
  uid_t uid = static_cast<uid_t>(-1);
  gid_t gid = static_cast<gid_t>(-1);
  String name;
  String home;
};

// Failed: the reason is in errno.
enum class LookUp { Found, Missing, Failed };

// The entry of a user. `user` is changed only when it is found.
[[nodiscard]] LookUp FindUser(uid_t uid, UserEntry& user);
[[nodiscard]] LookUp FindUser(const String& name, UserEntry& user);

// Whether there is an entry of a group.
[[nodiscard]] LookUp FindGroup(gid_t gid);

// Whether `user` is a member of a group: it is the user's own, or lists the user. `member` is
// changed only when the group is found.
[[nodiscard]] LookUp FindMember(const String& group, const UserEntry& user, bool& member);

}  // namespace vexa

#endif  // VEXA_CORE_USER_DATABASE_H_
