// The list of held files; see held_files.h.

#include "core/held_files.h"

#include <utility>

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
    struct stat held;
    if (status != nullptr && ::stat(name.c_str(), &held) == 0 && held.st_dev == status->st_dev &&
        held.st_ino == status->st_ino) {
      return true;
    }
  }
  return false;
}

bool HeldFile::Holds(const String& path) {
  struct stat status;
  const bool is_there = ::stat(path.c_str(), &status) == 0;
  for (const HeldFile* file = first_; file != nullptr; file = file->next_) {
    if (file->IsOne(path, is_there ? &status : nullptr)) return true;
  }
  return false;
}

}  // namespace vexa
