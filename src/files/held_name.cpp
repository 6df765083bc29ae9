// Holding the directory of a name; see held_name.h.

#include "files/held_name.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "core/late_function.h"
#include "files/descriptor.h"

namespace vexa {

HeldName::HeldName(const String& path, LinkRule rule, const HeldName* near)
    : rule_(rule), directory_(AT_FDCWD), text_(path) {
  if (rule == LinkRule::Follow) return;
  const std::string_view whole = path;
  const size_t last = whole.find_last_not_of('/');
  const size_t name = last == whole.npos ? whole.size() : whole.rfind('/', last) + 1;
  parent_ = name == 0 ? "." : whole.substr(0, name);
  text_ = name == whole.size() && name > 0 ? "." : whole.substr(name);
  borrowed_ = near != nullptr && near->rule_ == rule && near->parent_ == parent_;
  directory_ = borrowed_ ? near->directory_
                         : OpenPath(parent_.c_str(), O_PATH | O_DIRECTORY, 0, LinkRule::Refuse);
}

HeldName::~HeldName() {
  if (directory_ >= 0 && !borrowed_) CloseQuietly(directory_);
}

String HeldName::With(std::string_view suffix) const {
  return String::Concat({text_.view(), suffix});
}

int HeldName::flags() const { return rule_ == LinkRule::Refuse ? AT_SYMLINK_NOFOLLOW : 0; }

String HeldName::BareText() const {
  if (rule_ == LinkRule::Follow) return text_;
  return text_.view().substr(0, text_.view().find_last_not_of('/') + 1);
}

int HeldName::LookAt(const char* text, struct stat& status) const {
  return LateFunction<"fstatat", decltype(::fstatat)>()(directory_, text, &status,
                                                        AT_SYMLINK_NOFOLLOW);
}

int HeldName::Remove(const char* text) const {
  return LateFunction<"unlinkat", decltype(::unlinkat)>()(directory_, text, 0);
}

int HeldName::RenameFrom(const HeldName& from, const char* text) const {
  return LateFunction<"renameat", decltype(::renameat)>()(from.directory_, text, directory_,
                                                          this->text());
}

int HeldName::Open(const char* text, int flags, mode_t permissions, struct stat& status) const {
  if (rule_ == LinkRule::Follow) return OpenDescriptor(text, flags, permissions, status);
  // A name in a directory of this name is none in this directory.
  errno = EISDIR;
  if (std::strchr(text, '/') != nullptr) return -1;
  return OpenDescriptorAt(directory_, text, flags | O_NOFOLLOW, permissions, status);
}

}  // namespace vexa
