// HeldName: a path for the calls that make, remove, rename or look at what it names. Where links
// are refused, the directory it lies in is held open, so that nothing put in the place of that
// directory is ever worked on; what the name itself is, the calls do not follow.
//
//   HeldName name(path, rule);
//   if (!name.good() || ::unlinkat(name.directory(), name.text(), 0) != 0) ...
//
// Where links are followed it is the path itself, and costs nothing.

#ifndef VEXA_FILES_HELD_NAME_H_
#define VEXA_FILES_HELD_NAME_H_

#include <sys/stat.h>
#include <sys/types.h>

#include <string_view>

#include "core/linkless_open.h"
#include "core/string.h"

namespace vexa {

class HeldName {
 public:
  // `path` holds no NUL. With `near` the directory of that name serves for both when it is the
  // same; it must outlive this one then.
  HeldName(const String& path, LinkRule rule, const HeldName* near = nullptr);
  ~HeldName();
  HeldName(const HeldName&) = delete;
  HeldName& operator=(const HeldName&) = delete;

  // False when the directory cannot be opened. Everything else then fails with that reason, too.
  [[nodiscard]] bool good() const { return directory_ != -1; }
  // For calls that take a directory and a name. Slashes at the end of the path are at that of the
  // text: no call for the last component of a path leads on through a link because of them, but
  // those for what it leads to do.
  [[nodiscard]] int directory() const { return directory_; }
  [[nodiscard]] const char* text() const { return text_.c_str(); }
  // The text where a "/" at its end would do harm.
  [[nodiscard]] String BareText() const;
  // The text of another name in the same directory: this one with `suffix` behind it.
  [[nodiscard]] String With(std::string_view suffix) const;
  // AT_SYMLINK_NOFOLLOW where links are refused, else 0.
  [[nodiscard]] int flags() const;

  // All return 0, or -1 with the reason in errno.
  // What the name itself is, be it a link.
  [[nodiscard]] int LookAt(struct stat& status) const { return LookAt(text(), status); }
  [[nodiscard]] int LookAt(const char* text, struct stat& status) const;
  // Removes the file of this name, or of another in the same directory.
  [[nodiscard]] int Remove() const { return Remove(text()); }
  [[nodiscard]] int Remove(const char* text) const;
  // Renames what has the name `text` in this directory to this name, in the place of what is there.
  [[nodiscard]] int RenameFrom(const HeldName& from, const char* text) const;
  // Opens the file named `text`, this name or With(), as OpenDescriptor does.
  [[nodiscard]] int Open(const char* text, int flags, mode_t permissions,
                         struct stat& status) const;

 private:
  LinkRule rule_;
  bool borrowed_ = false;
  int directory_;
  String parent_;  // the path that was opened as the directory
  String text_;
};

}  // namespace vexa

#endif  // VEXA_FILES_HELD_NAME_H_
