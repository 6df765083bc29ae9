// Paths of requests: decoding, and the walk from the served directory down.

#include "cgi/serve_target.h"

#include <fcntl.h>
#include <unistd.h>

#include <charconv>
#include <utility>

#include "cgi/serve_site.h"
#include "core/string.h"
#include "core/text.h"

namespace vexa {

OwnedDescriptor& OwnedDescriptor::operator=(OwnedDescriptor&& other) noexcept {
  std::swap(descriptor_, other.descriptor_);
  return *this;
}

OwnedDescriptor::~OwnedDescriptor() {
  if (descriptor_ >= 0) ::close(descriptor_);
}

int OwnedDescriptor::Release() { return std::exchange(descriptor_, -1); }

bool DecodePath(std::string_view encoded, std::string& path) {
  path.clear();
  if (!encoded.starts_with('/')) return false;
  for (size_t i = 0; i < encoded.size(); ++i) {
    unsigned char byte = static_cast<unsigned char>(encoded[i]);
    if (byte == '%') {
      const char* digits = encoded.data() + i + 1;
      if (i + 2 >= encoded.size()) return false;
      if (std::from_chars(digits, digits + 2, byte, 16).ptr != digits + 2) return false;
      i += 2;
    }
    if (byte < ' ' || byte == 0x7F || byte == '\\') return false;
    path.push_back(static_cast<char>(byte));
  }
  return true;
}

namespace {

constexpr char kDirectoryFile[] = "index.html";

std::string_view ExtensionOf(std::string_view name) {
  const size_t dot = name.rfind('.');
  return dot == name.npos ? std::string_view() : name.substr(dot + 1);
}

bool IsPageName(std::string_view name) {
  return EqualsIgnoreCase(ExtensionOf(name), kPageExtension);
}

// The text of a page is nobody's business, that of its backups ("a.vx~", "a.vx.orig") neither.
bool IsKept(std::string_view name) {
  const std::string dotted = "." + std::string(kPageExtension);
  for (size_t i = 0; i + dotted.size() <= name.size(); ++i) {
    if (EqualsIgnoreCase(name.substr(i, dotted.size()), dotted)) return true;
  }
  return EqualsIgnoreCase(ExtensionOf(name), "conf");
}

ServeTarget OfKind(ServeTarget::Kind kind) {
  ServeTarget target;
  target.kind = kind;
  return target;
}

// What `name` is in the directory, of which nothing is opened that could wait for a writer.
ServeTarget OpenFile(int directory, const std::string& name) {
  if (IsKept(name)) return ServeTarget();
  OwnedDescriptor file(
      ::openat(directory, name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
  ServeTarget target;
  if (!file.open()) return OfKind(ServeTarget::Kind::Unreadable);
  if (::fstat(file.get(), &target.status) != 0 || !S_ISREG(target.status.st_mode))
    return ServeTarget();
  target.kind = ServeTarget::Kind::File;
  target.file = std::move(file);
  target.name = name;
  return target;
}

// The page or the file that a directory shows.
ServeTarget OpenDirectory(int directory) {
  struct stat status;
  if (::fstatat(directory, kDirectoryPage.data(), &status, AT_SYMLINK_NOFOLLOW) == 0) {
    return OfKind(ServeTarget::Kind::Page);
  }
  if (::fstatat(directory, kDirectoryFile, &status, AT_SYMLINK_NOFOLLOW) != 0) return ServeTarget();
  return S_ISREG(status.st_mode) ? OpenFile(directory, kDirectoryFile) : ServeTarget();
}

ServeTarget OpenLast(int directory, const std::string& name) {
  struct stat status;
  const bool found = ::fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
  if (found && S_ISDIR(status.st_mode)) return OfKind(ServeTarget::Kind::Directory);
  if (IsPageName(name)) return OfKind(ServeTarget::Kind::Page);
  return found && S_ISREG(status.st_mode) ? OpenFile(directory, name) : ServeTarget();
}

}  // namespace

ServeTarget FindTarget(const std::string& root, std::string_view path) {
  constexpr int kDirectoryFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  OwnedDescriptor directory(::open(root.c_str(), kDirectoryFlags));
  path.remove_prefix(1);
  while (directory.open() && !path.empty()) {
    const size_t slash = path.find('/');
    const std::string name(path.substr(0, slash));
    if (name.empty() || name.front() == '.') return ServeTarget();
    if (slash == path.npos) return OpenLast(directory.get(), name);
    directory = OwnedDescriptor(::openat(directory.get(), name.c_str(), kDirectoryFlags));
    path.remove_prefix(slash + 1);
  }
  return directory.open() ? OpenDirectory(directory.get()) : ServeTarget();
}

namespace {

struct ContentTypeRow {
  std::string_view extension;
  const char* type;
};

constexpr ContentTypeRow kContentTypes[] = {
    {"avif", "image/avif"},
    {"css", "text/css; charset=utf-8"},
    {"csv", "text/csv; charset=utf-8"},
    {"gif", "image/gif"},
    {"htm", "text/html"},
    {"html", "text/html"},
    {"ico", "image/x-icon"},
    {"jpeg", "image/jpeg"},
    {"jpg", "image/jpeg"},
    {"js", "text/javascript; charset=utf-8"},
    {"json", "application/json"},
    {"map", "application/json"},
    {"md", "text/plain; charset=utf-8"},
    {"mjs", "text/javascript; charset=utf-8"},
    {"mp3", "audio/mpeg"},
    {"mp4", "video/mp4"},
    {"ogg", "audio/ogg"},
    {"otf", "font/otf"},
    {"pdf", "application/pdf"},
    {"png", "image/png"},
    {"svg", "image/svg+xml"},
    {"ttf", "font/ttf"},
    {"txt", "text/plain; charset=utf-8"},
    {"wasm", "application/wasm"},
    {"wav", "audio/wav"},
    {"webm", "video/webm"},
    {"webmanifest", "application/manifest+json"},
    {"webp", "image/webp"},
    {"woff", "font/woff"},
    {"woff2", "font/woff2"},
    {"xhtml", "application/xhtml+xml"},
    {"xml", "text/xml"},
    {"zip", "application/zip"},
};

}  // namespace

const char* ContentTypeOf(std::string_view name) {
  for (const ContentTypeRow& row : kContentTypes) {
    if (EqualsIgnoreCase(row.extension, ExtensionOf(name))) return row.type;
  }
  return "application/octet-stream";
}

}  // namespace vexa
