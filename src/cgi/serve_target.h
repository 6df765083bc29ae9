// What a path of a request means below the served directory.

#ifndef VEXA_CGI_SERVE_TARGET_H_
#define VEXA_CGI_SERVE_TARGET_H_

#include <sys/stat.h>

#include <string>
#include <string_view>

namespace vexa {

// An open file, closed with its owner.
class OwnedDescriptor {
 public:
  explicit OwnedDescriptor(int descriptor = -1) : descriptor_(descriptor) {}
  OwnedDescriptor(OwnedDescriptor&& other) noexcept : descriptor_(other.Release()) {}
  OwnedDescriptor& operator=(OwnedDescriptor&& other) noexcept;
  ~OwnedDescriptor();

  [[nodiscard]] int get() const { return descriptor_; }
  [[nodiscard]] bool open() const { return descriptor_ >= 0; }
  // Whoever calls this closes it.
  [[nodiscard]] int Release();

 private:
  int descriptor_;
};

struct ServeTarget {
  enum class Kind {
    Missing,     // nothing, or nothing that is served
    Unreadable,  // a file that the system refuses to open
    Directory,   // a directory whose name lacks its slash
    Page,        // for the interpreter, which looks for itself whether it is there
    File         // to be sent as it is
  };
  Kind kind = Kind::Missing;
  OwnedDescriptor file;  // of a File, open for reading
  struct stat status {};
  std::string name;  // of a File: its last component
};

// Decodes the path of an address. False when it is malformed, or holds bytes that no served name
// has: control characters, and backslashes, which the interpreter would drop.
[[nodiscard]] bool DecodePath(std::string_view encoded, std::string& path);

// Finds what `path`, decoded and beginning with "/", leads to below the directory `root`. Links are
// not followed, as the interpreter follows none; a component that begins with a dot is missing.
[[nodiscard]] ServeTarget FindTarget(const std::string& root, std::string_view path);

// The type of a file by its extension; "application/octet-stream" when it is not known.
[[nodiscard]] const char* ContentTypeOf(std::string_view name);

}  // namespace vexa

#endif  // VEXA_CGI_SERVE_TARGET_H_
