// Files that an embedded engine has open and locks by itself.
//
// The system takes all of a process's record locks on a file when any descriptor of it is closed.
// So nobody but the engine may open such a file while it does: names of scripts that lead to one
// are refused where they are resolved.

#ifndef VEXA_CORE_HELD_FILES_H_
#define VEXA_CORE_HELD_FILES_H_

#include <sys/stat.h>

#include <string_view>

#include "core/string.h"

namespace vexa {

// Holds the file at `path`, and what the engine keeps beside it under its name and one of a few
// endings, while it lives.
class HeldFile {
 public:
  explicit HeldFile(String path);
  ~HeldFile();
  HeldFile(const HeldFile&) = delete;
  HeldFile& operator=(const HeldFile&) = delete;

  // Whether any is held.
  [[nodiscard]] static bool Any() { return first_ != nullptr; }
  // Whether the finished path `path`, at which there is `status` (null: nothing), leads to a held
  // file, under whatever name.
  [[nodiscard]] static bool Holds(const String& path, const struct stat* status);

  // While it lives nothing counts as held: for the engine's own side, which opens nothing itself.
  class Aside {
   public:
    Aside() : first_then_(first_) { first_ = nullptr; }
    ~Aside() { first_ = first_then_; }
    Aside(const Aside&) = delete;
    Aside& operator=(const Aside&) = delete;

   private:
    HeldFile* first_then_;
  };

 private:
  [[nodiscard]] bool IsOne(const String& path, const struct stat* status) const;

  static inline constinit HeldFile* first_ = nullptr;
  String path_;
  HeldFile* next_;
};

}  // namespace vexa

#endif  // VEXA_CORE_HELD_FILES_H_
