// Trusted files; see trusted_file.h.

#include "files/trusted_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <memory>

namespace vexa {

namespace {

constexpr char kChangeable[] = "it or a directory above it may be changed by other users";

// `path` without links; null with the reason in errno.
std::unique_ptr<char, void (*)(void*)> Resolve(const char* path) {
  return {::realpath(path, nullptr), std::free};
}

// Whether `path` is `directory` or lies below it.
bool LiesIn(std::string_view path, std::string_view directory) {
  if (!path.starts_with(directory)) return false;
  return directory == "/" || path.size() == directory.size() || path[directory.size()] == '/';
}

}  // namespace

TrustedFile::~TrustedFile() {
  if (descriptor_ >= 0) ::close(descriptor_);
}

void TrustedFile::Refuse(std::string_view directory, std::string_view name) {
  if (directory.empty()) return;
  const String written(directory);
  const auto resolved = Resolve(written.c_str());
  refused_.push_back({resolved == nullptr ? written : String(resolved.get()), name});
}

bool TrustedFile::Fail(std::string_view reason, std::string_view offender) {
  reason_ = reason;
  offender_ = offender;
  return false;
}

bool TrustedFile::FailBySystem(const String& path) {
  return Fail(errno == ENOENT ? "it does not exist" : std::strerror(errno), path);
}

bool TrustedFile::Check(const String& path) {
  if (path[0] != '/' || ContainsNul(path)) return Fail("its path is not absolute", path);
  struct stat status;
  if (::stat(path.c_str(), &status) != 0) return FailBySystem(path);
  return CheckPath(path, status);
}

bool TrustedFile::Open(const String& path) {
  if (path[0] != '/' || ContainsNul(path)) return Fail("its path is not absolute", path);
  struct stat status;
  // Nothing is opened that could wait for a stranger: that is told by its kind.
  if (::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode)) {
    descriptor_ = OpenDescriptor(path.c_str(), O_RDONLY, 0, status);
    if (descriptor_ < 0) return FailBySystem(path);
  } else if (::stat(path.c_str(), &status) != 0) {
    return FailBySystem(path);
  }
  return CheckPath(path, status);
}

// `status` is that of the file which `path` led to a moment ago.
bool TrustedFile::CheckPath(const String& path, const struct stat& status) {
  if (!S_ISREG(status.st_mode)) return Fail("it is not a plain file", path);
  const auto resolved = Resolve(path.c_str());
  if (resolved == nullptr) return FailBySystem(path);
  resolved_ = resolved.get();
  for (const Refused& refused : refused_) {
    if (!LiesIn(resolved_, refused.directory)) continue;
    return Fail(String::Concat({"it lies in the ", refused.name, " directory"}), path);
  }
  struct stat now;
  if (::stat(resolved_.c_str(), &now) != 0) return FailBySystem(path);
  // Somebody exchanges the file while it is looked at.
  if (IdentityOf(now) != IdentityOf(status)) {
    return Fail(kChangeable, path);
  }
  return CheckOwners();
}

// From the file up to "/": first whose they are, then who may write to them.
bool TrustedFile::CheckOwners() {
  return CheckUpwards([this](const struct stat& status) {
           return status.st_uid == 0 || status.st_uid == owner_
                      ? ""
                      : "it or a directory above it belongs to an untrusted user";
         }) &&
         CheckUpwards([](const struct stat& status) {
           const bool shared_directory = S_ISDIR(status.st_mode) && (status.st_mode & S_ISVTX) != 0;
           return shared_directory || (status.st_mode & (S_IWGRP | S_IWOTH)) == 0 ? ""
                                                                                  : kChangeable;
         });
}

template <typename Problem>
bool TrustedFile::CheckUpwards(Problem problem) {
  for (String path = resolved_;;) {
    struct stat status;
    if (::lstat(path.c_str(), &status) != 0) return FailBySystem(path);
    const std::string_view found = problem(status);
    if (!found.empty()) return Fail(found, path);
    if (path.size() <= 1) return true;
    const size_t slash = path.view().rfind('/');
    path.Truncate(slash == 0 ? 1 : slash);
  }
}

}  // namespace vexa
