// Trusted files; see trusted_file.h.

#include "files/trusted_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <memory>

#include "core/buffer.h"

namespace vexa {

namespace {

constexpr char kChangeable[] = "it or a directory above it may be changed by other users";

// `path` without links; null with the reason in errno.
std::unique_ptr<char, void (*)(void*)> WithoutLinks(const char* path) {
  return {::realpath(path, nullptr), std::free};
}

// Whether `path` is `directory` or lies below it.
bool LiesIn(std::string_view path, std::string_view directory) {
  if (!path.starts_with(directory)) return false;
  return directory == "/" || path.size() == directory.size() || path[directory.size()] == '/';
}

// What is wrong with who may write. Nobody can write to a link, whatever its mode says.
std::string_view WritersProblem(const struct stat& status) {
  const bool shared_directory = S_ISDIR(status.st_mode) && (status.st_mode & S_ISVTX) != 0;
  return shared_directory || S_ISLNK(status.st_mode) || (status.st_mode & (S_IWGRP | S_IWOTH)) == 0
             ? ""
             : kChangeable;
}

}  // namespace

TrustedFile::~TrustedFile() {
  if (descriptor_ >= 0) ::close(descriptor_);
}

void TrustedFile::Refuse(std::string_view directory, std::string_view name) {
  if (directory.empty()) return;
  const String written(directory);
  const auto resolved = WithoutLinks(written.c_str());
  refused_.push_back({resolved == nullptr ? written : String(resolved.get()), name});
}

bool TrustedFile::Fail(std::string_view reason, std::string_view offender) {
  reason_ = reason;
  offender_ = offender;
  return false;
}

bool TrustedFile::FailBySystem(const String& path) {
  unreachable_ = true;
  return Fail(errno == ENOENT ? "it does not exist" : std::strerror(errno), path);
}

bool TrustedFile::Check(const String& path) {
  if (!Resolve(path, S_IFREG)) return false;
  for (const Refused& refused : refused_) {
    if (!LiesIn(resolved_, refused.directory)) continue;
    return Fail(String::Concat({"it lies in the ", refused.name, " directory"}), path);
  }
  return CheckOwners(resolved_);
}

bool TrustedFile::CheckAsWritten(const String& path) { return Check(path) && CheckOwners(path); }

bool TrustedFile::CheckDirectory(const String& path) {
  return Resolve(path, S_IFDIR) && CheckOwners(resolved_);
}

// Finds out what `path` leads to. False when it is not of that type.
bool TrustedFile::Resolve(const String& path, mode_t type) {
  unreachable_ = false;
  if (path[0] != '/' || ContainsNul(path)) return Fail("its path is not absolute", path);
  struct stat status;
  if (::stat(path.c_str(), &status) != 0) return FailBySystem(path);
  if ((status.st_mode & S_IFMT) != type) {
    return Fail(type == S_IFDIR ? "it is not a directory" : "it is not a plain file", path);
  }
  const auto resolved = WithoutLinks(path.c_str());
  if (resolved == nullptr) return FailBySystem(path);
  resolved_ = resolved.get();
  checked_ = IdentityOf(status);
  struct stat now;
  if (::lstat(resolved_.c_str(), &now) != 0) return FailBySystem(path);
  // Somebody exchanges the file while it is looked at.
  return IdentityOf(now) == checked_ || Fail(kChangeable, path);
}

// From the file up to "/": first whose they are, then who may write to them.
bool TrustedFile::CheckOwners(const String& path) {
  return CheckUpwards(path, [this](const struct stat& status) { return OwnerProblem(status); }) &&
         CheckUpwards(path, WritersProblem);
}

std::string_view TrustedFile::OwnerProblem(const struct stat& status) const {
  return status.st_uid == 0 || status.st_uid == owner_ || status.st_uid == other_owner_
             ? ""
             : "it or a directory above it belongs to an untrusted user";
}

template <typename Problem>
bool TrustedFile::CheckUpwards(const String& path, Problem problem) {
  for (String place = path;;) {
    struct stat status;
    if (::lstat(place.c_str(), &status) != 0) return FailBySystem(path);
    const std::string_view found = problem(status);
    if (!found.empty()) return Fail(found, place);
    if (place.size() <= 1) return true;
    const size_t slash = place.view().rfind('/');
    place.Truncate(slash == 0 ? 1 : slash);
  }
}

bool TrustedFile::IsChecked(const struct stat& status) {
  if (!(IdentityOf(status) == checked_)) return Fail(kChangeable, resolved_);
  const std::string_view problem = OwnerProblem(status);
  if (!problem.empty()) return Fail(problem, resolved_);
  return WritersProblem(status).empty() || Fail(kChangeable, resolved_);
}

bool TrustedFile::Open(const String& path) {
  if (!Check(path)) return false;
  struct stat status;
  descriptor_ = OpenDescriptor(resolved_.c_str(), O_RDONLY, 0, status);
  return descriptor_ < 0 ? FailBySystem(path) : IsChecked(status);
}

bool TrustedFile::OpenIn(Buffer& buffer, const String& name) {
  struct stat status;
  if (!buffer.Open(resolved_, name) || !buffer.Status(status)) {
    unreachable_ = true;
    return Fail(buffer.error(), name);
  }
  return IsChecked(status);
}

}  // namespace vexa
