// Host: what it asks of the system on behalf of scripts.

#include <crypt.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "core/held_files.h"
#include "core/number.h"
#include "core/user_database.h"
#include "engine/module.h"
#include "files/sandbox.h"
#include "host/host.h"

namespace vexa {

String Host::lasterror() { return std::strerror(errno); }

// The zone is written in whole hours, on purpose: its minutes are always "00".
String Host::currentdate() {
  time_t now = std::time(nullptr);
  tm fields;
  tzset();
  localtime_r(&now, &fields);
  char date[128];
  size_t length = strftime(date, sizeof date, "%a, %d %b %Y %H:%M:%S ", &fields);
  long seconds_west = timezone - (fields.tm_isdst > 0 ? 3600 : 0);
  long hours = seconds_west / 3600;
  char zone[32];
  if (seconds_west < 0) {
    std::snprintf(zone, sizeof zone, "+%04ld", -hours * 100);
  } else {
    std::snprintf(zone, sizeof zone, "-%04ld", hours * 100);
  }
  return String::Concat({std::string_view(date, length), zone});
}

String Host::Crypt(const String& key, const String& salt) {
  const char* hash = crypt(key.c_str(), salt.c_str());
  if (hash != nullptr) return hash;
  // Some libraries answer a salt that they refuse so themselves: never a text that equals the salt.
  return salt.view().starts_with("*0") ? "*1" : "*0";
}

// Time, process and chance: no two requests have the same id. It is no secret.
String Host::MakeSessionID() {
  timeval now;
  gettimeofday(&now, nullptr);
  const uint32_t chance = process_.DrawChance();
  char id[40];
  std::snprintf(id, sizeof id, "%08X%08X%08X%08X", static_cast<uint32_t>(now.tv_sec),
                static_cast<uint32_t>(now.tv_usec), static_cast<uint32_t>(process_.id()), chance);
  return id;
}

String Host::UserNameFromUID(uid_t uid) {
  UserEntry user;
  return FindUser(uid & 0xFFFF, user) == LookUp::Found ? user.name : "user #" + PrintInteger(uid);
}

int Host::ResolvePath(const String& name, String& resolved, PathType type, String& message) {
  static const String nowhere;
  Module* module = currentmodule();
  const String& module_directory = module == nullptr ? nowhere : module->directory();
  const Sandbox sandbox{config(), filemanager_, script_directory_, data_directory_,
                        module_directory};
  if (!HeldFile::Any()) return sandbox.ResolvePath(name, resolved, type, message);
  String path;
  if (sandbox.ResolvePath(name, path, type, message) == 0) return 0;
  struct stat status;
  const bool is_there = filemanager_.Status(path, status) == 0;
  const bool is_held = HeldFile::Holds(path, is_there ? &status : nullptr);
  if (is_held) message = String::Concat({"'", EntityEncoded(name), "' is open as a database"});
  resolved = path;
  return is_held ? 0 : 1;
}

}  // namespace vexa
