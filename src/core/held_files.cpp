// The list of held files; see held_files.h.

#include "core/held_files.h"

#include <utility>

#include "core/linkless_open.h"

namespace vexa {

namespace {

constexpr char kEndings[][12] = {"", "-journal", "-wal", "-shm"};

}  // namespace

HeldFile::HeldFile(String path) : path_(std::move(path)), next_(first_) { first_ = this; }

HeldFile::~HeldFile() {
  HeldFile** place = &first_;
  while (*place != nullptr && *place != this) place = &(*place)->next_;
  if (*place != nullptr) *place = next_;
}

bool HeldFile::IsOne(const String& path, const struct stat* status) const {
  for (const char* ending : kEndings) {
    const String name = String::Concat({path_, ending});
    if (name == path) return true;
    // Held paths hold no links; what a neighbour puts there meanwhile is nobody's to look at.
    struct stat held;
    if (status != nullptr && LookAtPath(name.c_str(), 0, held, LinkRule::Refuse) == 0 &&
        held.st_dev == status->st_dev && held.st_ino == status->st_ino) {
      return true;
    }
  }
  return false;
}

bool HeldFile::Holds(const String& path, const struct stat* status) {
  for (const HeldFile* file = first_; file != nullptr; file = file->next_) {
    if (file->IsOne(path, status)) return true;
  }
  return false;
}

}  // namespace vexa
