// Listening sockets.

#include "cgi/fcgi_socket.h"

#include <grp.h>
#include <netdb.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace vexa {

namespace {

constexpr int kWaiting = 511;  // connections that wait for a child
constexpr mode_t kOwnerAndGroup = 0660;
// Who connects to a port and says nothing must not keep a child. Accepted sockets inherit it.
constexpr timeval kPatience = {60, 0};

// Closes the descriptor and tells why. Always -1.
int Fail(int descriptor, String& reason, const char* what = nullptr) {
  reason = what != nullptr ? what : std::strerror(errno);
  if (descriptor >= 0) close(descriptor);
  return -1;
}

// Removes a socket that is left over. False when something is there that is in use.
bool RemoveLeftOver(const sockaddr_un& address, String& reason) {
  struct stat status;
  if (lstat(address.sun_path, &status) != 0) return true;
  if (!S_ISSOCK(status.st_mode)) {
    reason = "something else has that name";
    return false;
  }
  const int probe = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const bool in_use =
      connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ||
      errno != ECONNREFUSED;
  close(probe);
  if (in_use) {
    reason = "it is in use";
    return false;
  }
  return unlink(address.sun_path) == 0 || Fail(-1, reason) == 0;
}

}  // namespace

int ListenAtPath(const String& path, const String& group, String& reason) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) return Fail(-1, reason, "the path is too long");
  std::memcpy(address.sun_path, path.data(), path.size());
  gid_t owner = static_cast<gid_t>(-1);
  if (!group.empty()) {
    const struct group* entry = getgrnam(group.c_str());
    if (entry == nullptr) return Fail(-1, reason, "there is no such group");
    owner = entry->gr_gid;
  }
  if (!RemoveLeftOver(address, reason)) return -1;
  const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  // Nobody else may connect, not even before the group is set.
  const mode_t former = umask(0777 & ~kOwnerAndGroup);
  const int bound = bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  umask(former);
  if (bound != 0) return Fail(descriptor, reason);
  if (owner != static_cast<gid_t>(-1) && chown(path.c_str(), static_cast<uid_t>(-1), owner) != 0) {
    return Fail(descriptor, reason);
  }
  return listen(descriptor, kWaiting) == 0 ? descriptor : Fail(descriptor, reason);
}

int ListenAtPort(const String& address, String& reason) {
  const std::string_view text = address;
  const size_t colon = text.rfind(':');
  if (colon == std::string_view::npos) return Fail(-1, reason, "it is no [HOST]:PORT");
  std::string_view host = text.substr(0, colon);
  if (host.starts_with('[') && host.ends_with(']')) host = host.substr(1, host.size() - 2);
  const String name(host.empty() ? "127.0.0.1" : host);
  const String port(text.substr(colon + 1));
  addrinfo hints = {};
  hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  const int result = getaddrinfo(name.c_str(), port.c_str(), &hints, &found);
  if (result != 0) return Fail(-1, reason, gai_strerror(result));
  const int descriptor = socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int yes = 1;
  setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  setsockopt(descriptor, SOL_SOCKET, SO_RCVTIMEO, &kPatience, sizeof kPatience);
  const bool listens =
      bind(descriptor, found->ai_addr, found->ai_addrlen) == 0 && listen(descriptor, kWaiting) == 0;
  freeaddrinfo(found);
  return listens ? descriptor : Fail(descriptor, reason);
}

bool GiveSocketTo(const String& path, unsigned uid) {
  return chown(path.c_str(), uid, static_cast<gid_t>(-1)) == 0;
}

}  // namespace vexa
